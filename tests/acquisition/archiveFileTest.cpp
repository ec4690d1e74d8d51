#include "acquisition/archiveFile.h"

#include "agent/debugLog.h"
#include "support/handles.h"
#include "support/systemPaths.h"
#include "tests/acquisition/testMachine.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/watchedReads.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace obrin {
namespace {

using test::lacksPrivilege;
using test::readFile;
using test::runInMountNamespace;
using test::writeFile;

class ArchiveFile : public testing::Test {
protected:
    ArchiveFile() { systemPaths().trimWorkFile = directory.path("temp"); }
    ~ArchiveFile() override { systemPaths().trimWorkFile = SystemPaths().trimWorkFile; }

    /// Lines of 64 bytes that together have `size` bytes; the last line takes what is left.
    static std::string lines(std::size_t size) {
        std::string text;
        for (int i = 0; text.size() + 128 <= size; ++i) {
            std::string line = std::to_string(1700000000 + i) + " 1 0 41.27 ";
            line.resize(63, '7');
            text += line + "\n";
        }
        text.resize(size - 1, '8');
        return text + "\n";
    }

    /// Runs the body with a small disk, which holds the work file. What runInMountNamespace() gives.
    template <class Body>
    int withWorkFileOnADisk(const char* size, Body body) {
        return runInMountNamespace([&] {
            const std::string disk = directory.path("disk");
            std::filesystem::create_directory(disk);
            if (::mount("small", disk.c_str(), "tmpfs", 0, size) != 0)
                ::_exit(lacksPrivilege);
            systemPaths().trimWorkFile = disk + "/temp";
            body(disk);
        });
    }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    test::RecordingSink sink;
    std::string archive = directory.path("archive.txt");
};

TEST_F(ArchiveFile, LinesAreAppendedWhole) {
    EXPECT_TRUE(appendArchiveLine(archive, "1 3 0 41.27 \n"));
    EXPECT_TRUE(appendArchiveLine(archive, "2 3 0 41.30 \n"));
    EXPECT_EQ(readFile(archive), "1 3 0 41.27 \n2 3 0 41.30 \n");
}

TEST_F(ArchiveFile, TornTailOfAnyLengthIsCutBackToTheLastWholeLine) {
    const std::string whole = "1 3 0 41.27 \n2 3 0 41.30 \n";
    const std::string torn = "3 3 0 41.31 ";
    for (std::size_t length = 1; length <= torn.size(); ++length) {
        writeFile(archive, whole + torn.substr(0, length));
        ASSERT_TRUE(appendArchiveLine(archive, "4 3 0 41.32 \n"));
        ASSERT_EQ(readFile(archive), whole + "4 3 0 41.32 \n") << length;
    }
    EXPECT_NE(log.text().find("dropped 12 bytes of an unfinished last line"), std::string::npos);
}

TEST_F(ArchiveFile, ATailThatCannotBeReadCostsTheNewLineAndLeavesNoEmptyOne) {
    for (const std::string before : {"1 3 0 41.27 \n", "1 3 0 41.27 \n2 3"}) {
        writeFile(archive, before);
        {
            const test::WatchedReads failing([] { return EIO; });
            EXPECT_FALSE(appendArchiveLine(archive, "3 3 0 41.30 \n"));
        }
        EXPECT_EQ(readFile(archive), before);
        EXPECT_TRUE(appendArchiveLine(archive, "4 3 0 41.30 \n"));
        EXPECT_EQ(readFile(archive), "1 3 0 41.27 \n4 3 0 41.30 \n");
    }
    EXPECT_TRUE(
        log.text().starts_with("Archive file " + archive + ": its end cannot be read: Input/output error\n"))
        << log.text();
}

TEST_F(ArchiveFile, AnArchiveThatShrinksWhileItsTailIsReadCostsTheNewLine) {
    writeFile(archive, "1 3 0 41.27 \n2 3 0 41.30 \n");
    {
        const test::WatchedReads shrinking([this] {
            std::filesystem::resize_file(archive, 13);
            return 0;
        });
        EXPECT_FALSE(appendArchiveLine(archive, "3 3 0 41.30 \n"));
    }
    EXPECT_EQ(log.text(), "Archive file " + archive + ": its end cannot be read: Input/output error\n");
    EXPECT_TRUE(appendArchiveLine(archive, "4 3 0 41.30 \n"));
    EXPECT_EQ(readFile(archive), "1 3 0 41.27 \n4 3 0 41.30 \n");
}

TEST_F(ArchiveFile, ATailThatIsTooLongForATornLineStaysAndTheNewLineBeginsBehindIt) {
    const std::string before = "1 3 0 41.27 \n" + std::string(std::size_t{16} << 20, 'x');
    writeFile(archive, before);
    EXPECT_TRUE(appendArchiveLine(archive, "2 3 0 41.30 \n"));
    EXPECT_TRUE(readFile(archive) == before + "\n2 3 0 41.30 \n");
    EXPECT_EQ(log.text(), "");
}

TEST_F(ArchiveFile, TailOfZerosIsCutBack) {
    writeFile(archive, "1 3 0 41.27 \n" + std::string(4096, '\0'));
    ASSERT_TRUE(appendArchiveLine(archive, "2 3 0 41.30 \n"));
    EXPECT_EQ(readFile(archive), "1 3 0 41.27 \n2 3 0 41.30 \n");
}

TEST_F(ArchiveFile, FileOfOneTornLineBecomesTheNewLine) {
    writeFile(archive, "1 3 0 4");
    ASSERT_TRUE(appendArchiveLine(archive, "2 3 0 41.30 \n"));
    EXPECT_EQ(readFile(archive), "2 3 0 41.30 \n");
}

TEST_F(ArchiveFile, LineThatDoesNotFitIsTakenBackAndTheReasonLogged) {
    const std::string before = lines(2000); // leaves the log, which suffers the same limit, room for its line
    writeFile(archive, before);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit limit{2005, 2005};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(appendArchiveLine(archive, "2 3 0 41.30 \n") ? 1 : 0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(archive), before);
    EXPECT_EQ(log.text(), "Archive file " + archive + ": cannot be written: File too large\n");
    EXPECT_TRUE(appendArchiveLine(archive, "3 3 0 41.30 \n"));
    EXPECT_EQ(readFile(archive), before + "3 3 0 41.30 \n");
}

TEST_F(ArchiveFile, ArchiveThatCannotBeOpenedIsNamedInTheLogWithTheReason) {
    EXPECT_FALSE(appendArchiveLine(directory.path("missing/archive"), "1 \n"));
    EXPECT_NE(log.text().find("Archive file " + directory.path("missing/archive") +
                              ": cannot be opened: No such file or directory\n"),
              std::string::npos);
    EXPECT_FALSE(appendArchiveLine(directory.path(""), "1 \n"));
}

TEST_F(ArchiveFile, AFifoASocketADeviceOrALinkInTheArchivesPlaceIsRefusedWithALogLine) {
    const std::string socket = directory.path("socket");
    const std::string link = directory.path("link");
    ASSERT_EQ(::mkfifo(archive.c_str(), 0600), 0);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    ASSERT_LT(socket.size(), sizeof address.sun_path);
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(listener);
    ASSERT_EQ(::symlink("/dev/null", link.c_str()), 0);

    for (const std::string& path : {archive, socket, std::string("/dev/null"), link}) {
        EXPECT_FALSE(appendArchiveLine(path, "1 3 0 41.27 \n"));
        const std::string kind = path == link ? "symbolic link" : "no regular file";
        const std::string a = path == link ? "a " : "";
        EXPECT_NE(log.text().find("Archive file " + path + ": cannot be opened: it is " + a + kind + "\n"),
                  std::string::npos)
            << log.text();
    }
    // Opened without a partner, a FIFO would still hand out what had been put into it.
    const int fifo = ::open(archive.c_str(), O_RDWR | O_NONBLOCK);
    char byte = 0;
    EXPECT_EQ(::read(fifo, &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    ::close(fifo);
}

TEST_F(ArchiveFile, ArchiveOfExactlyATenthOverTheLimitIsLeftAloneAndOneByteMoreIsCut) {
    const std::size_t limit = 10 << 20; // ten megabytes, so that a tenth of it is a whole number of bytes
    const std::string text = lines(limit + limit / 10);
    writeFile(archive, text);
    EXPECT_EQ(trim(archive, 10), 1);
    EXPECT_EQ(readFile(archive).size(), text.size());

    const std::string longer = lines(limit + limit / 10 + 1);
    writeFile(archive, longer);
    EXPECT_EQ(trim(archive, 10), 1);
    const std::string kept = readFile(archive);
    EXPECT_LE(kept.size(), limit);
    EXPECT_GT(kept.size(), limit - 128);
    EXPECT_TRUE(longer.ends_with(kept));
    EXPECT_EQ(longer[longer.size() - kept.size() - 1], '\n');
    EXPECT_TRUE(sink.events.empty());
    EXPECT_FALSE(std::filesystem::exists(directory.path("temp")));
}

TEST_F(ArchiveFile, LimitOfOneMegabyteKeepsAtMostThatManyBytesFromJustAfterALineFeed) {
    const std::string text = lines(3000000);
    writeFile(archive, text);
    EXPECT_EQ(trim(archive, 1), 1);
    const std::string kept = readFile(archive);
    EXPECT_LE(kept.size(), 1048576U);
    EXPECT_GT(kept.size(), 1048576U - 128);
    EXPECT_TRUE(text.ends_with(kept));
    EXPECT_EQ(text[text.size() - kept.size() - 1], '\n');
}

TEST_F(ArchiveFile, LineThatBeginsAtTheCutIsDropped) {
    const std::string text = lines(2 << 20); // of 64 bytes each, so one begins at each megabyte
    writeFile(archive, text);
    EXPECT_EQ(trim(archive, 1), 1);
    EXPECT_EQ(readFile(archive), text.substr(text.size() - (1 << 20) + 64));
}

TEST_F(ArchiveFile, LimitOfNoMegabytesOrLessKeepsNothing) {
    for (int limit : {0, -1}) {
        writeFile(archive, "1 3 0 41.27 \n2 3 0 41.30 \n");
        EXPECT_EQ(trim(archive, limit), 1);
        EXPECT_EQ(readFile(archive), "") << limit;
    }
}

TEST_F(ArchiveFile, ArchiveWithoutALineFeedBehindTheCutBecomesEmpty) {
    writeFile(archive, "line\n" + std::string(1200000, 'x'));
    EXPECT_EQ(trim(archive, 1), 1);
    EXPECT_EQ(readFile(archive), "");
}

TEST_F(ArchiveFile, ALinkInTheArchivesPlaceIsNotTrimmed) {
    const std::string real = directory.path("elsewhere.txt");
    const std::string text = lines(2000000);
    writeFile(real, text);
    ASSERT_EQ(::symlink(real.c_str(), archive.c_str()), 0);
    EXPECT_EQ(trim(archive, 1), 1);
    EXPECT_TRUE(std::filesystem::is_symlink(archive));
    EXPECT_EQ(readFile(real), text);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].name, "Cannot Open Database File For Database Trimming");
}

TEST_F(ArchiveFile, PermissionsAndOwnerSurviveTheTrimming) {
    writeFile(archive, lines(2000000));
    ASSERT_EQ(::chmod(archive.c_str(), 0640), 0);
    const bool mayGiveAway = ::geteuid() == 0;
    if (mayGiveAway) {
        ASSERT_EQ(::chown(archive.c_str(), 1234, 2345), 0);
    }
    EXPECT_EQ(trim(archive, 1), 1);
    struct stat state;
    ASSERT_EQ(::stat(archive.c_str(), &state), 0);
    EXPECT_LE(state.st_size, 1048576);
    EXPECT_EQ(state.st_mode & 0777U, 0640U);
    EXPECT_TRUE(!mayGiveAway || (state.st_uid == 1234 && state.st_gid == 2345));
}

TEST_F(ArchiveFile, WorkFileOnAnotherFileSystemIsCopedWith) {
    struct stat here;
    struct stat there;
    if (::stat("/dev/shm", &there) != 0 || ::stat(directory.path().c_str(), &here) != 0 ||
        here.st_dev == there.st_dev)
        GTEST_SKIP() << "no second file system at /dev/shm";
    systemPaths().trimWorkFile = "/dev/shm/lumetra-trim-" + std::to_string(::getpid());
    writeFile(archive + ".new", "somebody's");
    const std::string text = lines(2000000);
    writeFile(archive, text);
    EXPECT_EQ(trim(archive, 1), 1);
    const std::string kept = readFile(archive);
    EXPECT_LE(kept.size(), 1048576U);
    EXPECT_TRUE(text.ends_with(kept));
    EXPECT_GT(kept.size(), 0U);
    EXPECT_FALSE(std::filesystem::exists(systemPaths().trimWorkFile));
    // Nothing else was left in the directory, and a file that only looked like a work file is still there.
    EXPECT_EQ(readFile(archive + ".new"), "somebody's");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2);
}

