#include "acquisition/diskListing.h"

#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "support/childProcess.h"
#include "support/immortal.h"
#include "support/numberText.h"
#include "support/systemPaths.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace obrin {

namespace {

// --- the text of a listing
// ---------------------------------------------------------------------------------------

/// A whole column as a number; nothing for anything else. What only an unsigned number holds is as good as
/// the largest.
std::optional<std::int64_t> columnNumber(std::string_view column) {
    std::int64_t value = 0;
    std::uint64_t wide = 0;
    const char* end = column.data() + column.size();
    if (auto [after, error] = std::from_chars(column.data(), end, value);
        error == std::errc{} && after == end)
        return value;
    if (auto [after, error] = std::from_chars(column.data(), end, wide); error == std::errc{} && after == end)
        return std::numeric_limits<std::int64_t>::max();
    return std::nullopt;
}

bool isPercentage(std::string_view column) {
    if (column == "-")
        return true;
    return column.size() >= 2 && column.back() == '%' &&
           std::all_of(column.begin(), column.end() - 1, isDigit);
}

/// The words of a line with their places in it.
std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    words.reserve(8); // two more than a line has as a rule
    std::size_t begin = line.find_first_not_of(' ');
    while (begin != std::string_view::npos) {
        const std::size_t end = std::min(line.find(' ', begin), line.size());
        words.push_back(line.substr(begin, end - begin));
        begin = line.find_first_not_of(' ', end);
    }
    return words;
}

/// The line taken apart with the percentage column at word `percentage`; nothing when it does not fit there.
std::optional<DiskLine> splitAt(std::string_view line, const std::vector<std::string_view>& words,
                                std::size_t percentage) {
    if (!isPercentage(words[percentage]) || words[percentage + 1].front() != '/')
        return std::nullopt;
    const std::string_view totalColumn = words[percentage - 3];
    const auto total = totalColumn == "-" ? std::optional<std::int64_t>(-1) : columnNumber(totalColumn);
    const auto used = columnNumber(words[percentage - 2]);
    const auto available = columnNumber(words[percentage - 1]);
    if (!total || !used || !available)
        return std::nullopt;
    const char* deviceEnd = words[percentage - 4].data() + words[percentage - 4].size();
    const char* mountPoint = words[percentage + 1].data();
    DiskLine parsed;
    parsed.device.assign(words.front().data(), deviceEnd);
    parsed.total = *total;
    parsed.used = *used;
    parsed.available = *available;
    parsed.mountPoint.assign(mountPoint, line.data() + line.size());
    return parsed;
}

// --- taking one
// ----------------------------------------------------------------------------------------------------

/// Past the deadline the killed command has this long to go before it counts as stuck.
constexpr std::chrono::milliseconds timeToDie{500};

/// Listings longer than this are cut; 10,000 mounts with the longest names need less.
constexpr std::size_t longestListing = wholeFileLimit;

/// Past this, a command is given up.
constexpr std::chrono::seconds longestRun{10};

/// So long may the listings of a cycle take together, however short the period.
constexpr std::chrono::milliseconds leastBudget{50};

/// What a shell tells of a command that it may not execute, and of a file that it cannot make.
constexpr int commandNotExecutable = 126 << 8;
constexpr int fileNotMade = 2 << 8;

/// What a command has printed, and what it says.
struct ReadListing {
    std::string text;
    std::shared_ptr<const DiskListing> listing;
};

struct ListingState {
    Clock::Duration budget = leastBudget; ///< for all listings of a cycle
    Clock::Duration used{};
    bool gaveUp = false; ///< a deadline passed in this cycle
    std::optional<TakenListing> newest[2];
    bool failed[2] = {};               ///< the newest command of each kind; it has then said why
    ReadListing read[2];               ///< of the newest command of each kind
    std::optional<ChildProcess> stuck; ///< killed, and not gone yet
};

/// Never destroyed: the agent may be in the middle of a listing when another thread ends the process.
ListingState& state() {
    static Immortal<ListingState> only;
    return *only;
}

