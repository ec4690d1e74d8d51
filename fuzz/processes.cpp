// The files of /proc/<pid>, and the families of the census.

#include "diagnosis/processCensus.h"
#include "fuzz/target.h"

#include <limits>
#include <set>

namespace obrin::fuzz::processes {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() / 2;

void checkMemory(const RunningMemory& memory) {
    require(memory.VmSize >= -most && memory.VmSize <= most && memory.VmRSS >= -most && memory.VmRSS <= most,
            "the difference of two figures exists");
}

void checkTexts(std::string_view input) {
    ProcessResourceInformation record;
    RunningMemory memory;
    record.pid = record.ppid = -77;
    const bool isRead = readStatText(input, &record);
    require(isRead || (record.pid == -77 && record.name.empty()), "a text without a process changes nothing");
    require(record.name.view().find_first_of(" )") == std::string_view::npos, "a name ends at a blank");
    parentInStatText(input);
    readStatusText(input, &record, &memory);
    checkMemory(memory);
    readStatmText(input, &memory);
    checkMemory(memory);
}

/// A process may name itself as it likes, up to 15 bytes; here longer.
void checkHostileName(std::string_view name) {
    const std::string text = "4711 (" + std::string(name) + ") S 42 4711 4711 0 -1 4194560 2371\n";
    ProcessResourceInformation record;
    require(readStatText(text, &record) && record.pid == 4711,
            "whatever a process's name, its number is read");
    require(parentInStatText(text) == 42, "and its parent");
    const std::string_view shown = name.substr(0, name.find_first_of(std::string_view(" )\0", 3)));
    require(record.name.view() == shown.substr(0, record.name.capacity()),
            "and as much of the name as is shown");
}

void checkFamilies(std::string_view input) {
    Input bytes(input);
    std::vector<ProcessResourceInformation> census(std::min<std::size_t>(input.size() / 2, 100));
    std::set<std::int32_t> pids;
    for (auto& record : census) {
        record.pid = bytes.take<std::int8_t>();
        record.ppid = bytes.take<std::int8_t>();
        pids.insert(record.pid);
    }
    const auto count = static_cast<std::int32_t>(census.size());
    calculatepenultimatechildren(count, census.data());
    for (const auto& record : census) {
        const auto children = std::ranges::count(census, record.pid, &ProcessResourceInformation::ppid);
        require(record.immediatechildren == children, "every child is counted");
        require(record.numchildren >= record.immediatechildren, "children are descendants");
        if (pids.size() == census.size())
            require(record.numchildren == calci(record), "both ways of counting descendants agree");
    }
}

void check(std::string_view input) {
    checkTexts(input);
    checkHostileName(input);
    checkFamilies(input);
}

const Target target("processes", check);

} // namespace
} // namespace obrin::fuzz::processes
