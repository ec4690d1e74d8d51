#include "acquisition/counterReaders.h"

#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "support/immortal.h"
#include "support/systemPaths.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace obrin {

namespace {

/// Memory beyond this many kilobytes adds no process slots.
constexpr std::int64_t memoryForProcesses = 896000;
constexpr std::int64_t kilobytesPerProcess = 32;

std::optional<std::int64_t> integerAfterWord(std::string_view text, std::string_view word) {
    TextScanner scanner(text);
    if (!scanner.skipPastWord(word))
        return std::nullopt;
    return scanner.integer();
}

/// A configured capacity of more than 0, truncated; an endless one is the largest number.
std::int64_t truncatedLimit(double upperLimitAbs) {
    constexpr double beyond = 9223372036854775808.0;
    return upperLimitAbs >= beyond ? std::numeric_limits<std::int64_t>::max()
                                   : static_cast<std::int64_t>(upperLimitAbs);
}

std::optional<double> finite(double value) {
    if (!std::isfinite(value))
        return std::nullopt;
    return value;
}

/// Stores a value where there is one. The result of the reading.
int store(Link& link, std::optional<double> value) {
    if (!value)
        return notRead;
    link.DataArray[0] = *value;
    link.findings.valueRead = true;
    return 1;
}

void setCapacity(Link& link, double capacity) {
    link.UpperLimitCalc = capacity;
    link.findings.capacityRead = true;
}

std::optional<std::int64_t> readProcessCapacity() {
    DEBUGMSG(" before 5 fopen(/usr/src/linux/include/linux/tasks.h)\n");
    const auto header = readWholeFile(systemPaths().tasksHeader);
    DEBUGMSG(" after  5 fopen(/usr/src/linux/include/linux/tasks.h)\n");
    if (header)
        return parseTasksHeader(*header);

    DEBUGMSG(" before 15 fopen(/proc/meminfo)\n");
    const auto meminfo = readWholeFile(systemPaths().meminfo);
    DEBUGMSG(meminfo ? " after  15 fopen(/proc/meminfo)\n" : " after  15n fopen(/proc/meminfo)\n");
    const auto memTotal = parseMemTotal(meminfo.value_or(""));
    if (!memTotal)
        return std::nullopt;

    DEBUGMSG(" before 6 fopen(/proc/sys/kernel/threads-max)\n");
    const auto threadsMaxText = readWholeFile(systemPaths().threadsMax);
    DEBUGMSG(threadsMaxText ? " after  6 fopen(/proc/sys/kernel/threads-max)\n"
                            : " after 6n fopen(/proc/sys/kernel/threads-max)\n");
    const auto threadsMax = parseThreadsMax(threadsMaxText.value_or(""));
    if (!threadsMax)
        return std::nullopt;
    return processCapacity(*memTotal, *threadsMax);
}

int readProcesses(Link& link) {
    DEBUGMSG(" before 4 fopen(/proc/loadavg)\n");
    const auto loadavg = readWholeFile(systemPaths().loadavg);
    DEBUGMSG(" after  4 fopen(/proc/loadavg)\n");
    const auto tasks = parseTaskCount(loadavg.value_or(""));
    if (!tasks)
        return notRead;
    const auto capacity = readProcessCapacity();
    if (!capacity)
        return notRead;
    setCapacity(link, static_cast<double>(*capacity));
    return store(link, processesUsed(*tasks, *capacity, link.UpperLimitAbs));
}

int readSwapSpace(Link& link) {
    DEBUGMSG(" before 7 fopen(/proc/meminfo)\n");
    const auto meminfo = readWholeFile(systemPaths().meminfo);
    DEBUGMSG(meminfo ? " after  7 fopen(/proc/meminfo)\n" : " after 7n fopen(/proc/meminfo)\n");
    const auto swap = parseSwapSpace(meminfo.value_or(""));
    if (!swap)
        return notRead;
    setCapacity(link, static_cast<double>(swap->total));
    return store(link, swapSpaceUsed(*swap, link.UpperLimitAbs));
}

int readDescriptors(Link& link) {
    DEBUGMSG(" before 8 fopen(/proc/sys/fs/file-nr)\n");
    const auto fileNr = readWholeFile(systemPaths().fileNr);
    DEBUGMSG(fileNr ? " after  8 fopen(/proc/sys/fs/file-nr)\n" : " after 8n fopen(/proc/sys/fs/file-nr)\n");
    const auto descriptors = parseFileNr(fileNr.value_or(""));
    if (!descriptors)
        return notRead;
    setCapacity(link, static_cast<double>(descriptors->maximum));
    return store(link, descriptorsUsed(*descriptors, link.UpperLimitAbs));
}

int readDisk(Link& link, DiskCounter counter) {
    const TakenListing taken = takeDiskListing(counter);
    DEBUGMSG(" before 9 fopen(../tempdata/LumetraDisks.txt)\n");
    DEBUGMSG(" after  9 fopen(../tempdata/LumetraDisks.txt)\n");
    const DiskLine* line =
        taken.listing ? taken.listing->find(cleanfilename(link.Descriptor1.view())) : nullptr;
    if (line == nullptr)
        return notRead;
    setCapacity(link, diskCapacity(*line));
    return store(link, diskUsed(*line, link.UpperLimitAbs));
}

int readSpace(Link& link) {
    return readDisk(link, DiskCounter::space);
}

int readInodes(Link& link) {
    return readDisk(link, DiskCounter::inodes);
}

} // namespace

