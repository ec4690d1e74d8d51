#include "diagnosis/processCensus.h"

#include "support/childProcess.h"
#include "tests/diagnosis/processTree.h"
#include "tests/support/often.h"
#include "tests/support/sanitizers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>

namespace obrin {
namespace {

using namespace test;
using Record = ProcessResourceInformation;

std::string nameIn(std::string_view stat) {
    Record record;
    EXPECT_TRUE(readStatText(stat, &record));
    return record.name.c_str();
}

std::vector<Record> censusOf(const std::vector<std::pair<int, int>>& pidsAndParents) {
    std::vector<Record> records(pidsAndParents.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i].pid = pidsAndParents[i].first;
        records[i].ppid = pidsAndParents[i].second;
    }
    return records;
}

std::int32_t sizeOf(const std::vector<Record>& records) {
    return static_cast<std::int32_t>(records.size());
}

/// Any records with parents among them, none, and beyond; some pids and ppids twice, negative and zero.
std::vector<Record> randomCensus(std::size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> pid(-1, static_cast<int>(n));
    std::vector<Record> records(n);
    for (Record& record : records) {
        record.pid = pid(random);
        record.ppid = pid(random);
        record.immediatechildren = pid(random) % 3;
    }
    return records;
}

std::optional<Census> censusOfAll() {
    const auto processes = listProcesses();
    return processes ? takeCensus(*processes) : std::nullopt;
}

std::map<int, Record> byPid(const Census& census) {
    std::map<int, Record> records;
    for (const Record& record : census.records)
        records[record.pid] = record;
    return records;
}

TEST(StatText, ProcessWhoseNameContainsABlankAppearsUnderItsFirstWordOnly) {
    EXPECT_EQ(nameIn("12 (tmux: server) S 1"), "tmux:");
}

TEST(StatText, NameEndsAtTheFirstParenthesisThatCloses) {
    EXPECT_EQ(nameIn("12 (a)b) S 1"), "a");
    EXPECT_EQ(nameIn("12 ((sd-pam)) S 1"), "(sd-pam");
    EXPECT_EQ(nameIn("12 ((((() S 1"), "((((");
}

TEST(StatText, NameThatBeginsWithABlankOrParenthesisIsEmpty) {
    EXPECT_EQ(nameIn("12 ( x) S 1"), "");
    EXPECT_EQ(nameIn("12 ()) S 1"), "");
    EXPECT_EQ(nameIn("12 () S 1"), "");
}

TEST(StatText, AnyOtherBytesAreTheName) {
    EXPECT_EQ(nameIn("12 (%n%s\n\x1b\xff) S 1"), "%n%s\n\x1b\xff");
}

TEST(StatText, LongNameIsCutAtItsField) {
    EXPECT_EQ(nameIn("12 (" + std::string(5000, 'x') + ") S"), std::string(255, 'x'));
}

TEST(StatText, CutTextGivesWhatIsThereAndOneWithoutPidNothing) {
    EXPECT_EQ(nameIn("12 (ab"), "ab");
    EXPECT_EQ(nameIn("12 ("), "");
    EXPECT_EQ(nameIn("12"), "");
    Record record;
    record.pid = 5;
    for (const char* text : {"", "  ", "(x) 12", "garbage", "-"})
        EXPECT_FALSE(readStatText(text, &record)) << text;
    EXPECT_EQ(record.pid, 5);
}

TEST(StatText, ParentStandsBehindTheNameWhateverIsInIt) {
    EXPECT_EQ(parentInStatText("12 (x) S 7 12 12"), 7);
    EXPECT_EQ(parentInStatText("12 (a) S 5 (b)) R 7 12"), 7);
    EXPECT_EQ(parentInStatText("12 (x) S 0 0"), 0);
    for (const char* text : {"", "12", "12 (x", "12 (x)", "12 (x) S", "12 (x) S ", "12 (x) S x"})
        EXPECT_FALSE(parentInStatText(text)) << text;
}

TEST(StatmText, HoldsPagesAndAProcessWithoutMemoryLeavesTheOldFigures) {
    const std::int64_t page = ::sysconf(_SC_PAGESIZE) / 1024;
    RunningMemory memory{11, 12};
    EXPECT_TRUE(readStatmText("0 0 0 0 0 0 0\n", &memory));
    EXPECT_EQ(memory.VmSize, 11);
    EXPECT_EQ(memory.VmRSS, 12);
    EXPECT_TRUE(readStatmText("300 0 7\n", &memory));
    EXPECT_EQ(memory.VmSize, 300 * page);
    EXPECT_EQ(memory.VmRSS, 0);
    for (const char* text : {"", "\n", "300", "x 3", "300 x", "99999999999999999999 1"})
        EXPECT_FALSE(readStatmText(text, &memory)) << text;
    EXPECT_TRUE(readStatmText("9223372036854775807 1", &memory));
    EXPECT_GT(memory.VmSize - memory.VmRSS, 0);
}

TEST(StatusText, FirstWordIsSkippedAndTheRestReadWordByWord) {
    Record record;
    RunningMemory memory;
    readStatusText("PPid: 7 Name: x PPid: 9 VmSize:\t 2048 kB VmRSS: 1024 kB", &record, &memory);
    EXPECT_EQ(record.ppid, 9);
    EXPECT_EQ(memory.VmSize, 2048);
    EXPECT_EQ(memory.VmRSS, 1024);
    readStatusText("PPid: 8", &record, &memory);
    EXPECT_EQ(record.ppid, 9);
}

TEST(StatusText, WithoutFiguresEverythingStays) {
    Record record;
    record.ppid = 3;
    RunningMemory memory{11, 12};
    for (const char* text : {"", "Name:", "Name:\tkthreadd\nPPid:", "Name: x PPid: y VmSize: z VmRSS: -"})
        readStatusText(text, &record, &memory);
    EXPECT_EQ(record.ppid, 3);
    EXPECT_EQ(memory.VmSize, 11);
    EXPECT_EQ(memory.VmRSS, 12);
}

TEST(StatusText, FiguresPast32BitsAreKeptAndAbsurdOnesHurtNothing) {
    Record record;
    RunningMemory memory;
    readStatusText("Name: x VmSize: 8589934592 kB VmRSS: 4294967296 kB", &record, &memory);
    EXPECT_EQ(memory.VmSize - memory.VmRSS, 4294967296);
    readStatusText(
        "Name: x PPid: 99999999999999999999 VmSize: 99999999999999999999 VmRSS: -99999999999999999999",
        &record, &memory);
    EXPECT_EQ(record.ppid, std::numeric_limits<std::int32_t>::max());
    EXPECT_GT(memory.VmSize - memory.VmRSS, 0);
}

TEST(Census, ReadsEveryProcessOfATreeAndNothingElse) {
    const SystemPaths before = systemPaths();
    systemPaths().proc = std::string(LUMETRA_FIXTURES) + "/census-small/proc";
    EXPECT_EQ(listProcesses()->size(), 6U);
    const auto census = censusOfAll();
    systemPaths() = before;
    ASSERT_TRUE(census);
    const auto records = byPid(*census);
    ASSERT_EQ(records.size(), 6U);
    const Record& java = records.at(20);
    EXPECT_EQ(java.name, "java");
    EXPECT_EQ(java.ppid, 1);
    EXPECT_EQ(java.numFDs, 42);
    EXPECT_EQ(java.vmsize, 6144);
    EXPECT_EQ(java.vmrss, 210);
    EXPECT_EQ(java.swap, 5934);
    EXPECT_EQ(records.at(30).name, "tool");
    EXPECT_EQ(records.at(30).vmrss, 1) << "megabytes are truncated";
    EXPECT_EQ(records.at(31).numFDs, 0) << "no descriptor directory";
    EXPECT_EQ(census->totalNumFDs, 9 + 42 + 11 + 5 + 0 + 6);
}

TEST(Census, ProcessWithThreeOpenDescriptorsCountsFive) {
    ProcessTree tree;
    tree.add("7", {statOf(7, "x"), statusOf("x", 1), 3});
    ASSERT_EQ(censusOfAll()->records.size(), 1U);
    EXPECT_EQ(censusOfAll()->records[0].numFDs, 5);
}

TEST(Census, RunningProcessWithThreeOpenDescriptorsCountsFive) {
    WaitingChild child([] {
        for (int fd = 3; fd < 1024; ++fd)
            ::close(fd);
    });
    ProcessTree tree;
    tree.adopt(child.pid());
    ASSERT_EQ(censusOfAll()->records.size(), 1U);
    EXPECT_EQ(censusOfAll()->records[0].numFDs, 5);
}

TEST(Census, DescriptorsThatTheKernelCountsAreThoseOfTheListing) {
    for (const int open : {0, 3, 70}) {
        const WaitingChild child([open] {
            for (int fd = 0; fd < 1024; ++fd)
                ::close(fd);
            for (int fd = 0; fd < open; ++fd)
                static_cast<void>(::open("/dev/null", O_RDONLY));
        });
        const std::string process = std::to_string(child.pid());
        EXPECT_EQ(takeCensus({process})->records[0].numFDs, open + 2);
        ProcessTree tree; // whose own directory is none of the kernel's: it is listed
        tree.adopt(child.pid());
        EXPECT_EQ(takeCensus({process})->records[0].numFDs, open + 2);
    }
}

TEST(Census, FiguresAreThoseOfTheStatusFile) {
    const WaitingChild child([] { new std::vector<char>(std::size_t{20} << 20, 'x'); });
    const std::string process = std::to_string(child.pid());
    const auto fast = takeCensus({process})->records[0];
    Record plain;
    RunningMemory memory;
    readStatusText(readFile("/proc/" + process + "/status"), &plain, &memory);
    EXPECT_EQ(fast.ppid, plain.ppid);
    EXPECT_EQ(fast.ppid, ::getpid());
    EXPECT_EQ(fast.vmsize, memory.VmSize / 1024);
    EXPECT_EQ(fast.vmrss, memory.VmRSS / 1024);
    EXPECT_GE(fast.vmrss, 20);
}

TEST(Census, WithoutStatmTheStatusFileServes) {
    ProcessTree tree;
    tree.add("5", {statOf(5, "x"), statusOf("x", 4, 4096, 2048), 0});
    EXPECT_EQ(censusOfAll()->records[0].vmsize, 4);
    writeFile(tree.path() + "/5/statm", "2560 1280 3 4 5 6 7\n");
    const Record record = censusOfAll()->records[0];
    EXPECT_EQ(record.vmsize, 2560 * ::sysconf(_SC_PAGESIZE) / 1024 / 1024);
    EXPECT_EQ(record.vmrss, 1280 * ::sysconf(_SC_PAGESIZE) / 1024 / 1024);
    EXPECT_EQ(record.ppid, 1) << "the parent of the stat file";
}

TEST(Census, TheStatusFileServesWhereStatOrStatmIsCut) {
    ProcessTree tree;
    tree.add("5", {"5 (x", statusOf("x", 4, 4096, 2048), 0});
    writeFile(tree.path() + "/5/statm", "2560 1280 3 4 5 6 7\n");
    EXPECT_EQ(censusOfAll()->records[0].vmsize, 4);
    EXPECT_EQ(censusOfAll()->records[0].ppid, 4);
    tree.add("5", {statOf(5, "x"), statusOf("x", 4, 4096, 2048), 0});
    writeFile(tree.path() + "/5/statm", "2560");
    EXPECT_EQ(censusOfAll()->records[0].vmsize, 4);
    EXPECT_EQ(censusOfAll()->records[0].ppid, 4);
}

TEST(Census, KernelThreadListedRightAfterAProcessOfOneGigabyteShowsThatProcessesFigures) {
    ProcessTree tree;
    tree.add("101", {});
    tree.add("102", {});
    const auto order = tree.order();
    tree.add(order[0], {statOf(101, "big"), statusOf("big", 1, 1048576, 524288), 0});
    tree.add(order[1], {statOf(102, "kthreadd"), statusOf("kthreadd", 0), 0});
    const auto census = censusOfAll();
    ASSERT_EQ(census->records.size(), 2U);
    const Record& thread = census->records[1];
    EXPECT_EQ(thread.name, "kthreadd");
    EXPECT_EQ(thread.ppid, 0);
    EXPECT_EQ(thread.vmsize, 1024);
    EXPECT_EQ(thread.vmrss, 512);
    EXPECT_EQ(thread.swap, 512);
}

TEST(Census, ProcessThatVanishesAtAnyStepIsMarkedOrInheritsItsPredecessorsFigures) {
    ProcessTree tree;
    for (int entry = 1; entry <= 6; ++entry)
        tree.add(std::to_string(entry), {});
    const auto order = tree.order();
    const std::string big = statusOf("big", 9, 4096, 1024);
    tree.add(order[0], {statOf(1, "big"), big, 1});
    tree.add(order[1], {"", statusOf("nostat", 9, 8192, 8192), 2});
    tree.add(order[2], {statOf(3, "nostatus"), "", 4});
    tree.add(order[3], {statOf(4, "nofd"), statusOf("nofd", 9, 2048, 2048), -1});
    std::filesystem::remove(tree.path() + "/" + order[4]);
    std::filesystem::create_symlink("nowhere", tree.path() + "/" + order[4]);
    tree.add(order[5], {statOf(6, "last"), big, 0});
    writeFile(tree.path() + "/" + order[5] + "/stat", "");
    std::map<std::string, Record> found;
    std::size_t marked = 0;
    const auto census = censusOfAll();
    for (const Record& record : census->records) {
        marked += record.pid == -1 ? 1U : 0U;
        found[record.name.c_str()] = record;
    }
    EXPECT_EQ(found.size(), 4U);
    EXPECT_EQ(marked, 3U) << "no stat file, no directory, a stat file without text";
    EXPECT_EQ(found["nofd"].numFDs, 0);
    EXPECT_EQ(found["nofd"].vmrss, 2);
    EXPECT_EQ(found["nostatus"].numFDs, 6);
    EXPECT_EQ(found["nostatus"].ppid, 0);
    EXPECT_EQ(found["nostatus"].vmsize, 4);
    EXPECT_EQ(found["nostatus"].vmrss, 1);
    EXPECT_EQ(found["nostatus"].swap, 3);
}

TEST(Census, SwapFigureOfAMarkedRecordIsInheritedAndItsOtherFiguresAreZero) {
    ProcessTree tree;
    tree.add("1", {});
    tree.add("2", {});
    const auto order = tree.order();
    tree.add(order[0], {statOf(1, "big"), statusOf("big", 1, 6144, 1024), 3});
    const auto census = censusOfAll();
    const Record& gone = census->records[1];
    EXPECT_EQ(gone.pid, -1);
    EXPECT_EQ(gone.swap, 5);
    EXPECT_EQ(gone.vmsize + gone.vmrss + gone.numFDs, 0);
}

TEST(Census, ProcessesStartedBetweenThePassesAreLeftOutAndEndedOnesLeaveAMarkedRecord) {
    ProcessTree tree;
    for (int pid = 1; pid <= 5; ++pid)
        tree.add(std::to_string(pid), {statOf(pid, "x"), statusOf("x", 1), 0});
    EXPECT_EQ(takeCensus({"2", "4"})->records.size(), 2U);
    const auto census = takeCensus({"1", "6", "3"});
    ASSERT_EQ(census->records.size(), 3U);
    EXPECT_EQ(census->records[1].pid, -1);
    EXPECT_EQ(census->records[2].pid, 3);
    EXPECT_EQ(takeCensus({})->records.size(), 0U);
}

TEST(Census, EntriesThatAreNoNumbersAreNoProcesses) {
    ProcessTree tree;
    for (const char* entry : {"self", "0", "00", "x12", "sys"})
        tree.add(entry, {});
    tree.add("12", {});
    EXPECT_EQ(listProcesses()->size(), 1U);
}

TEST(Census, MissingProcessDirectoryIsTold) {
    ProcessTree tree;
    systemPaths().proc = tree.path() + "/none";
    EXPECT_FALSE(listProcesses());
    EXPECT_FALSE(takeCensus({"10"}));
}

TEST(Census, HostileFilesInAProcessDirectoryAreReadAsText) {
    ProcessTree tree;
    tree.add("5", {statOf(5, "x"), std::string(100000, '\0') + " PPid: 4", -1});
    ASSERT_EQ(::mkfifo((tree.path() + "/5/fd").c_str(), 0600), 0);
    EXPECT_EQ(censusOfAll()->records[0].ppid, 4);
    EXPECT_EQ(censusOfAll()->records[0].numFDs, 0);
    tree.add("6", {"", "", 0});
    std::filesystem::create_directory(tree.path() + "/6/stat");
    EXPECT_EQ(byPid(*censusOfAll()).count(-1), 1U);
}

TEST(Census, DescriptorDirectoriesOfOthersThatAnUnprivilegedUserCannotReadCountZeroForThoseAlone) {
    if (::getuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    WaitingChild other([] {});
    const pid_t observer = ::fork();
    if (observer == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(10);
        ::prctl(PR_SET_DUMPABLE, 1); // else its own directories would belong to root
        const auto census = censusOfAll();
        if (!census)
            ::_exit(11);
        auto records = byPid(*census);
        const bool seen = records.count(other.pid()) == 1 && records.count(::getpid()) == 1;
        if (!seen || records[other.pid()].numFDs != 0 || records[other.pid()].ppid != ::getppid())
            ::_exit(12);
        ::_exit(records[::getpid()].numFDs >= 5 ? 0 : 13);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(observer, &status, 0), observer);
    EXPECT_EQ(status, 0);
}

/// What ps says of one process.
struct PsRow {
    int ppid = 0;
    long rss = 0;
    std::string name;
};

std::map<int, PsRow> runPs() {
    auto ps = ChildProcess::start({"/usr/bin/ps", {"ps", "-eo", "pid,ppid,rss,comm"}, {"LC_ALL=C"}, true});
    std::map<int, PsRow> rows;
    if (!ps)
        return rows;
    std::istringstream lines(ps->takeOutput(Clock::Moment::max(), 1 << 22));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        int pid = 0;
        PsRow row;
        words >> pid >> row.ppid >> row.rss >> std::ws;
        std::getline(words, row.name);
        if (pid != ps->pid())
            rows[pid] = row;
    }
    return rows;
}

TEST(Census, AgreesWithPsOnNamesParentsResidentSizesAndChildCounts) {
    if (!std::filesystem::exists("/usr/bin/ps"))
        GTEST_SKIP() << "ps is not installed";
    const auto grown = [](const char* name, std::size_t megabytes) {
        return [name, megabytes] {
            ::prctl(PR_SET_NAME, name);
            new std::vector<char>(megabytes << 20, 'x'); // for as long as the child waits
        };
    };
    const WaitingChild small(grown("small", 1));
    const WaitingChild large(grown("large", 40));
    const WaitingChild odd(grown("a-b.c/d:0", 10));
    const auto rows = runPs();
    const auto census = censusOfAll();
    ASSERT_TRUE(census);
    auto all = byPid(*census);
    std::vector<Record> family;
    for (const pid_t pid : {::getpid(), small.pid(), large.pid(), odd.pid()}) {
        ASSERT_TRUE(all.contains(pid) && rows.contains(pid)) << pid;
        family.push_back(all[pid]);
    }
    calculateimmediatechildren(sizeOf(family), family.data());
    EXPECT_EQ(family[0].immediatechildren, 3);
    for (const Record& record : family) {
        const PsRow& row = rows.at(record.pid);
        EXPECT_EQ(record.ppid, row.ppid);
        EXPECT_EQ(record.name.view(), row.name.substr(0, row.name.find_first_of(" )")));
        // The kernel gives resident sizes with a small error, differently in its different files.
        if (record.pid != ::getpid()) {
            EXPECT_LE(std::abs(record.vmrss - row.rss / 1024), 2) << row.name;
        }
    }
    EXPECT_GT(family[2].vmrss, family[1].vmrss);
}

TEST(Census, ReadsManyThousandProcesses) {
    const int count = often(1000, 30000);
    TemporaryDirectory kinds;
    for (int kind = 0; kind < 2; ++kind) {
        const std::string root = kinds.path(std::to_string(kind));
        std::filesystem::create_directories(root + "/fd");
        writeFile(root + "/stat", statOf(kind + 1, "kind"));
        writeFile(root + "/status", statusOf("kind", 1, 2048, 1024));
        for (int fd = 0; fd < 3; ++fd)
            writeFile(root + "/fd/" + std::to_string(fd), "");
    }
    ProcessTree tree;
    for (int pid = 1; pid <= count; ++pid)
        tree.link(std::to_string(pid), kinds.path(std::to_string(pid % 2)));
    const auto census = censusOfAll();
    ASSERT_TRUE(census);
    EXPECT_EQ(sizeOf(census->records), count);
    EXPECT_EQ(census->totalNumFDs, 5 * count);
}

const int crowd = often(1000, 30000);
constexpr int notAllowed = 77;

int idle(void*) {
    for (;;)
        ::pause();
}

/// First process of a process namespace of its own: fills it with processes that share its memory, and takes
/// a census. The namespace goes with it.
int censusOfACrowd(void*) {
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("proc", "/proc", "proc", 0, nullptr) != 0)
        return notAllowed;
    constexpr std::size_t stackSize = 1024;
    std::vector<char> stacks(stackSize * static_cast<std::size_t>(crowd) + 16);
    for (std::size_t i = 1; i <= static_cast<std::size_t>(crowd); ++i) {
        const int shared = CLONE_VM | CLONE_FS | CLONE_FILES | SIGCHLD;
        if (::clone(idle, stacks.data() + i * stackSize, shared, nullptr) < 0)
            return notAllowed;
    }
    std::optional<Census> census = censusOfAll();
    if (!census)
        return 1;
    calculateimmediatechildren(sizeOf(census->records), census->records.data());
    return sizeOf(census->records) == crowd + 1 && byPid(*census)[1].immediatechildren == crowd ? 0 : 2;
}