TEST_F(ArchiveFile, WorkFileThatCannotBeMadeIsReportedAndTheArchiveStays) {
    systemPaths().trimWorkFile = directory.path("missing/temp");
    const std::string text = lines(2000000);
    writeFile(archive, text);
    EXPECT_EQ(trim(archive, 1), 1);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, "Cannot Open Temp File For Database Trimming");
    EXPECT_EQ(readFile(archive), text);
}

TEST_F(ArchiveFile, WorkFileThatFillsUpLeavesTheArchive) {
    const std::string text = lines(2000000);
    writeFile(archive, text);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit limit{500000, 500000};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(trim(archive, 1));
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(readFile(archive), text);
    EXPECT_FALSE(std::filesystem::exists(directory.path("temp")));
    EXPECT_NE(log.text().find("cannot be trimmed: File too large"), std::string::npos) << log.text();
}

TEST_F(ArchiveFile, ADiskWithoutRoomForTheTrimmedArchiveIsNotFilledUp) {
    const int result = withWorkFileOnADisk("size=2200k", [&](const std::string& disk) {
        const std::string text = lines(1300000);
        writeFile(disk + "/archive", text);
        const obrin::Descriptor written(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        ASSERT_GE(::inotify_add_watch(written.get(), disk.c_str(), IN_MODIFY), 0);
        EXPECT_EQ(trim(disk + "/archive", 1), 1);
        char event[sizeof(inotify_event) + NAME_MAX + 1];
        EXPECT_EQ(::read(written.get(), event, sizeof event), -1) << "something was written";
        EXPECT_EQ(readFile(disk + "/archive"), text);
        EXPECT_FALSE(std::filesystem::exists(disk + "/temp"));
        EXPECT_NE(log.text().find("cannot be trimmed: No space left on device"), std::string::npos)
            << log.text();
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount";
}

TEST_F(ArchiveFile, AWorkingDirectoryWithoutRoomDoesNotMatterToAnArchiveElsewhere) {
    const int result = withWorkFileOnADisk("size=64k", [&](const std::string& disk) {
        const std::string text = lines(2000000);
        writeFile(archive, text);
        EXPECT_EQ(trim(archive, 1), 1);
        const std::string kept = readFile(archive);
        EXPECT_LE(kept.size(), 1048576U);
        EXPECT_GT(kept.size(), 1000000U);
        EXPECT_TRUE(text.ends_with(kept));
        EXPECT_FALSE(std::filesystem::exists(disk + "/temp"));
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount";
}

TEST_F(ArchiveFile, ArchiveThatCannotBeOpenedForTrimmingIsReported) {
    const std::string text = lines(2000000);
    writeFile(archive, text);
    openLogFile(); // while there still is a descriptor for it
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(trim(archive, 1), 1);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].name, "Cannot Open Database File For Database Trimming");
    EXPECT_EQ(readFile(archive), text);
}

TEST_F(ArchiveFile, MissingArchiveIsAFatalEventThatNamesIt) {
    EXPECT_EQ(trim(archive, 1), 1);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].name, "Cannot Get Filesize of " + archive);
    EXPECT_EQ(getfilesize(archive), -1);
}

TEST_F(ArchiveFile, SizeBeyondThirtyTwoBitsIsRightAndTheArchiveIsTrimmed) {
    const off_t size = off_t{5} << 30;
    writeFile(archive, "");
    ASSERT_EQ(::truncate(archive.c_str(), size), 0);
    {
        const int fd = ::open(archive.c_str(), O_WRONLY);
        const std::string newest = "\n1700000000 1 0 41.27 \n";
        ASSERT_EQ(::pwrite(fd, newest.data(), newest.size(), size), static_cast<ssize_t>(newest.size()));
        ::close(fd);
    }
    EXPECT_EQ(getfilesize(archive), size + 23);
    EXPECT_EQ(trim(archive, 1), 1);
    EXPECT_EQ(readFile(archive), "1700000000 1 0 41.27 \n");
}

TEST_F(ArchiveFile, DirectoriesAreMadeUpToTheLastSeparator) {
    const std::string base = directory.path("a");
    smart_mkdir(base + "/b/c/");
    EXPECT_TRUE(std::filesystem::is_directory(base + "/b/c"));
    smart_mkdir(base + "/x/y");
    EXPECT_TRUE(std::filesystem::is_directory(base + "/x"));
    EXPECT_FALSE(std::filesystem::exists(base + "/x/y"));
}

TEST_F(ArchiveFile, DirectoriesGetMode0766LessTheUmask) {
    const auto modeUnder = [this](mode_t mask, const std::string& name) {
        const mode_t before = ::umask(mask);
        smart_mkdir(directory.path(name) + "/");
        ::umask(before);
        struct stat state = {};
        EXPECT_EQ(::stat(directory.path(name).c_str(), &state), 0);
        return state.st_mode & 07777U;
    };
    EXPECT_EQ(modeUnder(0, "open"), 0766U);
    EXPECT_EQ(modeUnder(027, "masked"), 0740U);
}

TEST_F(ArchiveFile, EachPrefixOfThePathIsLoggedInOrder) {
    smart_mkdir("/proc/b/c/"); // nothing can be made there, which is ignored
    EXPECT_EQ(log.text(),
              "smart_mkdir: drive is \nsmart_mkdir: directory is /proc/b/c/\nsmart_mkdir: making /proc/\n"
              "smart_mkdir: making /proc/b/\nsmart_mkdir: making /proc/b/c/\n");
}

TEST_F(ArchiveFile, OddPathsForDirectoriesAreHarmless) {
    EXPECT_EQ(smart_mkdir(""), 1);
    EXPECT_EQ(smart_mkdir("/"), 1);
    EXPECT_EQ(smart_mkdir(std::string(100000, 'x') + "/"), 1);
}

} // namespace
} // namespace obrin
