#pragma once

#include "acquisition/diskListing.h"
#include "resources/resourceRecords.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace obrin {

/// Result of a reading that gave no value.
inline constexpr int notRead = 155;

/// One thing that the agent can count, and all that anybody needs to know of it. To add a counter is to add
/// its reader and one row of the table.
struct Counter {
    std::string_view object;  ///< of the declaration ("FindObject")
    std::string_view counter; ///< of the declaration ("FindCounter"); empty: whatever stands there
    int (*read)(Link& link);  ///< see ReadRawData
    std::string_view words;   ///< its name for people; of a disk's counter what it counts there
    std::string_view unit;    ///< of the capacity, for people; empty for bytes
    double bytes;             ///< in one unit of the capacity; 0 for what is no bytes
    bool wholeLimit;          ///< an UpperLimitAbs counts without its fraction
    std::string_view whole;   ///< what 100 per cent are, for people
    std::string_view nothing; ///< what a measured capacity of 0 means, for people
    bool absent;              ///< such a resource is not there at all, rather than always full
};

/// All of them. Changed by tests alone.
std::vector<Counter>& counterTable();

/// The counter that the link names; null when there is none.
const Counter* counterOf(const Link& link);

/// Reads the counter that the link names and stores its value in per cent in DataArray[0] and the measured
/// capacity in UpperLimitCalc. 1; notRead when there was no value to be had, a value that is not finite
/// included (a capacity of 0 in the reader of process slots, an infinite UpperLimitAbs): DataArray[0] is then
/// as before, UpperLimitCalc may be new. Never -1. Agent thread.
int ReadRawData(Link* link);

/// Hook for work before each cycle's readings; on Linux nothing. Always 1.
int RefreshRawData();

// The texts of the kernel's files, taken apart. Each gives nothing when what it looks for is missing before
// the end of the text or is no number. Any thread.

/// "/proc/loadavg": the number of tasks, behind the first "/".
std::optional<std::int64_t> parseTaskCount(std::string_view loadavg);

/// "tasks.h" of old kernels: the number behind the word NR_TASKS.
std::optional<std::int64_t> parseTasksHeader(std::string_view header);

/// "/proc/meminfo": MemTotal in kilobytes.
std::optional<std::int64_t> parseMemTotal(std::string_view meminfo);

/// "/proc/sys/kernel/threads-max".
std::optional<std::int64_t> parseThreadsMax(std::string_view threadsMax);

struct SwapSpace {
    std::int64_t total = 0; ///< kilobytes; 0 without swap
    std::int64_t free = 0;  ///< kilobytes
};
/// "/proc/meminfo": SwapTotal, and the SwapFree behind it.
std::optional<SwapSpace> parseSwapSpace(std::string_view meminfo);

struct FileDescriptors {
    std::int64_t allocated = 0;
    std::int64_t free = 0; ///< allocated and not in use
    std::int64_t maximum = 0;
};
/// "/proc/sys/fs/file-nr".
std::optional<FileDescriptors> parseFileNr(std::string_view fileNr);

// The values in per cent. `upperLimitAbs` above 0 takes the place of the measured capacity; values are not
// clamped, so a small one gives more than 100. Nothing when there is no finite value. Any thread.

/// Slots for processes on a machine with so much memory (kilobytes) and that limit on threads.
std::int64_t processCapacity(std::int64_t memTotal, std::int64_t threadsMax);

/// `upperLimitAbs` counts truncated to an integer.
std::optional<double> processesUsed(std::int64_t tasks, std::int64_t capacity, double upperLimitAbs);

/// `upperLimitAbs` counts with its fraction. Nothing for a total of 0 or less.
std::optional<double> swapSpaceUsed(const SwapSpace& swap, double upperLimitAbs);

/// `upperLimitAbs` counts truncated to an integer. Nothing for a maximum below 1.
std::optional<double> descriptorsUsed(const FileDescriptors& descriptors, double upperLimitAbs);

/// Used and available together: what is reserved for the superuser does not count as free.
double diskCapacity(const DiskLine& line);

/// `upperLimitAbs` counts with its fraction. 100 for a total or a capacity of exactly 0 (file systems without
/// inodes).
std::optional<double> diskUsed(const DiskLine& line, double upperLimitAbs);

} // namespace obrin