TEST(Census, OfManyThousandRunningProcesses) {
#if LUMETRA_UNDER_ASAN || LUMETRA_UNDER_TSAN
    GTEST_SKIP() << "thousands of processes that share one memory are too much for a sanitizer";
#endif
    std::vector<char> stack(std::size_t{1} << 20);
    const int flags = CLONE_NEWPID | CLONE_NEWNS | SIGCHLD;
    const pid_t first = ::clone(censusOfACrowd, stack.data() + stack.size(), flags, nullptr);
    if (first < 0)
        GTEST_SKIP() << "a process namespace needs root";
    int status = -1;
    ASSERT_EQ(::waitpid(first, &status, 0), first);
    if (WIFEXITED(status) && WEXITSTATUS(status) == notAllowed)
        GTEST_SKIP() << "this machine does not allow so many processes";
    EXPECT_EQ(status, 0);
}

TEST(Comparators, OrderDescendingByTheirOwnMeasure) {
    struct Case {
        int (*compare)(const Record&, const Record&);
        std::int32_t Record::*measure;
    };
    const Case cases[] = {{comparevmsize, &Record::vmsize},
                          {comparevmrss, &Record::vmrss},
                          {comparenumFDs, &Record::numFDs},
                          {compareswap, &Record::swap},
                          {compareimmediatechildren, &Record::immediatechildren},
                          {comparenumchildren, &Record::numchildren}};
    for (const Case& one : cases) {
        Record larger;
        Record smaller;
        EXPECT_EQ(one.compare(larger, smaller), 0);
        larger.*one.measure = std::numeric_limits<std::int32_t>::max();
        smaller.*one.measure = std::numeric_limits<std::int32_t>::min();
        EXPECT_EQ(one.compare(larger, smaller), -1);
        EXPECT_EQ(one.compare(smaller, larger), 1);
        for (const Case& other : cases)
            EXPECT_EQ(other.compare(larger, smaller), other.measure == one.measure ? -1 : 0);
    }
}

