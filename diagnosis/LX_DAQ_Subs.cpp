#include "diagnosis/LX_DAQ_Subs.h"

#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "diagnosis/processCensus.h"
#include "support/handles.h"
#include "support/immortal.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <numeric>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace obrin {
namespace {

using Record = ProcessResourceInformation;

constexpr std::size_t longestReport = 10;
/// The estimate of remaining descriptors supposes this many for the system.
constexpr std::int64_t systemDescriptors = 4096;

/// How the culprits of one resource are found and written.
struct Report {
    const char* displayName;
    const char* heading;
    int (*compare)(const Record& first, const Record& second);
    std::int32_t Record::*measure;
    const char* logSeparator; ///< between name and pid, in the log
    const char* label;
    const char* unit;
    const char* measureName; ///< for programs
    const char* words;       ///< for people
};

constexpr const char* fileSeparator = ") \tPID ";

constexpr Report reports[] = {
    {"PercentFileDescriptorsUsed", "Top Consumers of FDs:\n", comparenumFDs, &Record::numFDs, ") PID ",
     "#FDs ", "", "descriptors", "descriptors"},
    {"PercentSwapSpaceUsed", "Top Consumers of Memory (Resident Set Size):\n", comparevmrss, &Record::vmrss,
     fileSeparator, "RSS ", " MB", "residentMegabytes", "MB resident"},
    {"PercentProcessesUsed", "Top Consumers of Child Processes:\n", compareimmediatechildren,
     &Record::immediatechildren, fileSeparator, "Children ", "", "childProcesses", "child processes"},
};

const Report* reportOf(const Link& link) {
    const auto* found = std::ranges::find_if(
        reports, [&](const Report& report) { return link.NameIs == report.displayName; });
    return found == std::end(reports) ? nullptr : found;
}

/// Runs one step; an exception is logged as that of `step` and makes the step fail.
template <class Step>
auto guarded(const std::string& step, Step&& run) -> decltype(run()) {
    try {
        return run();
    } catch (const std::exception& problem) {
        DEBUGMSG("%s threw %s\n", step.c_str(), problem.what());
    } catch (...) {
        DEBUGMSG("%s threw unknown exception\n", step.c_str());
    }
    return {};
}

void logCannotWrite(const std::string& path) {
    DEBUGMSG(" LX_DAQ_Subs diagnose() fopen(%s, w) failed\n", path.c_str());
}

/// Whether a report can be put there. Makes an empty file when there is none, and leaves an old report as it
/// is until the new one is whole. What is no file of ours (a device, a FIFO, a link) holds no report.
bool canHoldReport(const std::string& path) {
    DEBUGMSG(" before 1 fopen(%s)\n", path.c_str());
    const Descriptor file = openOwn(path, O_WRONLY | O_CREAT, privateFileMode);
    DEBUGMSG(" after  1 fopen(%s)\n", path.c_str());
    if (file)
        return true;
    logCannotWrite(path);
    return false;
}

/// A census with the numbers of children, which are found out when they are asked for.
struct FamilyCensus {
    Census census;
    bool childrenAreCounted = false;
};

bool isShared = false;
/// Never destroyed: the agent may be in the middle of a report when another thread ends the process.
Immortal<std::optional<FamilyCensus>> ofTheCycle;

void logNumberOfProcesses(std::size_t count) {
    DEBUGMSG("# numprocs = %d ", clampToInt32(static_cast<std::int64_t>(count)));
}

/// Both passes over the processes, with their log lines; nothing on failure.
std::optional<Census> newCensus() {
    const auto processes = guarded("\n LX_DAQ_Subs diagnose() 13 opendir(/proc)", [] {
        auto listed = listProcesses();
        if (listed)
            logNumberOfProcesses(listed->size());
        else
            DEBUGMSG("\n LX_DAQ_Subs diagnose() 13 opendir(/proc) failed\n");
        return listed;
    });
    if (!processes)
        return std::nullopt;
    return guarded("\n LX_DAQ_Subs diagnose() 14 opendir(/proc)", [&] {
        auto taken = takeCensus(*processes);
        if (!taken)
            DEBUGMSG("\n LX_DAQ_Subs diagnose() 14 opendir(/proc) failed\n");
        return taken;
    });
}

/// Null on failure. Valid until the next call, or until the census is shared no longer.
FamilyCensus* census() {
    if (isShared && *ofTheCycle) {
        logNumberOfProcesses((*ofTheCycle)->census.records.size());
        return &**ofTheCycle;
    }
    auto taken = newCensus();
    if (!taken)
        return nullptr;
    ofTheCycle->emplace(FamilyCensus{std::move(*taken)});
    return &**ofTheCycle;
}

/// The indices of the longest report's records, the largest first; of equal ones the first in the census.
std::vector<std::size_t> largest(const Report& report, const std::vector<Record>& records) {
    std::vector<std::size_t> indices(records.size());
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    const auto shown = static_cast<std::ptrdiff_t>(std::min(records.size(), longestReport));
    std::partial_sort(indices.begin(), indices.begin() + shown, indices.end(),
                      [&](std::size_t first, std::size_t second) {
                          const int order = report.compare(records[first], records[second]);
                          return order != 0 ? order < 0 : first < second;
                      });
    indices.resize(static_cast<std::size_t>(shown));
    return indices;
}

/// The name fit to be shown on a terminal and to stay on its line: control characters, those of two bytes
/// included, become "?".
std::string shown(std::string_view name) {
    std::string text;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        const auto next = static_cast<unsigned char>(i + 1 < name.size() ? name[i + 1] : 0);
        const bool wide = byte == 0xC2 && next >= 0x80 && next <= 0x9F;
        text += byte < 0x20 || byte == 0x7F || wide ? '?' : name[i];
        i += wide ? 1 : 0;
    }
    return text;
}

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (std::string_view part : parts)
        text += part;
    return text;
}

