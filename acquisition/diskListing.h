#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace obrin {

/// So many of what is left out are kept, to be told.
inline constexpr std::size_t mostLeftOut = 10000;

/// What a listing counts.
enum class DiskCounter { space, inodes };

/// One file system of a listing. Units: 1024-byte blocks, or inodes.
struct DiskLine {
    std::string device;
    std::int64_t total = 0; ///< -1: df does not know it ("-")
    std::int64_t used = 0;
    std::int64_t available = 0;
    std::string mountPoint; ///< the rest of the line, blanks included; begins with "/"
};

/// One line of a listing (without its line feed), or nothing when it is cut off, lacks a number or is
/// nonsense. A percentage column of "-" is accepted, and so are blanks in the device and in the mount point.
/// A line that can be taken apart in two ways, because a name holds what looks like the columns, is left out
/// rather than guessed at: whoever may name a mount must not choose another disk's numbers.
std::optional<DiskLine> parseDiskLine(std::string_view line);

/// A parsed listing: every well-formed line after the heading, in order. What follows the last line feed is
/// no line: it may be cut off. Immutable, so any thread may read it.
class DiskListing {
public:
    explicit DiskListing(std::string_view text);

    bool hasHeading() const { return lineFeeds_ > 0; }
    /// Line feeds of the text, those of the heading and of lines that are not well-formed included.
    std::size_t lineFeeds() const { return lineFeeds_; }
    const std::vector<DiskLine>& lines() const { return lines_; }
    /// The first of the lines that are not well-formed, as they stand there.
    const std::vector<std::string>& leftOut() const { return leftOut_; }

    /// The line whose "device mountPoint", cleaned with cleanfilename, equals `cleanedName`; null when there
    /// is none. The first such line counts.
    const DiskLine* find(const std::string& cleanedName) const;

private:
    std::size_t lineFeeds_ = 0;
    std::vector<DiskLine> lines_;
    std::vector<std::string> leftOut_;
    std::unordered_map<std::string, std::size_t> byCleanedName_;
};

/// A listing as it was taken. `status` is what system(3) would have returned for the command in a shell;
/// `listing` is null when there is none to read.
struct TakenListing {
    int status = 0;
    std::shared_ptr<const DiskListing> listing;
};

/// Begins a sampling cycle: listings may take a hundredth of the sample period together, at least 50 ms; past
/// that the newest listing of this cycle serves further calls. What was taken before is forgotten;
/// beginInstanceRun calls it for the start of a run. Agent thread.
void beginListingCycle(std::chrono::milliseconds samplePeriod);

/// Runs "df > ../tempdata/LumetraDisks.txt" or "df -i > ../tempdata/LumetraDisks.txt", without a shell, and
/// reads the result, in 1024-byte blocks whatever the environment asks for. The command has a deadline of 10
/// seconds; past it it is killed with its group, and none is started again in this cycle, nor while what was
/// killed is still there (stuck in the kernel). When the work file does not hold a whole listing afterwards
/// (its disk is full, say), the listing is taken again through a pipe within the same deadline: the rows
/// printed there count, an older work file never does. A command that fails although its listing is whole is
/// not repeated. No listing when the command could not be run, was given up, or failed and printed not even a
/// heading. Agent thread.
TakenListing takeDiskListing(DiskCounter counter);

/// The status of a command that could not be started or found.
inline constexpr int commandNotRun = 127 << 8;

} // namespace obrin