TEST(ImmediateChildren, AreThoseOfTheWrittenDefinitionAddedToTheCountThatIsThere) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::vector<Record> fast = randomCensus(200, seed);
        std::vector<Record> plain = fast;
        for (Record& parent : plain) {
            for (const Record& child : plain)
                parent.immediatechildren += child.ppid == parent.pid ? 1 : 0;
        }
        calculateimmediatechildren(sizeOf(fast), fast.data());
        for (std::size_t i = 0; i < fast.size(); ++i)
            ASSERT_EQ(fast[i].immediatechildren, plain[i].immediatechildren) << seed << " " << i;
    }
}

TEST(ImmediateChildren, OfItselfCountsToo) {
    auto records = censusOf({{0, 0}, {1, 0}, {5, 5}, {-1, 0}, {-1, -1}});
    calculateimmediatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records[0].immediatechildren, 3);
    EXPECT_EQ(records[2].immediatechildren, 1);
    EXPECT_EQ(records[3].immediatechildren, 1);
    EXPECT_EQ(records[4].immediatechildren, 1);
}

TEST(ImmediateChildren, OfNoRecordsIsNothing) {
    calculateimmediatechildren(0, nullptr);
    calculateimmediatechildren(-1, nullptr);
    calculatepenultimatechildren(0, nullptr);
    calculatepenultimatechildren(-1, nullptr);
    showtop(0, nullptr);
}

