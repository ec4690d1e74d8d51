#include "support/wholeFile.h"

#include "tests/support/temporaryDirectory.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

/// What the next calls of getrandom give, the last one first; the kernel's answer when there is nothing.
/// A missing number is a machine that has no randomness yet.
std::vector<std::optional<std::uint64_t>> nextNumbers;

} // namespace

extern "C" ssize_t getrandom(void* buffer, size_t size, unsigned) {
    if (nextNumbers.empty())
        return std::ifstream("/dev/urandom")
                       .read(static_cast<char*>(buffer), static_cast<std::streamsize>(size))
                   ? static_cast<ssize_t>(size)
                   : -1;
    const auto number = nextNumbers.back();
    nextNumbers.pop_back();
    if (!number || size != sizeof *number) {
        errno = EAGAIN;
        return -1;
    }
    std::memcpy(buffer, &*number, size);
    return static_cast<ssize_t>(size);
}

namespace obrin {
namespace {

using test::readFile;
using test::writeFile;

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

struct stat stateOf(const std::string& path) {
    struct stat state = {};
    EXPECT_EQ(::stat(path.c_str(), &state), 0) << path;
    return state;
}

/// Whether `work` is true in a process of this user and these groups.
template <class Work>
bool trueAs(uid_t user, const std::vector<gid_t>& groups, Work work) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool changed = ::setgroups(groups.size(), groups.data()) == 0 &&
                             ::setresgid(groups[0], groups[0], groups[0]) == 0 &&
                             ::setresuid(user, user, user) == 0;
        ::_exit(changed && work() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0;
}

TEST(WholeFile, ReadsAFileToItsEndOrToTheLimit) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("f"), std::string(100000, 'x'));
    EXPECT_EQ(readWholeFile(directory.path("f"))->size(), 100000U);
    EXPECT_EQ(readWholeFile(directory.path("f"), 5), "xxxxx");
}

TEST(WholeFile, MissingFileIsToldFromAnEmptyOne) {
    test::TemporaryDirectory directory;
    EXPECT_FALSE(readWholeFile(directory.path("none")));
    EXPECT_EQ(errno, ENOENT);
    writeFile(directory.path("empty"), "");
    EXPECT_EQ(readWholeFile(directory.path("empty")), "");
}

TEST(WholeFile, DirectoryAndFifoAreEmptyTextsAndNeverWaitedFor) {
    test::TemporaryDirectory directory;
    EXPECT_EQ(readWholeFile(directory.path()), "");
    ASSERT_EQ(::mkfifo(directory.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(readWholeFile(directory.path("fifo")), "");
}

TEST(WholeFile, ReplacingKeepsPermissionsAndALinkThatSomebodyGave) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("real"), "old");
    ASSERT_EQ(::chmod(directory.path("real").c_str(), 0640), 0);
    ASSERT_EQ(::symlink("real", directory.path("link").c_str()), 0);
    EXPECT_FALSE(replaceWholeFile(directory.path("link"), "new"));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(readFile(directory.path("real")), "old");
    EXPECT_TRUE(replaceGivenFile(directory.path("link"), "new"));
    EXPECT_EQ(readFile(directory.path("real")), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
    struct stat state;
    ASSERT_EQ(::stat(directory.path("real").c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 0777U, 0640U);
}

TEST(WholeFile, ALinkThatLeadsNowhereForNowIsNotReplaced) {
    test::TemporaryDirectory directory;
    ASSERT_EQ(::symlink("away", directory.path("link").c_str()), 0);
    EXPECT_FALSE(replaceGivenFile(directory.path("link"), "new"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"link"});
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
}

TEST(WholeFile, NobodyElseMayWriteWhatReplacesAFileThatAllCouldWrite) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("f"), "old");
    ASSERT_EQ(::chmod(directory.path("f").c_str(), 0666), 0);
    EXPECT_TRUE(replaceWholeFile(directory.path("f"), "new"));
    EXPECT_EQ(stateOf(directory.path("f")).st_mode & 07777U, 0664U);
}

TEST(WholeFile, ADirectoryAFifoAndADeviceAreEmptyTextsWhateverTheyHold) {
    test::TemporaryDirectory directory;
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const Descriptor writer = Descriptor::open(fifo, O_RDWR);
    ASSERT_TRUE(writeAll(writer.get(), "text", 4));
    for (const std::string& path : {directory.path(), fifo, std::string("/dev/zero")}) {
        EXPECT_EQ(readOwnFile(path), "") << path;
        EXPECT_EQ(readGivenFile(path), "") << path;
    }
    writeFile(directory.path("real"), "text");
    ASSERT_EQ(::symlink("real", directory.path("link").c_str()), 0);
    EXPECT_EQ(readOwnFile(directory.path("real")), "text");
    EXPECT_EQ(readOwnFile(directory.path("link")), std::nullopt);
    EXPECT_EQ(readGivenFile(directory.path("link")), "text");
}

