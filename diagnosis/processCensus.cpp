#include "diagnosis/processCensus.h"

#include "agent/debugLog.h"
#include "support/handles.h"
#include "support/systemPaths.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace obrin {
namespace {

using Record = ProcessResourceInformation;

constexpr std::size_t longestProcessText = std::size_t{1} << 20;

bool isProcess(const char* entry) {
    return TextScanner(entry).integer().value_or(0) != 0;
}

Descriptor openIn(int directory, const char* name, int flags) {
    int fd = -1;
    do {
        fd = ::openat(directory, name, flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    return Descriptor(fd);
}

/// Reads a file of a process directory into `text`. False when it cannot be opened.
bool readIn(int directory, const char* name, std::string& text) {
    const Descriptor file = openIn(directory, name, 0);
    if (file)
        readRest(file, longestProcessText, &text);
    return static_cast<bool>(file);
}

std::int32_t countEntries(int directory, const char* name) {
    Descriptor opened = openIn(directory, name, O_DIRECTORY);
    Directory entries(opened ? ::fdopendir(opened.get()) : nullptr);
    if (!entries)
        return 0;
    opened.release();
    std::int32_t count = 0;
    while (::readdir(entries.get()) != nullptr)
        ++count;
    return count;
}

/// Half the range, so that the difference of two figures exists whatever the text says.
std::int64_t kilobytes(std::int64_t value) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() / 2;
    return std::clamp(value, -most, most);
}

std::int32_t megabytes(std::int64_t kB) {
    return clampToInt32(kB / 1024);
}

/// `text` is room for the file texts, kept from process to process.
void fillRecord(int proc, const char* entry, std::string& text, Record* record, RunningMemory* memory) {
    const Descriptor process = openIn(proc, entry, O_DIRECTORY);
    // A process that dies between the opening and the reading leaves an open file without text.
    if (!process || !readIn(process.get(), "stat", text) || !readStatText(text, record)) {
        record->pid = -1;
        return;
    }
    record->numFDs = countEntries(process.get(), "fd");
    if (readIn(process.get(), "status", text))
        readStatusText(text, record, memory);
    record->vmsize = megabytes(memory->VmSize);
    record->vmrss = megabytes(memory->VmRSS);
}

void fillGuarded(int proc, const char* entry, std::string& text, Record* record, RunningMemory* memory) {
    try {
        fillRecord(proc, entry, text, record, memory);
    } catch (const std::exception& problem) {
        record->pid = -1;
        DEBUGMSG("\n LX_DAQ_Subs diagnose() fopen(/proc/%s/stat) ignoring %s\n", entry, problem.what());
    } catch (...) {
        record->pid = -1;
        DEBUGMSG("\n LX_DAQ_Subs diagnose() fopen(/proc/%s/stat) ignoring unknown exception\n", entry);
    }
    record->swap = megabytes(memory->VmSize - memory->VmRSS);
}

int descending(std::int32_t first, std::int32_t second) {
    return first > second ? -1 : first < second ? 1 : 0;
}

/// The records that share a ppid: a run of the table of children.
struct Siblings {
    std::int32_t begin = 0;
    std::int32_t size = 0;
    std::int32_t unfinished = 0; ///< members whose descendants are not counted yet
    std::int64_t descendants = 0;
    std::vector<std::int32_t> parents; ///< records whose pid it is
};

using Families = std::unordered_map<std::int32_t, Siblings>;

Families gatherFamilies(std::int32_t n, Record* census) {
    Families families;
    for (std::int32_t i = 0; i < n; ++i)
        ++families[census[i].ppid].size;
    std::int32_t begin = 0;
    for (auto& [ppid, siblings] : families) {
        siblings.begin = begin;
        begin += siblings.size;
        siblings.unfinished = siblings.size;
    }
    for (std::int32_t i = 0; i < n; ++i) {
        if (auto found = families.find(census[i].pid); found != families.end())
            found->second.parents.push_back(i);
    }
    return families;
}

void linkFamilies(std::int32_t n, Record* census, Families& families) {
    const auto table = std::make_shared<Record*[]>(static_cast<std::size_t>(n));
    std::unordered_map<std::int32_t, std::int32_t> next;
    for (std::int32_t j = 0; j < n; ++j) {
        Siblings& siblings = families[census[j].ppid];
        table[siblings.begin + next[census[j].ppid]++] = &census[j];
        if (!siblings.parents.empty())
            census[j].parent = &census[siblings.parents.back()];
    }
    for (auto& [ppid, siblings] : families) {
        for (std::int32_t parent : siblings.parents)
            census[parent].children = {{table, table.get() + siblings.begin}, siblings.size};
    }
}

/// Counts from the leaves upward. A record in a circle of parents, or above one, stays without a count (-1).
std::vector<std::int64_t> countDescendants(std::int32_t n, const Record* census, Families& families) {
    std::vector<std::int64_t> counts(static_cast<std::size_t>(n), -1);
    std::vector<std::int32_t> ready;
    for (std::int32_t i = 0; i < n; ++i) {
        if (census[i].children.size == 0)
            ready.push_back(i);
    }
    while (!ready.empty()) {
        const std::int32_t i = ready.back();
        ready.pop_back();
        const auto own = families.find(census[i].pid);
        std::int64_t& count = counts[static_cast<std::size_t>(i)];
        count = census[i].immediatechildren + (own == families.end() ? 0 : own->second.descendants);
        Siblings& siblings = families[census[i].ppid];
        siblings.descendants += count;
        if (--siblings.unfinished == 0)
            ready.insert(ready.end(), siblings.parents.begin(), siblings.parents.end());
    }
    return counts;
}

} // namespace

bool readStatText(std::string_view text, Record* record) {
    TextScanner scanner(text);
    const std::optional<std::int32_t> pid = scanner.integer32();
    if (!pid)
        return false;
    record->pid = *pid;
    scanner.skipWhiteSpace();
    if (scanner.character() == '(')
        record->name.assign(scanner.rest().substr(0, scanner.rest().find_first_of(" )")));
    return true;
}

void readStatusText(std::string_view text, Record* record, RunningMemory* memory) {
    TextScanner scanner(text);
    scanner.word();
    while (const auto word = scanner.word()) {
        if (*word == "PPid:")
            record->ppid = scanner.integer32().value_or(record->ppid);
        else if (*word == "VmSize:")
            memory->VmSize = kilobytes(scanner.integer().value_or(memory->VmSize));
        else if (*word == "VmRSS:")
            memory->VmRSS = kilobytes(scanner.integer().value_or(memory->VmRSS));
    }
}

std::optional<std::size_t> countProcesses() {
    const Directory proc(::opendir(systemPaths().proc.c_str()));
    if (!proc)
        return std::nullopt;
    std::size_t count = 0;
    while (const dirent* entry = ::readdir(proc.get()))
        count += isProcess(entry->d_name) ? 1U : 0U;
    return count;
}

std::optional<Census> takeCensus(std::size_t most) {
    Census census;
    census.records.reserve(most);
    const Directory proc(::opendir(systemPaths().proc.c_str()));
    if (!proc)
        return std::nullopt;
    RunningMemory memory;
    std::string text;
    while (census.records.size() < most) {
        const dirent* entry = ::readdir(proc.get());
        if (entry == nullptr)
            break;
        if (!isProcess(entry->d_name))
            continue;
        Record& record = census.records.emplace_back();
        fillGuarded(::dirfd(proc.get()), entry->d_name, text, &record, &memory);
        census.totalNumFDs += record.numFDs;
    }
    return census;
}

int comparevmsize(const Record& first, const Record& second) {
    return descending(first.vmsize, second.vmsize);
}

int comparevmrss(const Record& first, const Record& second) {
    return descending(first.vmrss, second.vmrss);
}

int comparenumFDs(const Record& first, const Record& second) {
    return descending(first.numFDs, second.numFDs);
}

int compareswap(const Record& first, const Record& second) {
    return descending(first.swap, second.swap);
}

int compareimmediatechildren(const Record& first, const Record& second) {
    return descending(first.immediatechildren, second.immediatechildren);
}

int comparenumchildren(const Record& first, const Record& second) {
    return descending(first.numchildren, second.numchildren);
}

void calculateimmediatechildren(std::int32_t n, Record* census) {
    std::unordered_map<std::int32_t, std::int64_t> children;
    for (std::int32_t j = 0; j < n; ++j)
        ++children[census[j].ppid];
    for (std::int32_t i = 0; i < n; ++i) {
        if (const auto found = children.find(census[i].pid); found != children.end())
            census[i].immediatechildren = clampToInt32(census[i].immediatechildren + found->second);
    }
}

void calculatepenultimatechildren(std::int32_t n, Record* census) {
    if (n <= 0)
        return;
    calculateimmediatechildren(n, census);
    for (std::int32_t i = 0; i < n; ++i)
        DEBUGMSG("i %d allocing %d pointers\n", i, census[i].immediatechildren);
    Families families = gatherFamilies(n, census);
    linkFamilies(n, census, families);
    const std::vector<std::int64_t> counts = countDescendants(n, census, families);
    for (std::int32_t i = 0; i < n; ++i) {
        const std::int64_t count = counts[static_cast<std::size_t>(i)];
        if (census[i].numchildren == 0)
            census[i].numchildren = count < 0 ? calci(census[i]) : clampToInt32(count);
    }
}

std::int32_t calci(const Record& record) {
    std::unordered_set<const Record*> met{&record};
    std::vector<const Record*> waiting{&record};
    std::int64_t count = 0;
    while (!waiting.empty()) {
        const Record* next = waiting.back();
        waiting.pop_back();
        count += next->immediatechildren;
        for (const Record* child : next->children) {
            if (met.insert(child).second)
                waiting.push_back(child);
        }
    }
    return clampToInt32(count);
}

void showtop(std::int32_t n, const Record* census) {
    for (std::int32_t i = 0; i < n; ++i) {
        const Record& one = census[i];
        if (one.pid >= 0)
            DEBUGMSG("%d (%s) PID %d ppid %d #FDs %d vmsize %d vmrss %d swap %d #chil %d\n", i,
                     one.name.c_str(), one.pid, one.ppid, one.numFDs, one.vmsize, one.vmrss, one.swap,
                     one.numchildren);
    }
}

} // namespace obrin