TEST(Families, EveryChildIsStoredOnceAndKnowsItsParent) {
    CapturedLog log;
    auto records = censusOf({{1, 0}, {2, 1}, {3, 1}, {4, 3}, {5, 4}, {6, 77}});
    calculatepenultimatechildren(sizeOf(records), records.data());
    EXPECT_EQ(log.text(), "i 0 allocing 2 pointers\ni 1 allocing 0 pointers\ni 2 allocing 1 pointers\n"
                          "i 3 allocing 1 pointers\ni 4 allocing 0 pointers\ni 5 allocing 0 pointers\n");
    const std::set<Record*> children(records[0].children.begin(), records[0].children.end());
    EXPECT_EQ(children, (std::set<Record*>{&records[1], &records[2]}));
    EXPECT_EQ(records[3].parent, &records[2]);
    EXPECT_EQ(records[0].parent, nullptr);
    EXPECT_EQ(records[5].parent, nullptr);
    const std::vector<std::int32_t> expected{4, 0, 2, 1, 0, 0};
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].numchildren, expected[i]) << i;
        EXPECT_EQ(calci(records[i]), expected[i]) << i;
    }
}

TEST(Families, DescendantsThatAreCountedAlreadyStay) {
    CapturedLog log;
    auto records = censusOf({{1, 0}, {2, 1}, {3, 2}});
    records[0].numchildren = 9;
    calculatepenultimatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records[0].numchildren, 9);
    EXPECT_EQ(records[1].numchildren, 1);
}