TEST(WholeFile, FileIsMadeWhenThereIsNoneAndReplacedWhenThereIsOne) {
    for (const Synchronise synchronise : {Synchronise::yes, Synchronise::no}) {
        test::TemporaryDirectory directory;
        EXPECT_TRUE(replaceWholeFile(directory.path("new"), "text", synchronise));
        EXPECT_EQ(readFile(directory.path("new")), "text");
        const Descriptor reader = Descriptor::open(directory.path("new"), O_RDONLY);
        EXPECT_TRUE(replaceWholeFile(directory.path("new"), "next", synchronise));
        EXPECT_EQ(readFile(directory.path("new")), "next");
        std::string found;
        readRest(reader, wholeFileLimit, &found);
        EXPECT_EQ(found, "text") << "who has it open reads the old one to its end";
        EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"new"});
    }
}

TEST(WholeFile, ContentThatDoesNotFitLeavesTheOldFileAndNothingBesideIt) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("f"), "old");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit limit{1000, 1000};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(!replaceWholeFile(directory.path("f"), std::string(5000, 'n')) && errno == EFBIG ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(directory.path("f")), "old");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"f"});
}

TEST(WholeFile, DirectoriesAndDevicesAreNotReplaced) {
    test::TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("d"));
    EXPECT_FALSE(replaceWholeFile(directory.path("d"), "text"));
    EXPECT_TRUE(std::filesystem::is_directory(directory.path("d")));
    EXPECT_FALSE(replaceWholeFile("/dev/full", "text"));
    EXPECT_FALSE(replaceWholeFile(directory.path("missing/f"), "text"));
}

TEST(WholeFile, ReplacingKeepsOwnerAndGroup) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "giving files away needs root";
    test::TemporaryDirectory directory;
    const std::string file = directory.path("f");
    writeFile(file, "old");
    ASSERT_EQ(::chown(file.c_str(), 1234, 2345), 0);
    ASSERT_EQ(::chmod(file.c_str(), 06640), 0);
    EXPECT_TRUE(replaceWholeFile(file, "new"));
    const struct stat state = stateOf(file);
    EXPECT_EQ(state.st_uid, 1234U);
    EXPECT_EQ(state.st_gid, 2345U);
    EXPECT_EQ(state.st_mode & 07777U, 06640U);
}

TEST(WholeFile, WhoMayNotGiveFilesAwayKeepsTheModeAndAGroupOfHisOwn) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "changing users needs root";
    test::TemporaryDirectory directory;
    ASSERT_EQ(::chmod(directory.path().c_str(), 0777), 0);
    for (const gid_t group : {2345U, 4321U}) {
        const std::string file = directory.path("f");
        writeFile(file, "old");
        ASSERT_EQ(::chown(file.c_str(), 0, group), 0);
        ASSERT_EQ(::chmod(file.c_str(), 0645), 0);
        EXPECT_TRUE(trueAs(1234, {1234, 2345}, [&] { return replaceWholeFile(file, "new"); }));
        const struct stat state = stateOf(file);
        EXPECT_EQ(readFile(file), "new");
        EXPECT_EQ(state.st_uid, 1234U);
        EXPECT_EQ(state.st_gid, group == 2345U ? 2345U : 1234U);
        EXPECT_EQ(state.st_mode & 07777U, 0645U);
    }
}

TEST(WholeFile, AFileThatIsNewGetsTheUsualMode) {
    test::TemporaryDirectory directory;
    const mode_t before = ::umask(0027);
    EXPECT_TRUE(replaceWholeFile(directory.path("f"), "text"));
    ::umask(before);
    EXPECT_EQ(stateOf(directory.path("f")).st_mode & 07777U, 0640U);
}

TEST(WholeFile, NobodysFilesBesideAreTouched) {
    test::TemporaryDirectory directory;
    for (const char* name : {"f", "f.new", "f~", ".f.new", ".lumetra-"})
        writeFile(directory.path(name), name);
    EXPECT_TRUE(replaceWholeFile(directory.path("f"), "whole"));
    EXPECT_EQ(readFile(directory.path("f")), "whole");
    for (const char* name : {"f.new", "f~", ".f.new", ".lumetra-"})
        EXPECT_EQ(readFile(directory.path(name)), name);
    EXPECT_EQ(namesIn(directory.path()).size(), 5U);
}

TEST(WholeFile, ASideFileLiesBesideItsTargetUnderARandomName) {
    test::TemporaryDirectory directory;
    const SideFile one = makeSideFile(directory.path("f"), 0640);
    const SideFile other = makeSideFile(directory.path("f"), 0640);
    ASSERT_TRUE(one.file);
    ASSERT_TRUE(other.file);
    EXPECT_NE(one.path, other.path);
    const std::string start = directory.path(".lumetra-");
    EXPECT_TRUE(one.path.starts_with(start)) << one.path;
    EXPECT_EQ(one.path.size(), start.size() + 16);
    EXPECT_EQ(one.path.find_first_not_of("0123456789abcdef", start.size()), std::string::npos) << one.path;
}

