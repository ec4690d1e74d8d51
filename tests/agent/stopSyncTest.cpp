#include "agent/stopSync.h"

#include "tests/support/temporaryDirectory.h"

#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace obrin {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

TEST(StopSync, SleepOfZeroSecondsTimesOutAtOnceAndLogsNothing) {
    test::CapturedLog log;
    beginExecuting();
    const auto start = Clock::now();
    EXPECT_EQ(javaThreadSyncSleep(0), ETIMEDOUT);
    EXPECT_LT(Clock::now() - start, 500ms);
    EXPECT_EQ(log.text(), "");
}

TEST(StopSync, NegativeSleepTimesOutAtOnce) {
    EXPECT_EQ(javaThreadSyncSleep(-5), ETIMEDOUT);
}

TEST(StopSync, StopRequestEndsALongSleepWithinAMomentWithResultZero) {
    beginExecuting();
    const auto start = Clock::now();
    std::thread stopper([] {
        std::this_thread::sleep_for(50ms);
        pleaseStop();
    });
    EXPECT_EQ(javaThreadSyncSleep(60), 0);
    EXPECT_LT(Clock::now() - start, 5s);
    stopper.join();
    EXPECT_EQ(continueExecuting, 0);
    EXPECT_TRUE(stopRequested());
}

TEST(StopSync, StopRequestWithoutASleepInProgressWaitsForTheNextFullSleep) {
    beginExecuting();
    pleaseStop();
    const auto start = Clock::now();
    EXPECT_EQ(javaThreadSyncSleep(1), ETIMEDOUT);
    EXPECT_GE(Clock::now() - start, 990ms);
}

TEST(StopSync, SecondStopRequestChangesNothingAndReturnsZero) {
    beginExecuting();
    EXPECT_EQ(pleaseStop(), 0);
    EXPECT_EQ(pleaseStop(), 0);
    EXPECT_EQ(continueExecuting, 0);
}

TEST(StopSync, ANewRunBeginsExecutingAgain) {
    pleaseStop();
    beginExecuting();
    EXPECT_FALSE(stopRequested());
}

TEST(StopSync, ManyThreadsMayStopTheSameSleep) {
    beginExecuting();
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 8; ++i)
        stoppers.emplace_back([] {
            std::this_thread::sleep_for(30ms);
            pleaseStop();
        });
    EXPECT_EQ(javaThreadSyncSleep(60), 0);
    for (auto& stopper : stoppers)
        stopper.join();
}

} // namespace
} // namespace obrin