TEST(Families, CountsThatWereThereAreAddedToAndReachNoChildBeyondTheTable) {
    CapturedLog log;
    auto records = censusOf({{1, 0}, {2, 1}});
    records[0].immediatechildren = 100;
    calculatepenultimatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records[0].immediatechildren, 101);
    EXPECT_EQ(records[0].children.size, 1);
    EXPECT_EQ(records[0].numchildren, 101);
}

TEST(Families, CirclesOfParentsAndSelfParentsEnd) {
    CapturedLog log;
    auto records = censusOf({{1, 1}, {2, 3}, {3, 4}, {4, 2}, {5, 4}, {6, 5}});
    calculatepenultimatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records[0].numchildren, 1);
    EXPECT_EQ(records[1].numchildren, 5) << "three of the circle, and two below it";
    EXPECT_EQ(records[3].numchildren, 5);
    EXPECT_EQ(records[4].numchildren, 1);
}

/// Each process the child of the one before.
std::vector<Record> chainOf(std::int32_t n) {
    std::vector<Record> records(static_cast<std::size_t>(n));
    for (std::int32_t i = 0; i < n; ++i) {
        records[static_cast<std::size_t>(i)].pid = i + 1;
        records[static_cast<std::size_t>(i)].ppid = i;
    }
    return records;
}

