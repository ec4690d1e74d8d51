#include "support/clockSteps.h"

#include "tests/support/turnedClock.h"

#include <gtest/gtest.h>

using namespace obrin;
using namespace obrin::test;
using namespace std::chrono_literals;

namespace {

constexpr std::int32_t minute = 60'000;
constexpr std::time_t start = 1'700'000'000;

class ClockStepsTest : public testing::Test {
protected:
    ClockStepsTest() {
        clock.setWallTime(start);
        steps.look(minute);
    }

    /// A minute goes by, in which somebody sets the clock by so many seconds.
    std::int64_t stepAfter(std::int64_t seconds) {
        clock.turn(1min);
        clock.setWallTime(systemClock().wallTime() + seconds);
        return steps.look(minute).step;
    }

    TurnedClock clock;
    ClockSteps steps;
};

} // namespace

TEST(ClockStepsDrift, TwoPeriodsAndASecondAreTolerated) {
    EXPECT_EQ(toleratedDrift(minute), 121.0);
    EXPECT_EQ(toleratedDrift(250), 1.5);
    EXPECT_EQ(toleratedDrift(-1), 1.0);
}

TEST_F(ClockStepsTest, TimeThatGoesByIsNoStep) {
    clock.turn(60s);
    const ClockSteps::Look look = steps.look(minute);
    EXPECT_EQ(look.wall, start + 60);
    EXPECT_EQ(look.step, 0);
    clock.turn(365 * 24h); // a cycle that hung
    EXPECT_EQ(steps.look(minute).step, 0);
}

TEST_F(ClockStepsTest, TheFirstLookKnowsOfNoStep) {
    clock.setWallTime(5);
    ClockSteps fresh;
    EXPECT_EQ(fresh.look(minute).step, 0);
}

TEST_F(ClockStepsTest, AStepEitherWayIsTheDifferenceToTheTimeThatWentBy) {
    EXPECT_EQ(stepAfter(86'400), 86'400);
    EXPECT_EQ(stepAfter(-3'600), -3'600);
    EXPECT_EQ(stepAfter(500'000'000), 500'000'000);
    EXPECT_EQ(steps.total(), 86'400 - 3'600 + 500'000'000);
    EXPECT_EQ(stepAfter(0), 0);
}

TEST_F(ClockStepsTest, AsLittleAsTwoPeriodsIsNone) {
    EXPECT_EQ(stepAfter(121), 0);
    EXPECT_EQ(stepAfter(-121), 0);
    EXPECT_EQ(stepAfter(122), 122);
    EXPECT_EQ(stepAfter(-122), -122);
}

TEST_F(ClockStepsTest, WhatIsSlewedNeverAddsUpToAStep) {
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(stepAfter(1), 0) << i;
    EXPECT_EQ(steps.total(), 0);
}
