#include "support/clock.h"

#include "tests/support/turnedClock.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

using namespace obrin;
using namespace obrin::test;
using namespace std::chrono_literals;

namespace {

pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

/// A wait on the condition that another thread wakes with `wake`, once the wait has begun.
template <class Wake>
int wokenWait(Clock::Duration time, Wake wake) {
    ::pthread_mutex_lock(&mutex);
    std::thread waker([&] {
        ::pthread_mutex_lock(&mutex); // free once the wait has begun
        ::pthread_mutex_unlock(&mutex);
        wake();
    });
    const int result = systemClock().waitUntil(&condition, &mutex, systemClock().now() + time);
    ::pthread_mutex_unlock(&mutex);
    waker.join();
    return result;
}

int broadcast() {
    ::pthread_mutex_lock(&mutex);
    const int result = ::pthread_cond_broadcast(&condition);
    ::pthread_mutex_unlock(&mutex);
    return result;
}

int uselessWait(Clock::Duration time) {
    ::pthread_mutex_lock(&mutex);
    const int result = systemClock().waitUntil(&condition, &mutex, systemClock().now() + time);
    ::pthread_mutex_unlock(&mutex);
    return result;
}

} // namespace

TEST(RealClock, IsTheTimeOfTheMachine) {
    const std::time_t before = std::time(nullptr);
    const std::time_t wall = systemClock().wallTime();
    EXPECT_GE(wall, before - 1); // the coarse clock of the C library may lag by a tick
    EXPECT_LE(wall, std::time(nullptr) + 1);
    const Clock::Moment begin = std::chrono::steady_clock::now();
    const Clock::Moment now = systemClock().now();
    EXPECT_GE(now, begin);
    EXPECT_LE(now, std::chrono::steady_clock::now());
}

TEST(RealClock, BothTimesAreReadAtOnce) {
    const std::time_t before = std::time(nullptr);
    const Clock::Moment begin = std::chrono::steady_clock::now();
    const Clock::Reading reading = systemClock().read();
    constexpr auto tick = 20ms;
    EXPECT_GE(reading.wall, std::chrono::seconds(before) - tick);
    EXPECT_LE(reading.wall, std::chrono::seconds(std::time(nullptr) + 1) + tick);
    EXPECT_GE(reading.steady, begin - tick);
    EXPECT_LE(reading.steady, std::chrono::steady_clock::now());
}

TEST(RealClock, APauseLastsItsTime) {
    const Clock::Moment begin = systemClock().now();
    systemClock().pause(1s);
    EXPECT_GE(systemClock().now() - begin, 1s);
}

TEST(RealClock, AWaitEndsAtItsDeadline) {
    const Clock::Moment begin = systemClock().now();
    int result = 0;
    while (result == 0) // it may wake without a cause
        result = uselessWait(begin + 20ms - systemClock().now());
    EXPECT_EQ(result, ETIMEDOUT);
    EXPECT_GE(systemClock().now() - begin, 20ms);
}

TEST(RealClock, ADeadlineThatHasPassedEndsAWaitAtOnce) {
    EXPECT_EQ(uselessWait(0s), ETIMEDOUT);
    EXPECT_EQ(uselessWait(-1500ms), ETIMEDOUT);
    EXPECT_EQ(uselessWait(-systemClock().now().time_since_epoch() - 1ms), ETIMEDOUT);
}

TEST(RealClock, AWaitCanBeWoken) {
    EXPECT_EQ(wokenWait(24h, broadcast), 0);
}

TEST(TurnedClockTest, StandsUntilItIsTurnedAndGoesWithIt) {
    {
        TurnedClock clock;
        const Clock::Moment begin = systemClock().now();
        const std::time_t wall = systemClock().wallTime();
        EXPECT_EQ(systemClock().now(), begin);
        clock.turn(2500ms);
        EXPECT_EQ(systemClock().now() - begin, 2500ms);
        EXPECT_EQ(systemClock().wallTime(), wall + 2);
        clock.setWallTime(wall - 86400);
        EXPECT_EQ(systemClock().wallTime(), wall - 86400);
        EXPECT_EQ(systemClock().now() - begin, 2500ms);
    }
    EXPECT_EQ(dynamic_cast<TurnedClock*>(&systemClock()), nullptr) << "the real one again";
}

TEST(TurnedClockTest, PausesAndSleepsTakeNoTimeAndAreKept) {
    TurnedClock clock;
    const Clock::Moment begin = systemClock().now();
    systemClock().pause(3600s);
    EXPECT_EQ(uselessWait(86400s), ETIMEDOUT);
    EXPECT_EQ(systemClock().now() - begin, 90000s);
    EXPECT_EQ(clock.pauses(), TurnedClock::Seconds{3600s});
    EXPECT_EQ(clock.sleeps(), TurnedClock::Seconds{86400s});
}

TEST(TurnedClockTest, AHeldSleepLastsUntilItIsWokenOrTheClockIsTurnedFarEnough) {
    TurnedClock clock;
    clock.holdSleeps();
    EXPECT_EQ(wokenWait(60s, broadcast), 0);
    EXPECT_EQ(wokenWait(60s, [&] { clock.turn(60s); }), ETIMEDOUT);
    EXPECT_EQ(wokenWait(60s, [&] { clock.turn(59s); }), 0) << "woken without a cause, as a wait may be";
    EXPECT_EQ(uselessWait(0s), ETIMEDOUT);
}
