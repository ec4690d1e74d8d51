#include "agent/stopSync.h"

#include "tests/support/temporaryDirectory.h"
#include "tests/support/timeZone.h"
#include "tests/support/turnedClock.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace obrin {
namespace {

using namespace std::chrono_literals;
using test::TurnedClock;

/// Returns once a sleep has begun; a stop request that follows falls into it.
void awaitSleep(TurnedClock& clock) {
    while (clock.sleeps().empty())
        std::this_thread::yield();
}

TEST(StopSync, SleepOfZeroSecondsTimesOutAtOnceAndLogsNothing) {
    test::CapturedLog log;
    TurnedClock clock;
    clock.holdSleeps();
    beginExecuting();
    EXPECT_EQ(javaThreadSyncSleep(0), ETIMEDOUT);
    EXPECT_EQ(log.text(), "");
}

TEST(StopSync, NegativeSleepTimesOutAtOnce) {
    EXPECT_EQ(javaThreadSyncSleep(-5), ETIMEDOUT);
}

TEST(StopSync, StopRequestEndsALongSleepWithResultZero) {
    TurnedClock clock;
    clock.holdSleeps();
    beginExecuting();
    std::thread stopper([&] {
        awaitSleep(clock);
        pleaseStop();
    });
    EXPECT_EQ(javaThreadSyncSleep(60), 0);
    stopper.join();
    EXPECT_EQ(clock.sleeps(), TurnedClock::Seconds{60s});
    EXPECT_EQ(continueExecuting, 0);
    EXPECT_TRUE(stopRequested());
}

TEST(StopSync, StopRequestWithoutASleepInProgressWaitsForTheNextFullSleep) {
    TurnedClock clock;
    beginExecuting();
    pleaseStop();
    EXPECT_EQ(javaThreadSyncSleep(240), ETIMEDOUT);
    EXPECT_EQ(clock.sleeps(), TurnedClock::Seconds{240s});
}

TEST(StopSync, AWakeUpWithoutAStopRequestDoesNotEndTheSleep) {
    TurnedClock clock;
    clock.holdSleeps();
    beginExecuting();
    std::atomic<bool> ended{false};
    std::thread turner([&] {
        for (std::size_t i = 1; i <= 3 && !ended; ++i) {
            while (clock.sleeps().size() < i && !ended)
                std::this_thread::yield();
            clock.turn(20s);
        }
    });
    EXPECT_EQ(javaThreadSyncSleep(60), ETIMEDOUT);
    ended = true;
    turner.join();
    EXPECT_EQ(clock.sleeps(), (TurnedClock::Seconds{60s, 40s, 20s}));
}

/// A clock whose waits fail with that error number.
class FailingClock : public TurnedClock {
public:
    explicit FailingClock(int error) : error_(error) {}
    int waitUntil(pthread_cond_t*, pthread_mutex_t*, Moment) override { return error_; }

private:
    int error_;
};

TEST(StopSync, AWaitThatFailsEndsTheSleepAndIsLoggedWithItsErrorAndTheTimeOfDay) {
    test::CapturedLog log;
    FailingClock clock(EINVAL);
    const test::TimeZone zone(test::tellingZone);
    clock.setWallTime(test::tellingMoment);
    beginExecuting();
    EXPECT_EQ(javaThreadSyncSleep(240), EINVAL);
    EXPECT_EQ(log.text(), "javaThreadSyncSleep(240) returned 22=0x00000016 (ERROR). "
                          "timeOfDay=Sat Feb 14 04:31:30 2009\n");
}

TEST(StopSync, AnInterruptedWaitEndsTheSleepAndIsNotLogged) {
    test::CapturedLog log;
    FailingClock clock(EINTR);
    beginExecuting();
    EXPECT_EQ(javaThreadSyncSleep(240), EINTR);
    EXPECT_EQ(log.text(), "");
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
    TurnedClock clock;
    clock.holdSleeps();
    beginExecuting();
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 8; ++i)
        stoppers.emplace_back([&] {
            awaitSleep(clock);
            pleaseStop();
        });
    EXPECT_EQ(javaThreadSyncSleep(60), 0);
    for (auto& stopper : stoppers)
        stopper.join();
}

} // namespace
} // namespace obrin
