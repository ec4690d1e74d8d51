#include "diagnosis/processCensus.h"

#include "agent/debugLog.h"
#include "support/handles.h"
#include "support/systemPaths.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <linux/magic.h>
#include <string>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace obrin {
namespace {

using Record = ProcessResourceInformation;

constexpr std::size_t longestProcessText = std::size_t{1} << 20;

Descriptor openIn(int directory, const char* name, int flags) {
    int fd = -1;
    do {
        fd = ::openat(directory, name, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    return Descriptor(fd);
}

/// Files of process directories. The room for their text is kept from process to process.
class ProcessFiles {
public:
    /// The beginning of a file, in one reading: all of stat and statm. Nothing when it cannot be read.
    std::optional<std::string_view> beginning(int process, const char* name) {
        const Descriptor file = openIn(process, name, O_RDONLY);
        ssize_t got = -1;
        while (file && (got = ::read(file.get(), block_, sizeof block_)) < 0 && errno == EINTR) {
            // again
        }
        if (got < 0)
            return std::nullopt;
        return std::string_view(block_, static_cast<std::size_t>(got));
    }

    /// All of a file.
    std::optional<std::string_view> whole(int process, const char* name) {
        const Descriptor file = openIn(process, name, O_RDONLY);
        if (!file)
            return std::nullopt;
        readRest(file, longestProcessText, &text_);
        return text_;
    }

private:
    char block_[4096];
    std::string text_;
};

/// The number behind blanks at the front of a text, which is taken from it.
template <class Number>
std::optional<Number> takeNumber(std::string_view* text) {
    const std::size_t begin = std::min(text->find_first_not_of(" \n"), text->size());
    Number number = 0;
    const auto [end, error] = std::from_chars(text->data() + begin, text->data() + text->size(), number);
    text->remove_prefix(static_cast<std::size_t>(end - text->data()));
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

bool isProcess(const char* entry) {
    std::string_view text(entry);
    return takeNumber<std::int64_t>(&text).value_or(0) != 0;
}

std::int32_t countEntries(int directory, const char* name) {
    Descriptor opened = openIn(directory, name, O_RDONLY | O_DIRECTORY);
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
constexpr std::int64_t mostKilobytes = std::numeric_limits<std::int64_t>::max() / 2;

std::int64_t kilobytes(std::int64_t value) {
    return std::clamp(value, -mostKilobytes, mostKilobytes);
}

std::int32_t megabytes(std::int64_t kB) {
    return clampToInt32(kB / 1024);
}

/// Whether the kernel tells the number of a process's descriptors as the size of their directory (since 6.2).
/// Found out on the own process; a moment in which another thread opens a file is no proof of the contrary.
bool descriptorsAreCounted(int proc) {
    static std::atomic<bool> known = false;
    struct statfs system = {};
    if (::fstatfs(proc, &system) != 0 || system.f_type != PROC_SUPER_MAGIC)
        return false;
    if (known)
        return true;
    const Descriptor self = openIn(proc, "self", O_PATH | O_DIRECTORY);
    struct stat directory = {};
    if (!self || ::fstatat(self.get(), "fd", &directory, 0) != 0)
        return false;
    constexpr std::int32_t besides = 3; // ".", ".." and the descriptor that the directory is read by
    known = directory.st_size > 0 && countEntries(self.get(), "fd") == directory.st_size + besides;
    return known;
}

/// What can be read of a descriptor directory, without opening it; 0 when this user may not open it.
std::int32_t countedDescriptors(int process, uid_t user) {
    struct stat directory;
    if (::fstatat(process, "fd", &directory, 0) != 0 ||
        (directory.st_uid != user && ::faccessat(process, "fd", R_OK, AT_EACCESS) != 0))
        return 0;
    constexpr std::int64_t dots = 2;
    return clampToInt32(directory.st_size + dots);
}

/// Reads the records of one census, one after the other.
class CensusTaker {
public:
    explicit CensusTaker(int proc) : proc_(proc), descriptorsAreCounted_(descriptorsAreCounted(proc)) {}

    void fillRecord(const char* entry, Record* record) {
        const Descriptor process = openIn(proc_, entry, O_PATH | O_DIRECTORY);
        const auto stat = process ? files_.beginning(process.get(), "stat") : std::nullopt;
        // A process that dies between the opening and the reading leaves an open file without text.
        if (!stat || !readStatText(*stat, record)) {
            record->pid = -1;
            return;
        }
        const auto parent = parentInStatText(*stat);
        record->numFDs = descriptorsAreCounted_ ? countedDescriptors(process.get(), user_)
                                                : countEntries(process.get(), "fd");
        readMemory(process.get(), parent, record);
        record->vmsize = megabytes(memory_.VmSize);
        record->vmrss = megabytes(memory_.VmRSS);
    }

    void fillGuarded(const char* entry, Record* record) {
        try {
            fillRecord(entry, record);
        } catch (const std::exception& problem) {
            record->pid = -1;
            DEBUGMSG("\n LX_DAQ_Subs diagnose() fopen(/proc/%s/stat) ignoring %s\n", entry, problem.what());
        } catch (...) {
            record->pid = -1;
            DEBUGMSG("\n LX_DAQ_Subs diagnose() fopen(/proc/%s/stat) ignoring unknown exception\n", entry);
        }
        record->swap = megabytes(memory_.VmSize - memory_.VmRSS);
    }

private:
    /// The figures of the status file, which costs more than all the others: where statm has them, from
    /// there. Those of stat are rougher (seen on Linux 6.18).
    void readMemory(int process, std::optional<std::int32_t> parent, Record* record) {
        const auto statm = parent ? files_.beginning(process, "statm") : std::nullopt;
        if (statm && readStatmText(*statm, &memory_))
            record->ppid = *parent;
        else if (const auto status = files_.whole(process, "status"))
            readStatusText(*status, record, &memory_);
    }

    int proc_;
    bool descriptorsAreCounted_;
    uid_t user_ = ::geteuid();
    ProcessFiles files_{};
    RunningMemory memory_;
};

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
    const auto pid = takeNumber<std::int32_t>(&text);
    if (!pid)
        return false;
    record->pid = *pid;
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.starts_with('('))
        record->name.assign(text.substr(1, text.find_first_of(" )") - 1));
    return true;
}

std::optional<std::int32_t> parentInStatText(std::string_view text) {
    constexpr std::size_t toParent = 4;          // ") S "
    const std::size_t nameEnd = text.rfind(')'); // the name may hold others
    if (nameEnd == std::string_view::npos || nameEnd + toParent >= text.size())
        return std::nullopt;
    text.remove_prefix(nameEnd + toParent);
    return takeNumber<std::int32_t>(&text);
}

bool readStatmText(std::string_view text, RunningMemory* memory) {
    static const std::int64_t pageKilobytes = ::sysconf(_SC_PAGESIZE) / 1024;
    const auto size = takeNumber<std::int64_t>(&text);
    const auto resident = takeNumber<std::int64_t>(&text);
    if (!size || !resident)
        return false;
    const auto ofPages = [](std::int64_t pages) {
        std::int64_t all = 0;
        return kilobytes(__builtin_mul_overflow(pages, pageKilobytes, &all) ? mostKilobytes : all);
    };
    if (*size != 0)
        *memory = {ofPages(*size), ofPages(*resident)};
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

std::optional<std::vector<std::string>> listProcesses() {
    const Directory proc(::opendir(systemPaths().proc.c_str()));
    if (!proc)
        return std::nullopt;
    std::vector<std::string> entries;
    while (const dirent* entry = ::readdir(proc.get()))
        if (isProcess(entry->d_name))
            entries.emplace_back(entry->d_name);
    return entries;
}

std::optional<Census> takeCensus(const std::vector<std::string>& processes) {
    Census census;
    census.records.resize(processes.size());
    const Directory proc(::opendir(systemPaths().proc.c_str()));
    if (!proc)
        return std::nullopt;
    CensusTaker taker(::dirfd(proc.get()));
    for (std::size_t i = 0; i < processes.size(); ++i) {
        taker.fillGuarded(processes[i].c_str(), &census.records[i]);
        census.totalNumFDs += census.records[i].numFDs;
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