std::vector<Counter>& counterTable() {
    static Immortal<std::vector<Counter>> table(std::vector<Counter>{
        {"PercentProcessesUsed", "", readProcesses, "Process slots", "tasks", 0.0, true,
         "tasks: the smaller of what the kernel allows and what the memory is good for", "", false},
        {"PercentSwapSpaceUsed", "", readSwapSpace, "Swap", "", 1024.0, false, "swap space",
         "this machine has no swap space", true},
        {"PercentFileDescriptorsUsed", "", readDescriptors, "File descriptors", "descriptors", 0.0, true,
         "open files that the kernel allows", "", false},
        {"LogicalDisk", "PercentFreeSpaceUsed", readSpace, "space", "", 1024.0, false,
         "space of the file system that is not kept for the superuser",
         "counts no space of its own, always reads as full", false},
        {"LogicalDisk", "PercentFreeInodesUsed", readInodes, "inodes", "inodes", 0.0, false,
         "inodes of the file system", "counts no inodes of its own, always reads as full", false},
    });
    return *table;
}

const Counter* counterOf(const Link& link) {
    const auto found = std::ranges::find_if(counterTable(), [&link](const Counter& counter) {
        return link.Descriptor0 == counter.object &&
               (counter.counter.empty() || link.Descriptor2 == counter.counter);
    });
    return found == counterTable().end() ? nullptr : &*found;
}

std::optional<std::int64_t> parseTaskCount(std::string_view loadavg) {
    TextScanner scanner(loadavg);
    if (!scanner.skipPast('/'))
        return std::nullopt;
    return scanner.integer();
}

std::optional<std::int64_t> parseTasksHeader(std::string_view header) {
    return integerAfterWord(header, "NR_TASKS");
}

std::optional<std::int64_t> parseMemTotal(std::string_view meminfo) {
    return integerAfterWord(meminfo, "MemTotal:");
}

std::optional<std::int64_t> parseThreadsMax(std::string_view threadsMax) {
    return TextScanner(threadsMax).integer();
}

std::optional<SwapSpace> parseSwapSpace(std::string_view meminfo) {
    TextScanner scanner(meminfo);
    const auto numberAfter = [&scanner](std::string_view word) {
        return scanner.skipPastWord(word) ? scanner.integer() : std::nullopt;
    };
    const auto total = numberAfter("SwapTotal:");
    if (!total)
        return std::nullopt;
    const auto free = numberAfter("SwapFree:");
    if (!free)
        return std::nullopt;
    return SwapSpace{*total, *free};
}

std::optional<FileDescriptors> parseFileNr(std::string_view fileNr) {
    TextScanner scanner(fileNr);
    const auto allocated = scanner.integer();
    const auto free = scanner.integer();
    const auto maximum = scanner.integer();
    if (!allocated || !free || !maximum)
        return std::nullopt;
    return FileDescriptors{*allocated, *free, *maximum};
}

std::int64_t processCapacity(std::int64_t memTotal, std::int64_t threadsMax) {
    return std::min(std::min(memTotal, memoryForProcesses) / kilobytesPerProcess, threadsMax);
}

std::optional<double> processesUsed(std::int64_t tasks, std::int64_t capacity, double upperLimitAbs) {
    if (upperLimitAbs > 0.0)
        capacity = truncatedLimit(upperLimitAbs);
    if (capacity == 0)
        return std::nullopt; // tasks over nothing is no share
    return static_cast<double>(tasks) / static_cast<double>(capacity) * 100.0;
}

std::optional<double> swapSpaceUsed(const SwapSpace& swap, double upperLimitAbs) {
    const double total = upperLimitAbs > 0.0 ? upperLimitAbs : static_cast<double>(swap.total);
    if (total <= 0.0)
        return std::nullopt;
    return finite((total - static_cast<double>(swap.free)) / total * 100.0);
}

std::optional<double> descriptorsUsed(const FileDescriptors& descriptors, double upperLimitAbs) {
    const std::int64_t maximum = upperLimitAbs > 0.0 ? truncatedLimit(upperLimitAbs) : descriptors.maximum;
    if (maximum < 1)
        return std::nullopt;
    const auto all = static_cast<double>(maximum);
    const double unused =
        static_cast<double>(descriptors.free) + (all - static_cast<double>(descriptors.allocated));
    return 100.0 - unused / all * 100.0;
}

double diskCapacity(const DiskLine& line) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(line.used, line.available, &sum))
        return static_cast<double>(line.used) + static_cast<double>(line.available);
    return static_cast<double>(sum);
}

std::optional<double> diskUsed(const DiskLine& line, double upperLimitAbs) {
    const double capacity = upperLimitAbs > 0.0 ? upperLimitAbs : diskCapacity(line);
    if (line.total == 0 || capacity == 0.0)
        return 100.0;
    return finite(static_cast<double>(line.used) / capacity * 100.0);
}

int ReadRawData(Link* link) {
    link->findings.valueRead = false;
    link->findings.capacityRead = false;
    const Counter* counter = counterOf(*link);
    return counter == nullptr ? notRead : counter->read(*link);
}

int RefreshRawData() {
    return 1;
}

} // namespace obrin
