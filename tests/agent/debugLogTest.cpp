#include "agent/debugLog.h"

#include "support/systemPaths.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <locale.h>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace obrin {
namespace {

using test::CapturedLog;
using test::readFile;
using test::TemporaryDirectory;
using test::writeFile;

TEST(DebugLog, LogOfExactlyTheLimitTakesOneMoreMessageAndTheNextOneLandsAloneInANewLog) {
    CapturedLog log;
    writeFile(systemPaths().log, std::string(logSizeLimit, 'x'));
    DEBUGMSG("still in the old log\n");
    EXPECT_FALSE(std::filesystem::exists(systemPaths().logBackup));
    DEBUGMSG("alone\n");
    EXPECT_EQ(log.text(), "alone\n");
    EXPECT_EQ(readFile(systemPaths().logBackup), std::string(logSizeLimit, 'x') + "still in the old log\n");
}

TEST(DebugLog, LogThatIsReopenedToBeAppendedToIsTurnedOverByItsRealSize) {
    CapturedLog log;
    writeFile(systemPaths().log, std::string(logSizeLimit, 'x'));
    openLogFileAppend();
    DEBUGMSG("+");
    closeLogFile(); // as a run does at its end; a reader's line comes later
    DEBUGMSG("alone\n");
    EXPECT_EQ(log.text(), "alone\n");
    EXPECT_EQ(readFile(systemPaths().logBackup), std::string(logSizeLimit, 'x') + "+");
}

TEST(DebugLog, LogThatOthersLengthenedIsTurnedOverByItsRealSizeWithinASecond) {
    test::TurnedClock clock;
    CapturedLog log;
    DEBUGMSG("ours\n");
    std::filesystem::resize_file(systemPaths().log,
                                 logSizeLimit + 1); // no stream position of ours knows of it
    clock.turn(std::chrono::seconds(1));
    DEBUGMSG("alone\n");
    EXPECT_EQ(log.text(), "alone\n");
    EXPECT_EQ(readFile(systemPaths().logBackup).size(), logSizeLimit + 1U);
}

TEST(DebugLog, OneThatOthersShortenedIsNotTurnedOverBeforeItIsFull) {
    test::TurnedClock clock; // stands still: the size is counted
    CapturedLog log;
    DEBUGMSG("%s\n", std::string(1000, 'x').c_str());
    ASSERT_EQ(::truncate(systemPaths().log.c_str(), 0), 0);
    const std::string line(1999, 'x');
    for (long written = 0; written < logSizeLimit; written += 2000)
        DEBUGMSG("%s\n", line.c_str());
    EXPECT_EQ(log.text().size(), static_cast<std::size_t>(logSizeLimit));
    DEBUGMSG("one more\n");
    EXPECT_FALSE(std::filesystem::exists(systemPaths().logBackup));
    DEBUGMSG("alone\n");
    EXPECT_EQ(log.text(), "alone\n");
}

TEST(DebugLog, SecondBackupReplacesTheFirst) {
    CapturedLog log;
    DEBUGMSG("first\n");
    backupFile();
    DEBUGMSG("second\n");
    backupFile();
    EXPECT_EQ(readFile(systemPaths().logBackup), "second\n");
    EXPECT_EQ(log.text(), "");
}

TEST(DebugLog, MessageBeforeOpenLogFileAppends) {
    CapturedLog log;
    writeFile(systemPaths().log, "before\n");
    DEBUGMSG("after\n");
    EXPECT_EQ(log.text(), "before\nafter\n");
}

TEST(DebugLog, OpenLogFileBeginsAnEmptyLogAndAppendModeKeepsIt) {
    CapturedLog log;
    writeFile(systemPaths().log, "old\n");
    openLogFileAppend();
    DEBUGMSG("new\n");
    closeLogFile();
    EXPECT_EQ(log.text(), "old\nnew\n");
    openLogFile();
    EXPECT_EQ(log.text(), "");
}

TEST(DebugLog, PercentSignInAnArgumentIsConvertedAgainWithNoArgumentBehindIt) {
    CapturedLog log;
    DEBUGMSG("name %s end\n", "a%db%sc%%d");
    EXPECT_EQ(log.text(), "name a0bc%d end\n");
}

TEST(DebugLog, StoringConversionInAnArgumentHurtsNothing) {
    CapturedLog log;
    DEBUGMSG("%s\n", "%n%n%s%s%s%1000000000d%n");
    EXPECT_EQ(log.text().size(), logMessageSize - 1U);
}

TEST(DebugLog, LongMessageIsCut) {
    CapturedLog log;
    const std::string longText(100000, 'y');
    EXPECT_EQ(DEBUGMSG("%s", longText.c_str()), 0);
    EXPECT_EQ(log.text(), std::string(logMessageSize - 1, 'y'));
}

TEST(DebugLog, MissingDirectoryLosesLinesOnlyAndLoggingResumesByItself) {
    CapturedLog log;
    TemporaryDirectory place;
    systemPaths().log = place.path("later/LumetraAgent.log");
    EXPECT_EQ(DEBUGMSG("lost\n"), EOF);
    std::filesystem::create_directory(place.path("later"));
    EXPECT_EQ(DEBUGMSG("kept\n"), 0);
    EXPECT_EQ(log.text(), "kept\n");
}

TEST(DebugLog, ALogThatCannotBeWrittenBreaksNothing) {
    CapturedLog log;
    openLogFile();
    struct rlimit old = {};
    ::getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit none = {0, old.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &none);
    const int first = DEBUGMSG("lost\n");
    const int second = DEBUGMSG("lost too\n");
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(first, EOF);
    EXPECT_EQ(second, EOF);
    EXPECT_EQ(DEBUGMSG("kept\n"), 0);
    EXPECT_EQ(log.text(), "kept\n");
}

TEST(DebugLog, WhatLiesInItsPlaceIsNeitherFollowedNorWaitedFor) {
    CapturedLog log;
    TemporaryDirectory place;
    const std::string victim = place.path("victim");
    const std::string path = systemPaths().log;
    writeFile(victim, "precious");
    for (const bool isLink : {true, false}) {
        ASSERT_EQ(isLink ? ::symlink(victim.c_str(), path.c_str()) : ::mkfifo(path.c_str(), 0600), 0);
        EXPECT_EQ(openLogFile(), isLink ? ELOOP : ENXIO);
        EXPECT_EQ(DEBUGMSG("lost\n"), EOF);
        std::filesystem::remove(path);
    }
    EXPECT_EQ(readFile(victim), "precious");
    EXPECT_EQ(openLogFile(), 0);
    EXPECT_EQ(DEBUGMSG("kept\n"), 0);
    EXPECT_EQ(log.text(), "kept\n");
}

TEST(DebugLog, LogTruncatedByOthersGetsNoHole) {
    CapturedLog log;
    openLogFile();
    DEBUGMSG("a long first message that somebody throws away\n");
    ASSERT_EQ(::truncate(systemPaths().log.c_str(), 0), 0);
    DEBUGMSG("next\n");
    EXPECT_EQ(log.text(), "next\n");
}

TEST(DebugLog, DeletedLogIsMadeAgainWithinASecond) {
    test::TurnedClock clock;
    CapturedLog log;
    openLogFile();
    DEBUGMSG("gone\n");
    std::filesystem::remove(systemPaths().log);
    clock.turn(std::chrono::seconds(1));
    DEBUGMSG("there\n");
    EXPECT_EQ(log.text(), "there\n");
}

TEST(DebugLog, RenamedLogKeepsItsNewNameAndANewOneBeginsWithinASecond) {
    test::TurnedClock clock;
    CapturedLog log;
    for (const bool replaced : {false, true}) {
        openLogFile();
        DEBUGMSG("before\n");
        std::filesystem::rename(systemPaths().log, systemPaths().log + ".1");
        if (replaced)
            writeFile(systemPaths().log, "");
        clock.turn(std::chrono::seconds(1));
        DEBUGMSG("behind\n");
        EXPECT_EQ(log.text(), "behind\n") << replaced;
        EXPECT_EQ(test::readFile(systemPaths().log + ".1"), "before\n") << replaced;
        initLogFile();
    }
}

TEST(DebugLog, BackupThatCannotBeMadeStillBoundsTheLog) {
    CapturedLog log;
    std::filesystem::create_directories(systemPaths().logBackup + "/occupied");
    writeFile(systemPaths().log, std::string(logSizeLimit + 1, 'x'));
    DEBUGMSG("fresh\n");
    EXPECT_EQ(log.text(), "fresh\n");
}

TEST(DebugLog, KeptEventLogHoldsTheTraceSinceTheLastOne) {
    CapturedLog log;
    DEBUGMSG("one\n");
    keepEventLog();
    DEBUGMSG("two\n");
    keepEventLog();
    EXPECT_EQ(readFile(systemPaths().eventLog), "LumetraAgent.log.event saved. Opening new log file.\ntwo\n");
    EXPECT_EQ(log.text(), "LumetraAgent.log.event saved. Opening new log file.\n");
}

TEST(DebugLog, NumbersHaveADecimalPointInAnyLocale) {
    const locale_t comma = ::newlocale(LC_ALL_MASK, "de_DE.UTF-8", locale_t{});
    if (comma == locale_t{})
        GTEST_SKIP() << "no locale de_DE.UTF-8 on this machine";
    CapturedLog log;
    const locale_t before = ::uselocale(comma);
    DEBUGMSG("%.2f\n", 1.5);
    ::uselocale(before);
    ::freelocale(comma);
    EXPECT_EQ(log.text(), "1.50\n");
}

TEST(DebugLog, CloseWithoutAnOpenLogIsHarmless) {
    CapturedLog log;
    EXPECT_EQ(closeLogFile(), 0);
    EXPECT_EQ(DEBUGFLUSH(), 0);
}

TEST(DebugLog, MessagesFromManyThreadsStayWholeAcrossTurnovers) {
    CapturedLog log;
    constexpr int threads = 8;
    constexpr int messages = 2500; // about 1.2 MB together: one turnover
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t)
        writers.emplace_back([t] {
            for (int i = 0; i < messages; ++i)
                DEBUGMSG("thread %d message %04d %s\n", t, i, "0123456789012345678901234567890123456789");
        });
    for (auto& writer : writers)
        writer.join();
    const std::string all = readFile(systemPaths().logBackup) + log.text();
    const std::regex line("thread [0-7] message [0-9]{4} [0-9]{40}");
    std::istringstream lines(all);
    int count = 0;
    for (std::string one; std::getline(lines, one); ++count)
        ASSERT_TRUE(std::regex_match(one, line)) << one;
    EXPECT_EQ(count, threads * messages);
}

} // namespace
} // namespace obrin
