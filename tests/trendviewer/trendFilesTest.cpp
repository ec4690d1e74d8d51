#include "trendviewer/trendFiles.h"

#include "agent/debugLog.h"
#include "agent/stopSync.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

namespace {

int entriesBeforeError = -1; ///< so many entries of directories are read, then no more; -1: without an error

struct dirent* nextEntry(DIR* directory, const char* name) {
    using Readdir = struct dirent* (*)(DIR*);
    if (entriesBeforeError == 0) {
        errno = EIO;
        return nullptr;
    }
    entriesBeforeError -= entriesBeforeError > 0 ? 1 : 0;
    return reinterpret_cast<Readdir>(::dlsym(RTLD_NEXT, name))(directory);
}

} // namespace

// In the C library's place for this program.
extern "C" struct dirent* readdir(DIR* directory) {
    return nextEntry(directory, "readdir");
}

namespace obrin {
namespace {

using namespace std::chrono_literals;

/// Holds the lock on another thread until it is told to let go.
class LockHolder {
public:
    LockHolder() {
        std::promise<void> taken;
        auto ready = taken.get_future();
        thread_ = std::thread([this, &taken] {
            EXPECT_EQ(trendViewerLockFiles(), 0);
            taken.set_value();
            letGo_.get_future().wait();
            trendViewerUnlockFiles();
        });
        ready.wait();
    }
    ~LockHolder() { release(); }
    void release() {
        if (thread_.joinable()) {
            letGo_.set_value();
            thread_.join();
        }
    }

private:
    std::promise<void> letGo_;
    std::thread thread_;
};

class TrendFileLock : public testing::Test {
protected:
    TrendFileLock() { beginExecuting(); }

    /// Another thread lets the lock go in the pause of that number, counted from 1.
    void releaseInPause(LockHolder& holder, int number) {
        clock.onWait([this, &holder, number](const char*, std::chrono::seconds) {
            if (++pauses == number)
                holder.release();
        });
    }

