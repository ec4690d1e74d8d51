// The system-wide files of /proc.

#include "acquisition/counterReaders.h"
#include "fuzz/target.h"

#include <array>
#include <cmath>
#include <limits>

namespace obrin::fuzz::counters {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
const std::array<double, 8> limits{0.0, 0.5, 7.9, 1e18, 1e300, -1.0, infinity, std::nan("")};

void checkValue(std::optional<double> value) {
    require(!value || std::isfinite(*value), "a value is finite");
}

void checkAll(std::string_view input) {
    const auto tasks = parseTaskCount(input);
    const auto header = parseTasksHeader(input);
    const auto memory = parseMemTotal(input);
    const auto threads = parseThreadsMax(input);
    const auto swap = parseSwapSpace(input);
    const auto descriptors = parseFileNr(input);
    for (const double limit : limits) {
        if (swap)
            checkValue(swapSpaceUsed(*swap, limit));
        if (descriptors)
            checkValue(descriptorsUsed(*descriptors, limit));
        if (tasks && header)
            checkValue(processesUsed(*tasks, *header, limit));
        checkValue(processesUsed(tasks.value_or(1), processCapacity(memory.value_or(1), threads.value_or(1)),
                                 limit));
    }
}

/// A number that is there is the same with anything behind its line.
template <class Parse>
void checkBehind(std::string_view input, Parse parse) {
    const auto found = parse(input);
    const auto again = parse(std::string(input) + "\nMemTotal: 1 SwapTotal: 2 SwapFree: 3 NR_TASKS 4 /5\n");
    require(!found || again == found, "what follows a number does not change it");
}

void check(std::string_view input) {
    checkAll(input);
    checkBehind(input, [](std::string_view text) { return parseTaskCount(text); });
    checkBehind(input, [](std::string_view text) { return parseTasksHeader(text); });
    checkBehind(input, [](std::string_view text) { return parseMemTotal(text); });
    checkBehind(input, [](std::string_view text) { return parseThreadsMax(text); });
    const auto number = static_cast<std::int64_t>(Input(input).take<std::uint64_t>() / 2);
    const std::string text = std::to_string(number);
    require(parseTaskCount("0.1 0.2 0.3 2/" + text + " 99\n") == number, "the tasks are read");
    require(parseMemTotal("MemFree: 1 kB\nMemTotal:  " + text + " kB\n") == number, "the memory is read");
    const auto swap = parseSwapSpace("SwapTotal: " + text + " kB\nSwapFree: " + text + " kB\n");
    require(swap && swap->total == number && swap->free == number, "the swap space is read");
    const auto descriptors = parseFileNr(text + "\t" + text + "\t" + text + "\n");
    require(descriptors && descriptors->maximum == number && descriptors->free == number,
            "descriptors are read");
}

const Target target("counters", check);

} // namespace
} // namespace obrin::fuzz::counters
