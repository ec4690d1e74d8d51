#include "support/wholeFile.h"

#include "tests/support/temporaryDirectory.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace obrin {
namespace {

using test::readFile;
using test::writeFile;

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

TEST(WholeFile, ReplacingKeepsPermissionsAndSymbolicLinks) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("real"), "old");
    ASSERT_EQ(::chmod(directory.path("real").c_str(), 0640), 0);
    ASSERT_EQ(::symlink("real", directory.path("link").c_str()), 0);
    EXPECT_TRUE(replaceWholeFile(directory.path("link"), "new"));
    EXPECT_EQ(readFile(directory.path("real")), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
    struct stat state;
    ASSERT_EQ(::stat(directory.path("real").c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 0777U, 0640U);
}

TEST(WholeFile, FileIsMadeWhenThereIsNone) {
    test::TemporaryDirectory directory;
    EXPECT_TRUE(replaceWholeFile(directory.path("new"), "text"));
    EXPECT_EQ(readFile(directory.path("new")), "text");
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
    EXPECT_FALSE(std::filesystem::exists(directory.path("f.new")));
}

TEST(WholeFile, DirectoriesAndDevicesAreNotReplaced) {
    test::TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("d"));
    EXPECT_FALSE(replaceWholeFile(directory.path("d"), "text"));
    EXPECT_TRUE(std::filesystem::is_directory(directory.path("d")));
    EXPECT_FALSE(replaceWholeFile("/dev/full", "text"));
    EXPECT_FALSE(replaceWholeFile(directory.path("missing/f"), "text"));
}

TEST(WholeFile, LeftoverOfAnEarlierDeathIsOverwritten) {
    test::TemporaryDirectory directory;
    writeFile(directory.path("f.new"), "half of a longer text");
    EXPECT_TRUE(replaceWholeFile(directory.path("f"), "whole"));
    EXPECT_EQ(readFile(directory.path("f")), "whole");
}

} // namespace
} // namespace obrin
