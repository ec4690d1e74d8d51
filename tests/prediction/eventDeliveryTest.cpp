#include "prediction/eventDelivery.h"

#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "support/systemPaths.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace obrin {
namespace {

/// Gives the process a time zone for as long as it lives.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* before = std::getenv("TZ"))
            before_ = before;
        set(zone);
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }

private:
    static void set(const char* zone) {
        zone == nullptr ? ::unsetenv("TZ") : ::setenv("TZ", zone, 1);
        ::tzset();
    }
    std::optional<std::string> before_;
};

/// A moment of Greenwich as hours:minutes:seconds month/day/year.
std::string written(std::time_t moment) {
    std::tm parts{};
    ::gmtime_r(&moment, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d %02d/%02d/%04d", parts.tm_hour, parts.tm_min,
                  parts.tm_sec, parts.tm_mon + 1, parts.tm_mday, parts.tm_year + 1900);
    return text;
}

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
    // A day to either side: one of the two is a date whose day and month differ.
    for (const int days : {-1, 1}) {
        const TimeZone zone(days < 0 ? "WEST24" : "EAST-24");
        test::CapturedLog log;
        test::RecordingSink sink;
        const std::time_t before = std::time(nullptr);
        sendEvent("soon", 1.0, "Swap", "here", nullptr);
        const std::time_t after = std::time(nullptr);
        bool found = false;
        for (std::time_t moment = before; moment <= after && !found; ++moment)
            found = log.text() == "start sendEvent soon 1.000000 Swap here\n"
                                  "EXHAUSTION will occur within soon\tfrom " +
                                      written(moment + days * std::time_t{86400}) + "\n";
        EXPECT_TRUE(found) << log.text();
    }
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
