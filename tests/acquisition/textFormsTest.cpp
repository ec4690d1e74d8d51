#include "acquisition/textForms.h"

#include "tests/acquisition/testMachine.h"

#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>

using namespace obrin;
using namespace obrin::test;

TEST(CleanFilename, TurnsADiskIntoAFileNamePart) {
    EXPECT_EQ(cleanfilename("/dev/hda1 /home"), "_dev_hda1__home");
}

TEST(CleanFilename, ReplacesExactlyTheNineCharacters) {
    EXPECT_EQ(cleanfilename("/: *?\"><|"), "_________");
    EXPECT_EQ(cleanfilename("a.b-c_d%n$(x)'\\\t\xff"), "a.b-c_d%n$(x)'\\\t\xff");
    EXPECT_EQ(cleanfilename(""), "");
}

// Before the tests with negative durations: what those leave behind stays for the process.
TEST(Getdays, Of93784SecondsGivesOneDayTwoHoursThreeMinutesAndFourSeconds) {
    EXPECT_EQ(Getdays(93784), "1 day(s) 2 hr(s) 3 min(s) and 4 sec(s)");
    EXPECT_EQ(Getdays(0.999), "0 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
    EXPECT_EQ(Getdays(86399.99), "0 day(s) 23 hr(s) 59 min(s) and 59 sec(s)");
    EXPECT_EQ(Getdays(86400), "1 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
    EXPECT_EQ(Getdays(-0.0), "0 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
}

TEST(Getdays, HugeAndMeaninglessDurationsAreFormattedWithoutHarm) {
    EXPECT_EQ(Getdays(1e300), "9223372036854775807 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
    EXPECT_EQ(Getdays(std::numeric_limits<double>::infinity()),
              "9223372036854775807 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
    EXPECT_EQ(Getdays(std::numeric_limits<double>::quiet_NaN()), "0 day(s) 0 hr(s) 0 min(s) and 0 sec(s)");
}

TEST(Getdays, AfterOneCallWithMinusFiveEveryTextBeginsWithAMinus) {
    CapturedLog log;
    EXPECT_EQ(Getdays(-5), "- 0 day(s) 0 hr(s) 0 min(s) and 5 sec(s)");
    EXPECT_EQ(Getdays(5), "- 0 day(s) 0 hr(s) 0 min(s) and 5 sec(s)");
    EXPECT_EQ(log.text(), "- - ");
}

TEST(Getdays, FormatsOnManyThreadsAtOnce) {
    CapturedLog log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            const std::string expected = "- " + std::to_string(t) + " day(s) 0 hr(s) 0 min(s) and 0 sec(s)";
            for (int i = 0; i < 100; ++i)
                EXPECT_EQ(Getdays(-86400.0 * t - 0.1), expected);
        });
    for (std::thread& thread : threads)
        thread.join();
}
