#include "prediction/eventDelivery.h"

#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "support/systemPaths.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/timeZone.h"
#include "tests/support/turnedClock.h"

#include <gtest/gtest.h>
#include <string>

namespace obrin {
namespace {

TEST(EventDelivery, FatalConditionReachesTheSinkWithItsMessageInTheNamesPlace) {
    test::CapturedLog log;
    test::RecordingSink sink;
    error_exit("fatal", "Call To predictor Failed");
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].seconds, 0.0);
    EXPECT_EQ(sink.events[0].name, "Call To predictor Failed");
    EXPECT_EQ(sink.events[0].instance, "Null");
    EXPECT_EQ(sink.events[0].culprit, "<absent>");
    EXPECT_TRUE(log.text().starts_with("start sendEvent fatal 0.000000 Call To predictor Failed (null)\n"))
        << log.text();
}

TEST(EventDelivery, AcceptedEventKeepsTheTraceThatLedUpToItAndBeginsANewLog) {
    test::CapturedLog log;
    test::RecordingSink sink;
    sink.accepts = true;
    DEBUGMSG("before\n");
    EXPECT_EQ(sendEvent("1 day(s)", 86400.0, "Swap", "here", "java(1)2"), 1);
    EXPECT_EQ(log.text(), "LumetraAgent.log.event saved. Opening new log file.\n");
    const std::string kept = test::readFile(systemPaths().eventLog);
    EXPECT_TRUE(kept.starts_with("before\nstart sendEvent 1 day(s) 86400.000000 Swap here\n"
                                 "EXHAUSTION will occur within 1 day(s)\tfrom "))
        << kept;
}

TEST(EventDelivery, RefusedEventLeavesTheLogAsItIs) {
    test::CapturedLog log;
    test::RecordingSink sink;
    DEBUGMSG("before\n");
    EXPECT_EQ(sendEvent("soon", 1.0, nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(log.text().starts_with("before\nstart sendEvent soon 1.000000 (null) (null)\n"));
    EXPECT_EQ(sink.events[0].name, "<absent>");
}

TEST(EventDelivery, LogNamesTheLocalTimeBeforeTheDateAndTheMonthBeforeTheDay) {
    const test::TimeZone zone(test::tellingZone);
    test::TurnedClock clock;
    clock.setWallTime(test::tellingMoment);
    test::CapturedLog log;
    test::RecordingSink sink;
    sendEvent("soon", 1.0, "Swap", "here", nullptr);
    EXPECT_EQ(log.text(), "start sendEvent soon 1.000000 Swap here\n"
                          "EXHAUSTION will occur within soon\tfrom 04:31:30 02/14/2009\n");
}

TEST(EventDelivery, SecondOfTwoAcceptedEventsReplacesTheEventLogWithTheTraceSinceTheFirst) {
    test::CapturedLog log;
    test::RecordingSink sink;
    sink.accepts = true;
    const std::string saved = "LumetraAgent.log.event saved. Opening new log file.\n";
    DEBUGMSG("before\n");
    EXPECT_EQ(sendEvent("soon", 2.0, "Swap", "here", nullptr), 1);
    DEBUGMSG("between\n");
    EXPECT_EQ(sendEvent("sooner", 1.0, "Swap", "here", nullptr), 1);
    EXPECT_EQ(log.text(), saved);
    const std::string kept = test::readFile(systemPaths().eventLog);
    const std::string trace = saved + "between\nstart sendEvent sooner 1.000000 Swap here\n"
                                      "EXHAUSTION will occur within sooner\tfrom ";
    ASSERT_TRUE(kept.starts_with(trace)) << kept;
    EXPECT_EQ(kept.find('\n', trace.size()), kept.size() - 1) << kept;
}

TEST(EventDelivery, WithoutASinkEveryEventIsRefused) {
    test::CapturedLog log;
    EXPECT_EQ(sendEvent("soon", 1.0, "name", nullptr, nullptr), 0);
}

TEST(EventDelivery, ForeignTextInAnEventHurtsNothing) {
    test::CapturedLog log;
    test::RecordingSink sink;
    error_exit("fatal", "%n%n%s %1000000s");
    EXPECT_EQ(sink.events[0].name, "%n%n%s %1000000s");
}

} // namespace
} // namespace obrin
