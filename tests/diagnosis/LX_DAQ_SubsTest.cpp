#include "diagnosis/LX_DAQ_Subs.h"

#include "agent/agentState.h"
#include "diagnosis/processCensus.h"
#include "tests/diagnosis/processTree.h"
#include "tests/support/often.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <new>
#include <regex>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {
/// Allocations of this thread until one is refused; 0 refuses none.
thread_local long allocationsUntilRefusal = 0;
/// Whether a refusal is something other than an exception with a message.
thread_local bool refusesWithoutMessage = false;

void* allocate(std::size_t size) {
    if (allocationsUntilRefusal > 0 && --allocationsUntilRefusal == 0)
        return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}
} // namespace

// The program's allocations, so that a test can refuse any single one of them.
__attribute__((noinline, visibility("default"))) void* operator new(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr && refusesWithoutMessage)
        throw 0;
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
__attribute__((noinline, visibility("default"))) void* operator new(std::size_t size,
                                                                    const std::nothrow_t&) noexcept {
    return allocate(size);
}
__attribute__((noinline, visibility("default"))) void operator delete(void* memory) noexcept {
    std::free(memory);
}
__attribute__((noinline, visibility("default"))) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
__attribute__((noinline, visibility("default"))) void operator delete(void* memory,
                                                                      const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace {
/// Openings of directories until one is refused; 0 refuses none.
thread_local int openingsUntilRefusal = 0;
/// Whether this thread's next opening of a file throws. (Of a directory's opening a compiler may take for
/// granted that it does not.)
thread_local bool exceptionInNextOpening = false;

void throwIfDue() {
    if (!std::exchange(exceptionInNextOpening, false))
        return;
    if (refusesWithoutMessage)
        throw 0;
    throw std::bad_alloc();
}
} // namespace

extern "C" int open64(const char* path, int flags, ...) {
    throwIfDue();
    std::va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" DIR* opendir(const char* path) {
    if (openingsUntilRefusal > 0 && --openingsUntilRefusal == 0) {
        errno = EMFILE;
        return nullptr;
    }
    static const auto real = reinterpret_cast<DIR* (*)(const char*)>(::dlsym(RTLD_NEXT, "opendir"));
    return real(path);
}

namespace obrin {
namespace {

using namespace test;

constexpr const char* descriptorsUsed = "PercentFileDescriptorsUsed";
constexpr const char* memoryUsed = "PercentSwapSpaceUsed";
constexpr const char* processesUsed = "PercentProcessesUsed";

/// diagnose with a home directory, a log and a culprit text of its own.
class Diagnosis : public ::testing::Test {
protected:
    Diagnosis() {
        clasp.DataHomeDirectory = home.path();
        pResourceClasp = &clasp;
    }
    ~Diagnosis() override {
        pResourceClasp = nullptr;
        systemPaths().proc = SystemPaths().proc;
    }

    static void becomeSmallMachine() {
        systemPaths().proc = std::string(LUMETRA_FIXTURES) + "/census-small/proc";
    }
    int run(const char* displayName) {
        Link link;
        link.NameIs.assign(displayName);
        return diagnose(&link, &culprits);
    }
    std::string fileOf(const char* displayName) const { return home.path(displayName) + ".cul"; }
    std::string report(const char* displayName) const { return readFile(fileOf(displayName)); }
    std::string opening(const char* displayName) const {
        const std::string name = fileOf(displayName);
        return " before 1 fopen(" + name + ")\n after  1 fopen(" + name + ")\n";
    }
    std::string failing(const char* displayName) const {
        return " LX_DAQ_Subs diagnose() fopen(" + fileOf(displayName) + ", w) failed\n";
    }
    void fillCulpritText(std::size_t length) { std::fill_n(buffer.begin(), length, 'x'); }

    CapturedLog log;
    TemporaryDirectory home;
    Clasp clasp;
    std::vector<char> buffer = std::vector<char>(culpritTextSize, '\0');
    CulpritText culprits{buffer.data()};
};

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t linesIn(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST_F(Diagnosis, OfAnotherDisplayNameYieldsOneCreatesNoFileAndAppendsNothing) {
    for (const char* name : {"PercentFreeSpaceUsed", "", "PercentProcessesUsed ", "percentprocessesused"})
        EXPECT_EQ(run(name), 1) << name;
    EXPECT_TRUE(std::filesystem::is_empty(home.path()));
    EXPECT_STREQ(culprits.text, "");
    EXPECT_EQ(log.text(), "");
}

TEST_F(Diagnosis, OfNoResourceIsLoggedAndFails) {
    EXPECT_EQ(diagnose(nullptr, &culprits), -1);
    EXPECT_EQ(log.text(), "diagnose: invalid argument NULL pLink\n");
}

TEST_F(Diagnosis, OfDescriptorsWritesLogFileAndCulpritTextToTheByte) {
    becomeSmallMachine();
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(log.text(), opening(descriptorsUsed) +
                              "# numprocs = 6 totalnumFDs=73, remaining = 4023\n"
                              "Top Consumers of FDs:\n"
                              "\t(java) PID 20 \t#FDs 42\n\t(sshd) PID 21 \t#FDs 11\n"
                              "\t(init) PID 1 \t#FDs 9\n\t(bash) PID 32 \t#FDs 6\n"
                              "\t(tool) PID 30 \t#FDs 5\n\t(worker) PID 31 \t#FDs 0\n");
    EXPECT_EQ(report(descriptorsUsed), "Top Consumers of FDs:\n"
                                       "\t(java) \tPID 20 \t#FDs 42\n\t(sshd) \tPID 21 \t#FDs 11\n"
                                       "\t(init) \tPID 1 \t#FDs 9\n\t(bash) \tPID 32 \t#FDs 6\n"
                                       "\t(tool) \tPID 30 \t#FDs 5\n\t(worker) \tPID 31 \t#FDs 0\n");
    EXPECT_STREQ(culprits.text, " java(20)42 sshd(21)11 init(1)9 bash(32)6 tool(30)5 worker(31)0");
}

TEST_F(Diagnosis, OfSwapSortsByResidentSize) {
    becomeSmallMachine();
    EXPECT_EQ(run(memoryUsed), 1);
    const std::string lines = "Top Consumers of Memory (Resident Set Size):\n"
                              "\t(java) \tPID 20 \tRSS 210 MB\n";
    EXPECT_EQ(log.text().find(opening(memoryUsed) + "# numprocs = 6 " + lines), 0U) << log.text();
    EXPECT_EQ(report(memoryUsed).find(lines), 0U) << report(memoryUsed);
    EXPECT_EQ(std::string(culprits.text).find(" java(20)210 "), 0U) << culprits.text;
    EXPECT_EQ(linesIn(report(memoryUsed)), 7U);
}

TEST_F(Diagnosis, OfProcessesSortsByImmediateChildren) {
    becomeSmallMachine();
    EXPECT_EQ(run(processesUsed), 1);
    EXPECT_EQ(linesIn(report(processesUsed)), 7U);
    EXPECT_EQ(report(processesUsed).find("Top Consumers of Child Processes:\n\t("), 0U);
    for (const char* line : {"\t(init) \tPID 1 \tChildren 2\n", "\t(java) \tPID 20 \tChildren 2\n",
                             "\t(sshd) \tPID 21 \tChildren 1\n", "\t(bash) \tPID 32 \tChildren 0\n"}) {
        EXPECT_NE(report(processesUsed).find(line), std::string::npos) << line;
        EXPECT_NE(log.text().find(line), std::string::npos) << line;
    }
    EXPECT_NE(std::string(culprits.text).find(" sshd(21)1 "), std::string::npos);
}

TEST_F(Diagnosis, WithFewerThanTenProcessesTheReportListsOnlyFilledRecords) {
    ProcessTree tree;
    tree.add("3", {statOf(3, "only"), statusOf("only", 0, 2048, 1024), 0});
    for (const char* name : {descriptorsUsed, memoryUsed, processesUsed}) {
        EXPECT_EQ(run(name), 1);
        EXPECT_EQ(linesIn(report(name)), 2U) << report(name);
    }
    EXPECT_STREQ(culprits.text, " only(3)2 only(3)1 only(3)0");
}

TEST_F(Diagnosis, OfAMachineWithoutProcessesIsAHeading) {
    ProcessTree tree;
    EXPECT_EQ(run(processesUsed), 1);
    EXPECT_EQ(report(processesUsed), "Top Consumers of Child Processes:\n");
    EXPECT_STREQ(culprits.text, "");
}

TEST_F(Diagnosis, ListsTenAtTheMost) {
    ProcessTree tree;
    for (int pid = 1; pid <= 25; ++pid)
        tree.add(std::to_string(pid), {statOf(pid, "p"), statusOf("p", 1, 99999, pid * 1024), 0});
    EXPECT_EQ(run(memoryUsed), 1);
    EXPECT_EQ(linesIn(report(memoryUsed)), 11U);
    EXPECT_EQ(std::string(culprits.text).find(" p(25)25 p(24)24 "), 0U);
    EXPECT_EQ(std::string(culprits.text).rfind(" p(16)16"), std::strlen(culprits.text) - 8);
}

TEST_F(Diagnosis, LeavesOutProcessesThatVanished) {
    ProcessTree tree;
    tree.add("3", {statOf(3, "stays"), statusOf("stays", 0, 2048, 1024), 0});
    tree.add("4", {"", statusOf("gone", 0, 4096, 4096), 9});
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(report(descriptorsUsed), "Top Consumers of FDs:\n\t(stays) \tPID 3 \t#FDs 2\n");
}

TEST_F(Diagnosis, ReportsAProcessThatIsNumberedZero) {
    ProcessTree tree;
    tree.add("3", {statOf(0, "zero"), statusOf("zero", 0, 2048, 1024), 0});
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(report(descriptorsUsed), "Top Consumers of FDs:\n\t(zero) \tPID 0 \t#FDs 2\n");
}

TEST_F(Diagnosis, EntryThatDoesNotFitLeavesOutThoseBehindItToo) {
    ProcessTree tree;
    tree.add("3", {statOf(3, "long-name"), statusOf("long-name", 0, 2048, 2048), 0});
    tree.add("4", {statOf(4, "x"), statusOf("x", 0, 2048, 1024), 0});
    fillCulpritText(culpritTextSize - 1 - 6); // room for " x(4)1"
    EXPECT_EQ(run(memoryUsed), 1);
    EXPECT_EQ(std::string(culprits.text), std::string(culpritTextSize - 1 - 6, 'x'));
}

TEST_F(Diagnosis, CulpritsOfSeveralResourcesGatherInOneText) {
    becomeSmallMachine();
    run(descriptorsUsed);
    const std::string first = culprits.text;
    run(memoryUsed);
    EXPECT_EQ(std::string(culprits.text).find(first + " java(20)210"), 0U);
}

TEST_F(Diagnosis, CulpritTextTakesWholeEntriesAsLongAsTheyFitAndNoByteMore) {
    becomeSmallMachine();
    const std::string all = " java(20)42 sshd(21)11 init(1)9 bash(32)6 tool(30)5 worker(31)0";
    fillCulpritText(culpritTextSize - 1 - all.size());
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(std::string(culprits.text).substr(culpritTextSize - 1 - all.size()), all);

    std::fill(buffer.begin(), buffer.end(), '\0');
    fillCulpritText(culpritTextSize - all.size());
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(std::string(culprits.text).substr(culpritTextSize - all.size()),
              " java(20)42 sshd(21)11 init(1)9 bash(32)6 tool(30)5");
    EXPECT_EQ(linesIn(report(descriptorsUsed)), 7U) << "the report is whole all the same";
}

TEST_F(Diagnosis, FullMissingOrUnterminatedCulpritTextHurtsNothing) {
    becomeSmallMachine();
    fillCulpritText(culpritTextSize - 1);
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(std::strlen(culprits.text), culpritTextSize - 1);
    fillCulpritText(culpritTextSize);
    EXPECT_EQ(run(descriptorsUsed), 1);
    Link link;
    link.NameIs.assign(memoryUsed);
    EXPECT_EQ(diagnose(&link, nullptr), 1);
    CulpritText none{nullptr};
    EXPECT_EQ(diagnose(&link, &none), 1);
}

TEST_F(Diagnosis, EarlierReportOfTheSameResourceIsReplaced) {
    becomeSmallMachine();
    writeFile(fileOf(processesUsed), std::string(100000, 'o'));
    EXPECT_EQ(run(processesUsed), 1);
    EXPECT_EQ(linesIn(report(processesUsed)), 7U);
    EXPECT_EQ(report(processesUsed).find('o'), std::string("T").size());
    const std::filesystem::directory_iterator files(home.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "nothing is left beside it";
}

TEST_F(Diagnosis, CulpritFileThatCannotBeCreatedLogsTheFailureAndNoCensusIsTaken) {
    becomeSmallMachine();
    clasp.DataHomeDirectory = home.path("missing/");
    const std::string name = home.path("missing/") + descriptorsUsed + ".cul";
    EXPECT_EQ(run(descriptorsUsed), -1);
    EXPECT_EQ(log.text(), " before 1 fopen(" + name + ")\n after  1 fopen(" + name +
                              ")\n LX_DAQ_Subs diagnose() fopen(" + name + ", w) failed\n");
    EXPECT_STREQ(culprits.text, "");
}

TEST_F(Diagnosis, CulpritFileThatIsALinkLogsTheFailureAndNoCensusIsTaken) {
    becomeSmallMachine();
    const std::string elsewhere = home.path("elsewhere");
    writeFile(elsewhere, "precious");
    std::filesystem::create_symlink(elsewhere, fileOf(memoryUsed));
    EXPECT_EQ(run(memoryUsed), -1);
    EXPECT_EQ(log.text(), opening(memoryUsed) + failing(memoryUsed));
    EXPECT_TRUE(std::filesystem::is_symlink(fileOf(memoryUsed)));
    EXPECT_EQ(readFile(elsewhere), "precious");
    EXPECT_STREQ(culprits.text, "");
}

TEST_F(Diagnosis, CulpritFileThatIsADirectoryOrAPipeFailsWithoutWaiting) {
    becomeSmallMachine();
    std::filesystem::create_directory(fileOf(memoryUsed));
    EXPECT_EQ(run(memoryUsed), -1);
    ASSERT_EQ(::mkfifo(fileOf(processesUsed).c_str(), 0600), 0);
    EXPECT_EQ(run(processesUsed), -1);
    EXPECT_EQ(log.text(),
              opening(memoryUsed) + failing(memoryUsed) + opening(processesUsed) + failing(processesUsed));
}

TEST_F(Diagnosis, OnAFullDiskKeepsTheOldReportLogsTheFailureAndStillNamesTheCulprits) {
    const std::string disk = home.path("disk/");
    std::filesystem::create_directory(disk);
    if (::mount("none", disk.c_str(), "tmpfs", 0, "size=8k") != 0)
        GTEST_SKIP() << "mounting a file system needs root";
    becomeSmallMachine();
    clasp.DataHomeDirectory = disk;
    const std::string name = disk + descriptorsUsed + ".cul";
    writeFile(name, "old\n");
    writeFile(disk + "filler", std::string(4096, 'x'));
    const int result = run(descriptorsUsed);
    const std::string kept = readFile(name);
    const auto files = std::distance(std::filesystem::directory_iterator(disk), {});
    ::umount(disk.c_str());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(kept, "old\n");
    EXPECT_EQ(files, 2) << "something is left beside the report";
    EXPECT_NE(log.text().find("#FDs 0\n LX_DAQ_Subs diagnose() fopen(" + name + ", w) failed\n"),
              std::string::npos);
    EXPECT_EQ(std::string(culprits.text).find(" java(20)42"), 0U);
}

TEST_F(Diagnosis, ReportsOfACycleShareOneCensusAndTheNextCycleTakesItsOwn) {
    ProcessTree tree;
    EXPECT_EQ(run(memoryUsed), 1); // its census is nobody else's
    const std::size_t before = linesIn(log.text());
    tree.add("10", {statOf(10, "first"), statusOf("first", 10, 2048, 1024), 1});
    {
        const SharedCensus census;
        EXPECT_EQ(run(processesUsed), 1);
        tree.add("11", {statOf(11, "second"), statusOf("second", 10, 4096, 3072), 7});
        EXPECT_EQ(run(memoryUsed), 1);
        EXPECT_EQ(run(processesUsed), 1) << "children are counted once";
    }
    EXPECT_EQ(report(memoryUsed),
              "Top Consumers of Memory (Resident Set Size):\n\t(first) \tPID 10 \tRSS 1 MB\n");
    EXPECT_EQ(report(processesUsed), "Top Consumers of Child Processes:\n\t(first) \tPID 10 \tChildren 1\n");
    EXPECT_EQ(linesIn(log.text()) - before, 3 * 4U);
    EXPECT_NE(log.text().find(opening(memoryUsed) + "# numprocs = 1 Top"), std::string::npos);
    const SharedCensus census;
    EXPECT_EQ(run(memoryUsed), 1);
    EXPECT_NE(report(memoryUsed).find("(second) \tPID 11 \tRSS 3 MB\n"), std::string::npos);
}

TEST_F(Diagnosis, WithoutAProcessDirectoryFailsWithTheTextOfTheFirstPass) {
    systemPaths().proc = home.path("none");
    writeFile(fileOf(processesUsed), "old\n");
    EXPECT_EQ(run(processesUsed), -1);
    EXPECT_EQ(log.text(), opening(processesUsed) + "\n LX_DAQ_Subs diagnose() 13 opendir(/proc) failed\n");
    EXPECT_EQ(report(processesUsed), "old\n");
}

TEST_F(Diagnosis, WithoutTheSecondPassFailsWithItsText) {
    becomeSmallMachine();
    openingsUntilRefusal = 2;
    EXPECT_EQ(run(processesUsed), -1);
    EXPECT_EQ(log.text(),
              opening(processesUsed) + "# numprocs = 6 \n LX_DAQ_Subs diagnose() 14 opendir(/proc) failed\n");
    EXPECT_EQ(report(processesUsed), "");
}

TEST_F(Diagnosis, WithoutDescriptorsOrRunFailsSoftly) {
    pResourceClasp = nullptr;
    EXPECT_EQ(run(processesUsed), -1);
    pResourceClasp = &clasp;
    becomeSmallMachine();
    log.text();
    EXPECT_EQ(run(processesUsed), 1); // opens the log while it can
    std::vector<int> held;
    for (int fd = ::dup(0); fd >= 0 && held.size() < 100000; fd = ::dup(0))
        held.push_back(fd);
    const int result = run(processesUsed);
    for (int fd : held)
        ::close(fd);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.text().substr(log.text().size() - failing(processesUsed).size()), failing(processesUsed));
    EXPECT_EQ(linesIn(report(processesUsed)), 7U);
}

TEST_F(Diagnosis, AnySingleRefusedAllocationIsSurvivedAndToldOfByItsStep) {
    ProcessTree tree; // of a two-digit number of processes: their count is told in a text that takes memory
    for (int pid = 10; pid < 22; ++pid)
        tree.add(std::to_string(pid), {statOf(pid, "some-name"), statusOf("some-name", 1, 2048, 1024), 1});
    const std::size_t before = (run(memoryUsed), openDescriptors());
    for (bool without : {false, true}) {
        refusesWithoutMessage = without;
        bool refused = true;
        for (long n = 1; refused && n < 10000; ++n) {
            std::fill(buffer.begin(), buffer.end(), '\0');
            allocationsUntilRefusal = n;
            const int result = run(memoryUsed);
            refused = allocationsUntilRefusal == 0;
            allocationsUntilRefusal = 0;
            ASSERT_TRUE(result == 1 || result == -1);
            ASSERT_EQ(openDescriptors(), before) << n;
            ASSERT_LE(linesIn(report(memoryUsed)), 11U) << n;
        }
        EXPECT_FALSE(refused);
    }
    refusesWithoutMessage = false;
    const std::string told = log.text(); // the other steps take no memory
    for (const std::string& text :
         {std::string("\n LX_DAQ_Subs diagnose\\(\\) 13 opendir\\(/proc\\) threw %\n"),
          std::string("\n LX_DAQ_Subs diagnose\\(\\) 14 opendir\\(/proc\\) threw %\n"),
          std::string("\n LX_DAQ_Subs diagnose\\(\\) fopen\\(/proc/\\d+/stat\\) ignoring %\n")})
        for (const char* problem : {"std::bad_alloc", "unknown exception"})
            EXPECT_TRUE(
                std::regex_search(told, std::regex(std::regex_replace(text, std::regex("%"), problem))))
                << text << problem;
}

TEST_F(Diagnosis, AnExceptionInAnOpeningIsToldOfByItsStepAndFails) {
    becomeSmallMachine();
    run(memoryUsed); // opens the log
    for (const bool without : {false, true}) {
        refusesWithoutMessage = without;
        const std::string problem = without ? "unknown exception\n" : "std::bad_alloc\n";
        exceptionInNextOpening = true;
        EXPECT_EQ(run(memoryUsed), -1);
        EXPECT_FALSE(exceptionInNextOpening);
        EXPECT_TRUE(log.text().ends_with(" LX_DAQ_Subs diagnose() fopen(" + fileOf(memoryUsed) +
                                         ", w) threw " + problem))
            << log.text();
    }
    refusesWithoutMessage = false;
}

TEST_F(Diagnosis, NeverMovesTheWorkingDirectory) {
    becomeSmallMachine();
    const int here = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string doomed = home.path("doomed");
    std::filesystem::create_directory(doomed);
    ASSERT_EQ(::chdir(doomed.c_str()), 0);
    // Whoever leaves this directory cannot come back by its path.
    std::filesystem::remove(doomed);
    struct stat before {};
    struct stat after {};
    ::stat(".", &before);
    const int result = run(descriptorsUsed);
    ::stat(".", &after);
    ASSERT_EQ(::fchdir(here), 0);
    ::close(here);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(Diagnosis, HostileProcessNamesAreShownAsTextOnOneLine) {
    const std::vector<std::pair<const char*, std::string>> names = {
        {"%n %s%n", "%n"},
        {"%s%s%n%x", "%s%s%n%x"},
        {"a b", "a"},
        {"x)y", "x"},
        {"(((", "((("},
        {"\x1b[31mred", "?[31mred"},
        {"\xff\xfe\xc3", "\xff\xfe\xc3"},
        {" lead", ""},
        {"c\xc2\x9b", "c?"},
        {"\x01\x7f", "??"},
    };
    ProcessTree tree;
    std::vector<std::unique_ptr<WaitingChild>> children;
    for (const auto& [name, shown] : names) {
        children.push_back(std::make_unique<WaitingChild>([own = name] { ::prctl(PR_SET_NAME, own); }));
        tree.adopt(children.back()->pid());
    }
    EXPECT_EQ(run(descriptorsUsed), 1);
    const std::string text = report(descriptorsUsed);
    EXPECT_EQ(linesIn(text), names.size() + 1);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string pid = std::to_string(children[i]->pid());
        EXPECT_NE(text.find("\t(" + names[i].second + ") \tPID " + pid + " \t#FDs "), std::string::npos)
            << text;
        EXPECT_NE(std::string(culprits.text).find(" " + names[i].second + "(" + pid + ")"), std::string::npos)
            << culprits.text;
    }
    EXPECT_EQ(log.text().find('\x1b'), std::string::npos);
    // The log formats every text once more, without arguments.
    EXPECT_NE(log.text().find("\t(0) PID "), std::string::npos) << log.text();
}

TEST_F(Diagnosis, LineBreakInANameBreaksNoLine) {
    ProcessTree tree;
    tree.add("8", {statOf(8, "two\nlines\r\t\v"), statusOf("two", 0), 0});
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(report(descriptorsUsed), "Top Consumers of FDs:\n\t(two?lines?"
                                       "?"
                                       "?) \tPID 8 \t#FDs 2\n");
    EXPECT_STREQ(culprits.text, " two?lines?"
                                "?"
                                "?(8)2");
    tree.add("8", {statOf(8, ""), statusOf("", 0), 0});
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(report(descriptorsUsed), "Top Consumers of FDs:\n\t() \tPID 8 \t#FDs 2\n");
}

TEST_F(Diagnosis, NameOfAChildThatRenamesItselfWithALineBreakBreaksNoLine) {
    WaitingChild child([] { ::prctl(PR_SET_NAME, "new\nline"); });
    ProcessTree tree;
    tree.adopt(child.pid());
    EXPECT_EQ(run(memoryUsed), 1);
    EXPECT_EQ(linesIn(report(memoryUsed)), 2U) << report(memoryUsed);
}

TEST_F(Diagnosis, ProcessThatLeaksDescriptorsIsNamedFirst) {
    WaitingChild modest([] { [[maybe_unused]] const int fd = ::dup(0); });
    WaitingChild leaking([] {
        ::prctl(PR_SET_NAME, "leaking");
        for (int i = 0; i < 300; ++i)
            [[maybe_unused]] const int fd = ::dup(0);
    });
    ProcessTree tree;
    tree.adopt(modest.pid());
    tree.adopt(leaking.pid());
    EXPECT_EQ(run(descriptorsUsed), 1);
    EXPECT_EQ(std::string(culprits.text).find(" leaking(" + std::to_string(leaking.pid()) + ")3"), 0U)
        << culprits.text;
}

/// Starts and ends processes as fast as it can until it goes.
class ForkStorm {
public:
    ForkStorm() {
        pid_ = ::fork();
        while (pid_ == 0) {
            const pid_t child = ::fork();
            if (child == 0)
                ::_exit(0);
            if (child > 0)
                ::waitpid(child, nullptr, 0);
        }
    }
    ~ForkStorm() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_ = -1;
};

TEST_F(Diagnosis, InAForkStormEveryReportIsComplete) {
    ForkStorm first;
    ForkStorm second;
    run(descriptorsUsed);
    const std::size_t before = openDescriptors();
    const std::regex line("\t\\([^ )]*\\) \tPID [1-9][0-9]* \t(#FDs|RSS|Children) [0-9]+( MB)?");
    for (int round = 0; round < often(5, 200); ++round) {
        for (const char* name : {descriptorsUsed, memoryUsed, processesUsed}) {
            std::fill(buffer.begin(), buffer.end(), '\0');
            ASSERT_EQ(run(name), 1);
            std::istringstream lines(report(name));
            std::string text;
            std::getline(lines, text);
            ASSERT_EQ(text.find("Top Consumers of "), 0U);
            while (std::getline(lines, text))
                ASSERT_TRUE(std::regex_match(text, line)) << text;
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Isw2k, IsZero) {
    EXPECT_EQ(isw2k(), 0);
}

} // namespace
} // namespace obrin