/// False when the entry does not fit whole; the text is then as it was.
bool append(CulpritText* culpritText, const std::string& entry) {
    const std::size_t length = ::strnlen(culpritText->text, culpritTextSize);
    if (length + entry.size() >= culpritTextSize)
        return false;
    std::memcpy(culpritText->text + length, entry.c_str(), entry.size() + 1);
    return true;
}

/// Logs the largest records of a census, appends them to the culprit text; the text of the culprit file.
std::string writeReport(const Report& report, const std::vector<Record>& records, CulpritText* culpritText) {
    DEBUGMSG("%s", report.heading);
    std::string file = report.heading;
    bool fits = culpritText != nullptr && culpritText->text != nullptr;
    for (const std::size_t i : largest(report, records)) {
        if (records[i].pid < 0)
            continue;
        const std::string name = shown(records[i].name.view());
        const std::string pid = std::to_string(records[i].pid);
        const std::string measure = std::to_string(records[i].*report.measure);
        const std::string tail = joined({pid, " \t", report.label, measure, report.unit, "\n"});
        DEBUGMSG("\t(%s%s%s", name.c_str(), report.logSeparator, tail.c_str());
        file += joined({"\t(", name, fileSeparator, tail});
        fits = fits && append(culpritText, joined({" ", name, "(", pid, ")", measure}));
    }
    return file;
}

int diagnoseOne(const Report& report, CulpritText* culpritText) {
    if (pResourceClasp == nullptr)
        return -1;
    const std::string path = pResourceClasp->DataHomeDirectory + report.displayName + ".cul";
    if (!guarded(" LX_DAQ_Subs diagnose() fopen(" + path + ", w)", [&] { return canHoldReport(path); }))
        return -1;
    FamilyCensus* taken = census();
    if (taken == nullptr)
        return -1;
    std::vector<Record>& records = taken->census.records;
    const std::int64_t descriptors = taken->census.totalNumFDs;
    if (report.measure == &Record::numFDs)
        DEBUGMSG("totalnumFDs=%d, remaining = %d\n", clampToInt32(descriptors),
                 clampToInt32(systemDescriptors - descriptors));
    if (report.measure == &Record::immediatechildren && !taken->childrenAreCounted) {
        calculateimmediatechildren(static_cast<std::int32_t>(records.size()), records.data());
        taken->childrenAreCounted = true;
    }
    // Made anew every cycle: not worth waiting for the disk.
    if (replaceWholeFile(path, writeReport(report, records, culpritText), Synchronise::no))
        return 1;
    logCannotWrite(path);
    return -1;
}

} // namespace

SharedCensus::SharedCensus() {
    ofTheCycle->reset();
    isShared = true;
}

SharedCensus::~SharedCensus() {
    isShared = false;
    ofTheCycle->reset();
}

std::vector<ReportedResource> reportedResources() {
    std::vector<ReportedResource> found;
    for (const Report& report : reports)
        found.push_back({report.displayName, report.measureName, report.words});
    return found;
}

int diagnose(Link* pLink, CulpritText* culpritText) {
    try {
        if (pLink == nullptr) {
            DEBUGMSG("diagnose: invalid argument NULL pLink\n");
            return -1;
        }
        const Report* report = reportOf(*pLink);
        return report == nullptr ? 1 : diagnoseOne(*report, culpritText);
    } catch (...) {
        // No memory left even to log or to report: this cycle goes without its culprits.
        return -1;
    }
}

int isw2k() {
    return 0;
}

} // namespace obrin
