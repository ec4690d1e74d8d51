#include "resources/windowSizing.h"

#include "tests/resources/chainFixture.h"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>

namespace obrin::test {
namespace {

using ::testing::HasSubstr;

class WindowSizing : public ChainTest {
protected:
    Link* add(double window) {
        Link link = makeLink(1, std::to_string(clasp.MaximumRIDValue));
        link.WindowSize = window;
        link.RID = clasp.MaximumRIDValue + 1;
        EXPECT_EQ(CreateLinkInChainAndCopyData(&link), 1);
        return clasp.pLastLink;
    }
};

TEST(WindowSamples, AreTruncatedAndNeverBelowOne) {
    EXPECT_EQ(windowSamples(4.8, 57600), 300U);
    EXPECT_EQ(windowSamples(0.5, 7000), 257U);
    EXPECT_EQ(windowSamples(0.0, 1000), 1U);
    EXPECT_EQ(windowSamples(1e-9, 1000), 1U);
    EXPECT_EQ(windowSamples(12, -1), 1U);
    EXPECT_EQ(windowSamples(-5, 1000), 1U);
}

TEST(WindowSamples, ImpossibleRingsCannotBeHad) {
    EXPECT_EQ(windowSamples(4.8, 0), std::nullopt);
    EXPECT_EQ(windowSamples(0, 0), std::nullopt);
    EXPECT_EQ(windowSamples(1e300, 1), std::nullopt);
    EXPECT_EQ(windowSamples(std::nan(""), 1000), std::nullopt);
    EXPECT_EQ(windowSamples(std::numeric_limits<double>::infinity(), 1000), std::nullopt);
    EXPECT_EQ(windowSamples(4294967296.0 / 3600, 1000), std::nullopt);
    EXPECT_EQ(windowSamples(4294967295.0 / 3600, 1000), 4294967295U);
}

TEST_F(WindowSizing, AnAutomaticWindowIsATenthOfTheForecastAndSetsThePeriod) {
    Link* link = add(-1);
    EXPECT_EQ(AutoSizeWindows(&clasp), 1);
    EXPECT_DOUBLE_EQ(link->WindowSize, 4.8);
    EXPECT_EQ(clasp.MillisecondsPerSample, 57600);
    EXPECT_THAT(log.text(), HasSubstr("minwindowsize = 4.800000, msecpersample = 57600\n"));
}

TEST_F(WindowSizing, TheLongestWindowHoldsThreeHundredSamples) {
    add(-1);
    add(24);
    add(1);
    AutoSizeWindows(&clasp);
    EXPECT_EQ(clasp.MillisecondsPerSample, 288000);
}

TEST_F(WindowSizing, AGivenPeriodAndAWindowOfZeroStay) {
    clasp.MillisecondsPerSample = 10000;
    Link* link = add(0);
    AutoSizeWindows(&clasp);
    EXPECT_EQ(clasp.MillisecondsPerSample, 10000);
    EXPECT_EQ(link->WindowSize, 0);
    clasp.MillisecondsPerSample = -2; // only -1 asks for a choice
    AutoSizeWindows(&clasp);
    EXPECT_EQ(clasp.MillisecondsPerSample, -2);
}

TEST_F(WindowSizing, AnEmptyChainAndHugeWindowsDoNotOverflowThePeriod) {
    EXPECT_EQ(AutoSizeWindows(&clasp), 1);
    EXPECT_EQ(clasp.MillisecondsPerSample, 0);
    clasp.MillisecondsPerSample = -1;
    add(1e9);
    EXPECT_EQ(AutoSizeWindows(&clasp), 1);
    EXPECT_EQ(clasp.MillisecondsPerSample, 2147483647);
}

TEST_F(WindowSizing, AWindowShorterThanThePeriodIsResetAndLoggedTwice) {
    clasp.MillisecondsPerSample = 600000;
    Link* link = add(0.1);
    EXPECT_EQ(SanityCheckChain(&clasp), -2);
    EXPECT_DOUBLE_EQ(link->WindowSize, 4.8);
    EXPECT_EQ(log.text(), "***Error: Sample interval of 600.00 sec is greater than window size of 360.00 sec "
                          "for 0 instance counter"
                          ">>>>>>Setting window size to 17280.00 sec\n");
}

TEST_F(WindowSizing, EveryWindowShorterThanThePeriodIsReset) {
    clasp.MillisecondsPerSample = 600000;
    Link* first = add(0.1);
    Link* good = add(1);
    Link* last = add(0.1);
    EXPECT_EQ(SanityCheckChain(&clasp), -2);
    EXPECT_DOUBLE_EQ(first->WindowSize, 4.8);
    EXPECT_DOUBLE_EQ(good->WindowSize, 1);
    EXPECT_DOUBLE_EQ(last->WindowSize, 4.8);
}

TEST_F(WindowSizing, APlanIsWhatARunMakesOfItsChain) {
    const double endless = std::numeric_limits<double>::infinity();
    const std::vector<double> declared = {-1, 0, 0.001, 0.5, 5, 12, 1e4, endless, -endless, std::nan("")};
    for (const std::int32_t period : {-2, -1, 0, 60000, 20000000}) {
        clasp.MillisecondsPerSample = period;
        const WindowPlan plan = planWindows(declared, period, clasp.MaxForecastHours);
        ASSERT_EQ(plan.windows.size(), declared.size());
        std::vector<Link> chain(declared.size());
        Link* previous = nullptr;
        for (std::size_t i = 0; i < declared.size(); ++i) {
            chain[i].WindowSize = declared[i];
            chain[i].pClasp = &clasp;
            std::unique_ptr<Link> copy;
            const bool takenUp = CreateAndCopyType2Resource(&copy, &chain[i]) == 1;
            EXPECT_EQ(plan.windows[i].fate != WindowFate::tooLong, takenUp) << period << " " << declared[i];
            if (!takenUp)
                continue;
            (previous == nullptr ? clasp.pFirstLink : previous->pNextLink) = &chain[i];
            previous = &chain[i];
        }
        AutoSizeWindows(&clasp);
        SanityCheckChain(&clasp);
        EXPECT_EQ(plan.millisecondsPerSample, clasp.MillisecondsPerSample);
        EXPECT_DOUBLE_EQ(plan.automaticHours, 4.8);
        EXPECT_EQ(plan.automaticSamples, windowSamples(4.8, clasp.MillisecondsPerSample));
        for (std::size_t i = 0; i < declared.size(); ++i) {
            if (plan.windows[i].fate == WindowFate::tooLong)
                continue;
            EXPECT_EQ(plan.windows[i].samples,
                      windowSamples(chain[i].WindowSize, clasp.MillisecondsPerSample))
                << period << " " << declared[i];
            const bool stays = chain[i].WindowSize == declared[i] || std::isnan(declared[i]);
            EXPECT_EQ(plan.windows[i].fate == WindowFate::own, stays) << period << " " << declared[i];
            EXPECT_EQ(plan.windows[i].fate == WindowFate::automatic, declared[i] < 0);
        }
        clasp.pFirstLink = nullptr;
    }
}

TEST_F(WindowSizing, AWindowOfExactlyOnePeriodStays) {
    clasp.MillisecondsPerSample = 3600000;
    Link* link = add(1);
    EXPECT_EQ(SanityCheckChain(&clasp), 1);
    EXPECT_EQ(link->WindowSize, 1);
    EXPECT_EQ(log.text(), "");
}

} // namespace
} // namespace obrin::test