std::size_t placeOf(DiskCounter counter) {
    return counter == DiskCounter::inodes ? 1 : 0;
}

ChildCommand commandFor(DiskCounter counter) {
    // Nothing else of the environment: units and names are the same whoever started the agent (blocks of 1024
    // bytes, names as bytes), and nobody's library is loaded into it.
    ChildCommand command{"df", {"df"}, {"LC_ALL=C"}};
    if (const char* path = std::getenv("PATH"))
        command.environment.push_back(std::string("PATH=") + path);
    if (counter == DiskCounter::inodes)
        command.arguments.push_back("-i");
    // What a disk that cannot be read makes it complain of is not said again in every cycle; and where nobody
    // reads it, the command would wait for that until its time is over.
    command.discardErrors = state().failed[placeOf(counter)] || !takesALine(STDERR_FILENO);
    return command;
}

/// The work file, as a shell opens it for ">", but it is not emptied: what was cut to nothing is sent to the
/// disk as soon as it is closed by some file systems.
Descriptor openWorkFile(const std::string& path) {
    Descriptor file = openOwn(path, O_RDWR | O_CREAT);
    if (!file && errno != ENOENT) // without its directory, disks are read all the same
        DEBUGMSG("Work file %s: cannot be opened: %s\n", path.c_str(), whyNotOpened(errno));
    return file;
}

/// How much has been written to the work file since it was opened: the commands write through this
/// descriptor.
off_t sizeWritten(int workFile) {
    return std::max<off_t>(::lseek(workFile, 0, SEEK_CUR), 0);
}

/// What has been written to the work file, for which it is cut behind that: an older listing may have been
/// longer. Empty when it cannot be.
std::string writtenTo(const Descriptor& workFile) {
    std::string text;
    if (::ftruncate(workFile.get(), sizeWritten(workFile.get())) == 0 &&
        ::lseek(workFile.get(), 0, SEEK_SET) == 0)
        readRest(workFile, wholeFileLimit, &text);
    return text;
}

struct CommandResult {
    bool started = false;
    int status = commandNotRun; ///< as waitpid(2) tells it
    std::string output;
};

/// Runs a command to its end or to the deadline. Past it, its group is killed, and nothing more is started in
/// this cycle.
CommandResult run(const ChildCommand& command, Clock::Moment deadline) {
    std::optional<ChildProcess> child = ChildProcess::start(command);
    if (!child)
        return {false, errno == EACCES || errno == ENOEXEC ? commandNotExecutable : commandNotRun, ""};
    CommandResult outcome{true, SIGKILL, child->takeOutput(deadline, longestListing)};
    if (outcome.output.size() >= longestListing)
        child->kill(); // what it still has to say is not read any more
    const auto status = child->wait(deadline, [&] {
        if (command.output >= 0 && sizeWritten(command.output) >= static_cast<off_t>(longestListing))
            child->kill(); // it would go on until the disk is full
    });
    if (status) {
        outcome.status = *status;
        return outcome;
    }
    state().gaveUp = true;
    child->kill();
    // SIGKILL stays its status: a df that is a script may see its child die first, and tell another one.
    child->wait(systemClock().now() + timeToDie);
    if (child->alive())
        state().stuck = std::move(child);
    return outcome;
}

/// What a command that ended with this status has printed. Of one that failed, text without even a heading is
/// no listing. The same text as before, which most are, is not taken apart again.
std::shared_ptr<const DiskListing> listingOf(DiskCounter counter, const std::string& text, int status) {
    ReadListing& read = state().read[placeOf(counter)];
    if (!read.listing || read.text != text)
        read = {text, std::make_shared<const DiskListing>(text)};
    return status == 0 || read.listing->hasHeading() ? read.listing : nullptr;
}