    test::TurnedClock clock;
    int pauses = 0;
};

TEST_F(TrendFileLock, LockHeldElsewhereForLongerThanThreeSecondsIsRefusedAfterThreePausesOfASecond) {
    LockHolder holder;
    EXPECT_EQ(trendViewerLockFiles(), 5);
    EXPECT_EQ(clock.pauses(), (test::TurnedClock::Seconds{1s, 1s, 1s}));
}

TEST_F(TrendFileLock, AFreeLockIsTakenWithoutAPause) {
    EXPECT_EQ(trendViewerLockFiles(), 0);
    EXPECT_EQ(trendViewerUnlockFiles(), 0);
    EXPECT_EQ(clock.pauses(), test::TurnedClock::Seconds{});
}

TEST_F(TrendFileLock, AfterAStopRequestTheLockIsRefusedAtOnceAndNotTouched) {
    pleaseStop();
    EXPECT_EQ(trendViewerLockFiles(), 2);
    beginExecuting();
    EXPECT_EQ(std::async(std::launch::async,
                         [] {
                             const int result = trendViewerLockFiles();
                             trendViewerUnlockFiles();
                             return result;
                         })
                  .get(),
              0);
}

TEST_F(TrendFileLock, LockThatBecomesFreeJustBeforeTheFourthAttemptIsHeldAlthoughTheResultIsFive) {
    LockHolder holder;
    releaseInPause(holder, 3);
    EXPECT_EQ(trendViewerLockFiles(), 5);
    EXPECT_EQ(pauses, 3);
    auto other = std::async(std::launch::async, [] { return trendViewerUnlockFiles(); }); // changes nothing
    EXPECT_EQ(other.get(), 0);
    auto refused = std::async(std::launch::async, [] { return trendViewerLockFiles(); });
    EXPECT_EQ(refused.get(), 5);
    EXPECT_EQ(trendViewerUnlockFiles(), 0);
}

TEST_F(TrendFileLock, LockThatBecomesFreeEarlierIsTakenWithResultZero) {
    for (int number : {1, 2}) {
        LockHolder holder;
        pauses = 0;
        releaseInPause(holder, number);
        EXPECT_EQ(trendViewerLockFiles(), 0);
        EXPECT_EQ(trendViewerUnlockFiles(), 0);
        EXPECT_EQ(pauses, number);
    }
}

TEST_F(TrendFileLock, UnlockByAThreadThatDoesNotHoldItChangesNothing) {
    LockHolder holder;
    EXPECT_EQ(trendViewerUnlockFiles(), 0);
    EXPECT_EQ(trendViewerLockFiles(), 5);
}

using TrendFileLockGuard = TrendFileLock;

/// Whether another thread gets the lock at its first attempt; it gives it back.
bool isFree() {
    return std::async(std::launch::async,
                      [] { return !TrendFileGuard(TrendFileGuard::Patience::none).refused(); })
        .get();
}

TEST_F(TrendFileLockGuard, GivesBackWhatItTookAtTheEndOfItsScopeAlsoWhenAnExceptionEndsThat) {
    try {
        const TrendFileGuard lock;
        EXPECT_FALSE(lock.refused());
        EXPECT_FALSE(isFree());
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
        EXPECT_TRUE(isFree());
    }
}

TEST_F(TrendFileLockGuard, GivesBackTheLockOfTheFourthAttemptAlthoughThatCountsAsARefusal) {
    LockHolder holder;
    releaseInPause(holder, 3);
    {
        const TrendFileGuard lock;
        EXPECT_TRUE(lock.refused());
        EXPECT_FALSE(isFree());
    }
    EXPECT_TRUE(isFree());
}

TEST_F(TrendFileLockGuard, DoesNotGiveBackALockThatItWasRefused) {
    LockHolder holder;
    EXPECT_TRUE(TrendFileGuard().refused());
    EXPECT_EQ(clock.pauses(), (test::TurnedClock::Seconds{1s, 1s, 1s}));
    EXPECT_FALSE(isFree());
}

TEST_F(TrendFileLockGuard, WithoutPatienceItTriesOnceAndDoesNotPause) {
    EXPECT_FALSE(TrendFileGuard(TrendFileGuard::Patience::none).refused());
    LockHolder holder;
    EXPECT_TRUE(TrendFileGuard(TrendFileGuard::Patience::none).refused());
    EXPECT_EQ(clock.pauses(), test::TurnedClock::Seconds{});
}

TEST_F(TrendFileLockGuard, DoesNotGiveBackALockThatItsThreadHadBefore) {
    ASSERT_EQ(trendViewerLockFiles(), 0);
    EXPECT_TRUE(TrendFileGuard(TrendFileGuard::Patience::none).refused());
    EXPECT_FALSE(isFree());
    trendViewerUnlockFiles();
    EXPECT_TRUE(isFree());
}

TEST_F(TrendFileLockGuard, AfterAStopRequestItTakesNothingAndCountsAsNoRefusal) {
    pleaseStop();
    const TrendFileGuard lock;
    EXPECT_FALSE(lock.refused());
    beginExecuting();
    EXPECT_TRUE(isFree());
}

class TrendFileDeletion : public testing::Test {
protected:
    TrendFileDeletion() {
        beginExecuting();
        clasp.DataHomeDirectory = directory.path("");
        link.pClasp = &clasp;
    }
    void make(const std::string& name) { test::writeFile(directory.path(name), "x"); }
    bool exists(const std::string& name) const { return std::filesystem::exists(directory.path(name)); }
    /// The files of all resources or of the one.
    void deleteSynchronized(bool all) {
        if (all)
            deleteTrendFilesSynchronized(&clasp);
        else
            deleteResourceTrendFilesSynchronized(&link);
    }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    test::RecordingSink sink;
    Clasp clasp;
    Link link;
};

TEST_F(TrendFileDeletion, EmptyDataDirectoryIsASuccess) {
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    deleteTrendFilesSynchronized(&clasp);
    EXPECT_EQ(log.text(), "trendFiles: after deleteTrendFiles()  XStatus=1=0x00000001\n");
}

TEST_F(TrendFileDeletion, TrendAndCulpritFilesGoAndOthersStay) {
    for (const char* name : {"aBM.ini", "aBMPRD.gnp", "aBMSMP.gnp", "a.cul", "aBM.ini.new", "a.gnp.new",
                             "a.cul.new", "x.new", "archive.txt", "ini", ".hidden.ini", "x.inix"})
        make(name);
    std::filesystem::create_directory(directory.path("folder.ini"));
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    for (const char* name : {"aBM.ini", "aBMPRD.gnp", "aBMSMP.gnp", "a.cul"})
        EXPECT_FALSE(exists(name)) << name;
    for (const char* name : {"aBM.ini.new", "a.gnp.new", "a.cul.new", "x.new", "archive.txt", "ini",
                             ".hidden.ini", "x.inix", "folder.ini"})
        EXPECT_TRUE(exists(name)) << name;
}

TEST_F(TrendFileDeletion, TheRunsOwnFilesStayUnderAMatchingName) {
    for (const char* name : {"AutoConfig.ini", "resources.ini", "pad.gnp", "archive.cul", "other.ini"})
        make(name);
    clasp.IniFile = directory.path("AutoConfig.ini");
    clasp.ResourceText = directory.path("./resources.ini");
    clasp.ScratchPad = directory.path("pad.gnp");
    clasp.HardDriveArchive = directory.path("archive.cul");
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    for (const char* name : {"AutoConfig.ini", "resources.ini", "pad.gnp", "archive.cul"})
        EXPECT_TRUE(exists(name)) << name;
    EXPECT_FALSE(exists("other.ini"));
}

TEST_F(TrendFileDeletion, EmptyHomeDirectoryTextDeletesNothing) {
    clasp.DataHomeDirectory = "";
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    EXPECT_EQ(deleteResourceTrendFiles(&link), 1);
}

TEST_F(TrendFileDeletion, MissingHomeDirectoryIsNoError) {
    clasp.DataHomeDirectory = directory.path("none/");
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    EXPECT_TRUE(sink.events.empty());
}

TEST_F(TrendFileDeletion, OneResourcesFilesGoAndItsNeighboursStay) {
    link.NameIs.assign("PercentFreeSpaceUsed");
    link.Descriptor1.assign("/dev/sda1 /home");
    for (const char* name :
         {"PercentFreeSpaceUsed_dev_sda1__homeBM.ini", "PercentFreeSpaceUsed_dev_sda1__homeBMPRD.gnp",
          "PercentFreeSpaceUsed_dev_sda1__homeBMSMP.gnp", "PercentFreeSpaceUsed_dev_sda1__home2BM.ini",
          "PercentFreeInodesUsed_dev_sda1__homeBM.ini", "PercentFreeSpaceUsed.cul",
          "PercentFreeSpaceUsed_dev_sda1__home.cul"})
        make(name);
    deleteResourceTrendFilesSynchronized(&link);
    EXPECT_FALSE(exists("PercentFreeSpaceUsed_dev_sda1__homeBM.ini"));
    EXPECT_FALSE(exists("PercentFreeSpaceUsed_dev_sda1__homeBMPRD.gnp"));
    EXPECT_FALSE(exists("PercentFreeSpaceUsed_dev_sda1__homeBMSMP.gnp"));
    EXPECT_TRUE(exists("PercentFreeSpaceUsed_dev_sda1__home2BM.ini"));
    EXPECT_TRUE(exists("PercentFreeInodesUsed_dev_sda1__homeBM.ini"));
    EXPECT_TRUE(exists("PercentFreeSpaceUsed.cul"));
    EXPECT_TRUE(exists("PercentFreeSpaceUsed_dev_sda1__home.cul"));
    EXPECT_EQ(log.text(), "");
}

TEST_F(TrendFileDeletion, BothDeletionsAwaitAReaderAndLeaveTheLockFree) {
    link.NameIs.assign("a");
    for (bool all : {true, false}) {
        make("aBM.ini");
        test::TurnedClock clock;
        LockHolder reader;
        int pauses = 0;
        clock.onWait([&](const char*, std::chrono::seconds) {
            EXPECT_TRUE(exists("aBM.ini"));
            if (++pauses == 2)
                reader.release();
        });
        deleteSynchronized(all);
        EXPECT_EQ(pauses, 2);
        EXPECT_FALSE(exists("aBM.ini"));
        const LockHolder next; // which expects to get it
        EXPECT_EQ(pauses, 2);
    }
}

TEST_F(TrendFileDeletion, AReaderThatKeepsTheLockPreventsNeitherDeletionAndStillHasIt) {
    link.NameIs.assign("a");
    for (bool all : {true, false}) {
        make("aBM.ini");
        test::TurnedClock clock;
        const LockHolder reader;
        deleteSynchronized(all);
        EXPECT_FALSE(exists("aBM.ini"));
        EXPECT_EQ(trendViewerLockFiles(), 5);
    }
}

TEST_F(TrendFileDeletion, ShellCharactersInNamesAreTextAndNothingElse) {
    make("victim");
    link.NameIs.assign("a; rm -f " + directory.path("victim") + " $(touch pwned) *");
    link.Descriptor1.assign("`touch pwned` *");
    EXPECT_EQ(deleteResourceTrendFiles(&link), 1);
    EXPECT_TRUE(exists("victim"));
    link.NameIs.assign("$(x) & *");
    make("$(x) & *`touch_pwned`__BM.ini");
    EXPECT_EQ(deleteResourceTrendFiles(&link), 1);
    EXPECT_FALSE(exists("$(x) & *`touch_pwned`__BM.ini"));
    EXPECT_TRUE(exists("victim"));
}

TEST_F(TrendFileDeletion, DisplayNameCannotLeadOutOfTheDataDirectory) {
    std::filesystem::create_directory(directory.path("data"));
    clasp.DataHomeDirectory = directory.path("data/");
    make("outsideBM.ini");
    link.NameIs.assign("../outside");
    EXPECT_EQ(deleteResourceTrendFiles(&link), 1);
    EXPECT_TRUE(exists("outsideBM.ini"));
}

/// Runs a step while there is no descriptor to be had but the log's, which is opened before.
template <class Step>
void withoutDescriptors(Step step) {
    openLogFile();
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    step();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(TrendFileDeletion, WithoutDescriptorsTheFailureForOneResourceIsLoggedAndReported) {
    link.NameIs.assign("PercentFreeSpaceUsed");
    link.Descriptor1.assign("/dev/sda1 /home");
    withoutDescriptors([this] { deleteResourceTrendFilesSynchronized(&link); });
    const std::string text = "trendFiles deleteResourceTrendFiles(): system(\"rm -f " +
                             clasp.DataHomeDirectory +
                             "PercentFreeSpaceUsed_dev_sda1__homeBM*\") failed.  errno=24=0x00000018";
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, text);
    EXPECT_EQ(sink.events[0].seconds, 0.0);
    EXPECT_TRUE(log.text().starts_with("\n" + text + "\n\nstart sendEvent fatal ")) << log.text();
    EXPECT_TRUE(log.text().ends_with("\ntrendFiles deleteResourceTrendFiles(): before return(errno);\n"
                                     "Failure of deleteResourceTrendFiles. Error Code 24.\n"))
        << log.text();
}

TEST_F(TrendFileDeletion, AListingThatFailsIsLoggedAndTheFilesOfTheResourceGoAllTheSame) {
    link.NameIs.assign("Space");
    link.Descriptor1.assign("/dev/a /a");
    const std::vector<std::string> names = {"Space_dev_a__aBM.ini", "Space_dev_a__aBMPRD.gnp",
                                            "Space_dev_a__aBMSMP.gnp"};
    const auto check = [&](const char* how, auto&& withoutListing) {
        SCOPED_TRACE(how);
        for (const std::string& name : names)
            make(name);
        make("Space_dev_b__bBM.ini");
        const std::size_t logged = log.text().size();
        sink.events.clear();
        withoutListing();
        for (const std::string& name : names)
            EXPECT_FALSE(exists(name)) << name;
        EXPECT_TRUE(exists("Space_dev_b__bBM.ini"));
        EXPECT_EQ(sink.events.size(), 1U);
        EXPECT_NE(log.text().find("Failure of deleteResourceTrendFiles. Error Code ", logged),
                  std::string::npos);
    };
    check("no descriptor",
          [this] { withoutDescriptors([this] { deleteResourceTrendFilesSynchronized(&link); }); });
    for (const int entries : {0, 1, 3})
        check("an error on the way", [&] {
            entriesBeforeError = entries;
            deleteResourceTrendFilesSynchronized(&link);
            entriesBeforeError = -1;
        });
    EXPECT_NE(log.text().find("Error Code 5.\n"), std::string::npos);
}

TEST_F(TrendFileDeletion, AListingOfAllThatFailsIsLoggedAndReported) {
    make("aBM.ini");
    entriesBeforeError = 2;
    EXPECT_EQ(deleteTrendFiles(&clasp), EIO);
    entriesBeforeError = -1;
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_TRUE(sink.events[0].name.ends_with("failed.  errno=5=0x00000005")) << sink.events[0].name;
    EXPECT_EQ(deleteTrendFiles(&clasp), 1);
    EXPECT_FALSE(exists("aBM.ini"));
}

TEST_F(TrendFileDeletion, WithoutDescriptorsTheFailureIsLoggedAndReported) {
    withoutDescriptors([this] { deleteTrendFilesSynchronized(&clasp); });
    const std::string home = clasp.DataHomeDirectory;
    const std::string text = "deleteTrendFiles(): system(\"rm -f " + home + "/*.cul " + home + "/*.ini " +
                             home + "/*.gnp\") failed.  errno=24=0x00000018";
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, text);
    EXPECT_NE(log.text().find("\n" + text + "\n\n"), std::string::npos) << log.text();
    EXPECT_NE(log.text().find("trendFiles deleteTrendFiles(): before return(errno);\n"
                              "trendFiles: after deleteTrendFiles()  XStatus=24=0x00000018\n"
                              "Failure of deleteTrendFiles. Error Code 24...exiting.\n"
                              "trendFiles main(): before return;\n"),
              std::string::npos)
        << log.text();
}

} // namespace
} // namespace obrin
