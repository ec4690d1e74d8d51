#pragma once

#include "acquisition/diskSelection.h"
#include "support/fixedText.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace obrin {

/// Name of a disk: "%s %s" of device and mount point, at most 511 bytes.
using DiskName = FixedText<512>;

/// What is logged when there is no listing to count disks in, once until there is one again.
inline constexpr const char* noDiskListing =
    "No disk listing can be had: the disks are taken up with the first one that comes\n";

/// Number of file systems in a fresh `df` listing, its lines whether well-formed or not. 0 when there is no
/// listing (df hangs or is not there, no process can be started, not even a heading was printed): a start
/// goes on without the disks, and they are taken up later. Agent thread.
int GetNumberOfdisks();

/// Fills `names` (emptied first) with at most `count` disks of a fresh listing, in its order, and returns how
/// many, 0 for an empty one; -1 when the listing cannot be had. What the run's rules leave out is not among
/// them; nor is a disk whose name does not fit, with one log line a run. Agent thread.
int Retrievedisks(int count, std::vector<DiskName>* names);

/// The disks of the newest listing that are not watched, at most mostLeftOut of them. Agent thread.
const std::vector<LeftOutDisk>& disksLeftOut();

/// Whether the newest attempt to list the disks gave nothing. Agent thread.
bool awaitsDiskListing();

/// Begins a run: listings of an earlier one are forgotten, what is logged once is logged once more, and the
/// rules that were set last are in force.
/// Agent thread.
void beginInstanceRun();

/// The mount points of the machine at one moment, so that thousands of disks are looked up without reading
/// the table thousands of times. Octal escapes of the table are decoded.
class MountTable {
public:
    /// Reads the table (systemPaths().mounts); a table that cannot be read holds every mount point. So does
    /// one that is empty: a machine always has mounts, so nothing was read.
    static MountTable read();
    /// Takes the text of a table.
    static MountTable parse(std::string_view text);

    /// Whether something is mounted there. `mountPoint` is spelt as `df` prints it, which may put "?" for
    /// bytes that it does not print; such a mark matches the bytes it stands for.
    bool contains(std::string_view mountPoint) const;

    /// The same for the whole name, device, blank, mount point, in the same spelling.
    bool containsName(std::string_view instance) const;

private:
    void add(std::string_view entry);

    bool readable_ = true;
    std::unordered_set<std::string> mountPoints_; ///< in each spelling that a listing may use
    std::unordered_set<std::string> names_;
};

/// 1 when the disk of that name is mounted (only the mount point decides: the text from the first blank
/// before a "/" on; "_Total" and a name without a blank always are; so is every disk when the table cannot be
/// read), else 0.
int driveExists(const MountTable& table, std::string_view instance);

/// As above, with a table read for this call.
int driveExists(std::string_view instance);

/// Whether a disk that is in the chain must go: it is not mounted any more, or what is mounted there now is
/// left out by a rule. Agent thread.
bool isGone(const MountTable& table, std::string_view instance);

/// Number of processes of that name. On Linux always 0: process declarations have no instances here.
int GetNumberOfPIDsPerProcess(const char* object, const char* instance);

/// Writes at most `count` process identifiers and returns how many. On Linux always 0.
int RetrievePIDsGivenProcess(const char* object, const char* instance, int count, std::int32_t* pids);

} // namespace obrin