TEST(WholeFile, ATakenNameIsLeftAloneAndAnotherOneTaken) {
    test::TemporaryDirectory directory;
    const std::string taken = directory.path(".lumetra-00000000000000aa");
    writeFile(taken, "somebody's");
    ASSERT_EQ(::symlink("elsewhere", directory.path(".lumetra-00000000000000ab").c_str()), 0);
    nextNumbers = {0xac, 0xab, 0xaa};
    const SideFile side = makeSideFile(directory.path("f"), 0640);
    EXPECT_TRUE(side.file);
    EXPECT_EQ(side.path, directory.path(".lumetra-00000000000000ac"));
    EXPECT_EQ(readFile(taken), "somebody's");
    EXPECT_FALSE(std::filesystem::exists(directory.path("elsewhere")));
    EXPECT_TRUE(nextNumbers.empty());
}

TEST(WholeFile, WithEveryNameTakenItIsGivenUp) {
    test::TemporaryDirectory directory;
    writeFile(directory.path(".lumetra-00000000000000aa"), "somebody's");
    nextNumbers.assign(1000, 0xaa);
    EXPECT_FALSE(replaceWholeFile(directory.path("f"), "text"));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_GT(nextNumbers.size(), 0U);
    nextNumbers.clear();
    EXPECT_EQ(readFile(directory.path(".lumetra-00000000000000aa")), "somebody's");
}

TEST(WholeFile, BeforeTheMachineHasRandomnessFilesAreReplacedAllTheSame) {
    test::TemporaryDirectory directory;
    nextNumbers = {std::nullopt};
    EXPECT_TRUE(replaceWholeFile(directory.path("f"), "text"));
    EXPECT_EQ(readFile(directory.path("f")), "text");
    EXPECT_TRUE(nextNumbers.empty());
}

TEST(WholeFile, ANameAsLongAsTheFileSystemTakesIsReplaced) {
    test::TemporaryDirectory directory;
    const std::string file = directory.path(std::string(NAME_MAX, 'n'));
    EXPECT_TRUE(replaceWholeFile(file, "first"));
    EXPECT_TRUE(replaceWholeFile(file, "second"));
    EXPECT_EQ(readFile(file), "second");
}

TEST(WholeFile, AFileInTheWorkingDirectoryIsReplacedThere) {
    test::TemporaryDirectory directory;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    const bool replaced = replaceWholeFile("f", "text");
    writeFile(".lumetra-0123456789abcdef", "half");
    removeSideFiles("f");
    std::filesystem::current_path(before);
    EXPECT_TRUE(replaced);
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"f"});
}

TEST(WholeFile, OnlyWhatADeathLeftIsRemoved) {
    test::TemporaryDirectory directory;
    const std::string left = ".lumetra-0123456789abcdef";
    const std::set<std::string> others = {"f",
                                          "f.new",
                                          "lumetra-0123456789abcdef",
                                          ".lumetra-0123456789abcde",
                                          ".lumetra-0123456789abcdef0",
                                          ".lumetra-0123456789ABCDEF",
                                          ".lumetra-0123456789abcdeg",
                                          ".lumetra_0123456789abcdef"};
    for (const std::string& name : others)
        writeFile(directory.path(name), "somebody's");
    writeFile(directory.path(left), "half");
    std::filesystem::create_directory(directory.path("below"));
    writeFile(directory.path("below/" + left), "half of another directory's");
    removeSideFiles(directory.path("f"));
    EXPECT_FALSE(std::filesystem::exists(directory.path(left)));
    for (const std::string& name : others)
        EXPECT_EQ(readFile(directory.path(name)), "somebody's") << name;
    EXPECT_TRUE(std::filesystem::exists(directory.path("below/" + left)));
    removeSideFiles(directory.path("none/f")); // nothing to search
}

TEST(WholeFile, LinksDirectoriesAndFifosWithANameOfOursStay) {
    test::TemporaryDirectory directory;
    const std::string link = directory.path(".lumetra-0000000000000001");
    const std::string folder = directory.path(".lumetra-0000000000000002");
    const std::string fifo = directory.path(".lumetra-0000000000000003");
    writeFile(directory.path("f"), "target");
    ASSERT_EQ(::symlink("f", link.c_str()), 0);
    std::filesystem::create_directory(folder);
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    removeSideFiles(directory.path(""));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_TRUE(std::filesystem::is_fifo(fifo));
    EXPECT_EQ(readFile(directory.path("f")), "target");
}

} // namespace
} // namespace obrin