void* countAChain(void*) {
    auto records = chainOf(30000);
    calculatepenultimatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records.front().numchildren, 29999);
    EXPECT_EQ(records.back().numchildren, 0);
    EXPECT_EQ(calci(records.front()), 29999);
    return nullptr;
}

TEST(Families, ChainOfThirtyThousandEndsWithoutDeepRecursion) {
    CapturedLog log;
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&attributes, std::size_t{512} << 10), 0);
    ASSERT_EQ(::pthread_create(&thread, &attributes, countAChain, nullptr), 0);
    ASSERT_EQ(::pthread_join(thread, nullptr), 0);
    ::pthread_attr_destroy(&attributes);
}

TEST(Families, HundredsOfThousandsAreCountedWithoutLookingAtEachForEach) {
    const CapturedLog log;
    constexpr std::int32_t many =
        LUMETRA_UNDER_ASAN ? 200'000 : 1'000'000; // the square of it would take hours
    auto records = chainOf(many);
    calculateimmediatechildren(many, records.data());
    EXPECT_EQ(records.front().immediatechildren, 1);
    EXPECT_EQ(records.back().immediatechildren, 0);
    records = chainOf(many);
    calculatepenultimatechildren(many, records.data());
    EXPECT_EQ(records.front().numchildren, many - 1);
}

TEST(Families, OfRecordsThatShareOnePidAreCountedForTheFirst) {
    CapturedLog log;
    auto records = std::vector<Record>(20000);
    calculateimmediatechildren(sizeOf(records), records.data());
    EXPECT_EQ(records[0].immediatechildren, 20000);
}

TEST(Showtop, ListsEveryRecordWithAPid) {
    CapturedLog log;
    std::vector<Record> records(3);
    records[0].name.assign("first");
    records[1].pid = -1;
    records[2].name.assign("last");
    records[2].pid = 4;
    records[2].ppid = 5;
    records[2].numFDs = 6;
    records[2].vmsize = 7;
    records[2].vmrss = 8;
    records[2].swap = 9;
    records[2].numchildren = 10;
    showtop(3, records.data());
    EXPECT_EQ(log.text(), "0 (first) PID 0 ppid 0 #FDs 0 vmsize 0 vmrss 0 swap 0 #chil 0\n"
                          "2 (last) PID 4 ppid 5 #FDs 6 vmsize 7 vmrss 8 swap 9 #chil 10\n");
}

} // namespace
} // namespace obrin