/// Whether a command that ended with this status put a listing into the work file that is whole. One that
/// failed may have had no room for the rest: the file then ends where a block does.
bool isWhole(int status, const std::string& text) {
    constexpr std::size_t smallestBlock = 512;
    if (text.empty() || text.back() != '\n')
        return false;
    const bool killed = !WIFEXITED(status) || WEXITSTATUS(status) > 128; // as a shell tells it
    return status == 0 || (!killed && text.size() % smallestBlock != 0);
}

TakenListing takeFresh(DiskCounter counter) {
    const Clock::Moment deadline = systemClock().now() + longestRun;
    ChildCommand command = commandFor(counter);
    TakenListing taken{fileNotMade, nullptr};
    const Descriptor file = openWorkFile(systemPaths().diskListing);
    if (file) {
        command.output = file.get();
        const CommandResult written = run(command, deadline);
        state().failed[placeOf(counter)] = written.started && written.status != 0;
        taken.status = written.status;
        if (!written.started || written.status == commandNotRun || state().gaveUp)
            return taken;
        const std::string text = writtenTo(file);
        if (isWhole(written.status, text)) {
            taken.listing = listingOf(counter, text, written.status);
            return taken;
        }
        command.discardErrors = true; // what was wrong has been said
    }
    command.captureOutput = true;
    command.output = -1;
    const CommandResult piped = run(command, deadline);
    if (!piped.started && !file)
        taken.status = piped.status; // nor would there have been a shell to miss the file
    if (piped.started && !state().gaveUp)
        taken.listing = listingOf(counter, piped.output, piped.status);
    return taken;
}

/// Whether a command of an earlier call is still there although it was killed.
bool stillStuck() {
    if (state().stuck && !state().stuck->alive())
        state().stuck.reset();
    return state().stuck.has_value();
}

} // namespace

std::optional<DiskLine> parseDiskLine(std::string_view line) {
    std::optional<DiskLine> parsed;
    if (line.find('\0') != std::string_view::npos)
        return parsed;
    const std::vector<std::string_view> words = wordsOf(line);
    for (std::size_t percentage = 4; percentage + 1 < words.size(); ++percentage) {
        std::optional<DiskLine> split = splitAt(line, words, percentage);
        if (split && parsed)
            return std::nullopt;
        if (split)
            parsed = std::move(split);
    }
    return parsed;
}

DiskListing::DiskListing(std::string_view text) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        const bool heading = lineFeeds_++ == 0;
        const std::string_view line = text.substr(0, end);
        if (auto parsed = heading ? std::nullopt : parseDiskLine(line)) {
            byCleanedName_.emplace(cleanfilename(parsed->device + " " + parsed->mountPoint), lines_.size());
            lines_.push_back(std::move(*parsed));
        } else if (!heading && leftOut_.size() < mostLeftOut) {
            leftOut_.emplace_back(line);
        }
        text.remove_prefix(end + 1);
    }
}

const DiskLine* DiskListing::find(const std::string& cleanedName) const {
    const auto found = byCleanedName_.find(cleanedName);
    return found == byCleanedName_.end() ? nullptr : &lines_[found->second];
}

void beginListingCycle(std::chrono::milliseconds samplePeriod) {
    ListingState& cycle = state();
    cycle.budget = std::max<Clock::Duration>(samplePeriod / 100, leastBudget);
    cycle.used = {};
    cycle.gaveUp = false;
    cycle.newest[0].reset();
    cycle.newest[1].reset();
}

TakenListing takeDiskListing(DiskCounter counter) {
    ListingState& cycle = state();
    std::optional<TakenListing>& newest = cycle.newest[placeOf(counter)];
    if (stillStuck())
        return {-1, nullptr};
    if (cycle.gaveUp)
        return newest.value_or(TakenListing{SIGKILL, nullptr});
    if (cycle.used >= cycle.budget && newest)
        return *newest;
    const Clock::Moment begun = systemClock().now();
    TakenListing taken = takeFresh(counter);
    cycle.used += systemClock().now() - begun;
    if (!newest || (taken.listing && taken.listing->hasHeading()))
        newest = taken;
    return taken;
}

} // namespace obrin
