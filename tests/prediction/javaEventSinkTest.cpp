#include "prediction/javaEventSink.h"

#include "support/systemPaths.h"
#include "tests/support/fakeJavaEnvironment.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace obrin {
namespace {

using test::JavaBehaviour;
using Mode = JavaBehaviour::Mode;

/// Every test ends with the books balanced: no reference kept, nothing pending, no call out of order.
class JavaSink : public testing::Test {
protected:
    void TearDown() override {
        setEventSink(nullptr);
        EXPECT_EQ(java.misuses(), std::vector<std::string>{});
        EXPECT_EQ(java.pendingException(), std::nullopt);
        EXPECT_EQ(java.localReferences(), referencesBefore);
        EXPECT_EQ(java.openFrames(), framesBefore);
        EXPECT_EQ(java.unreleasedCharacters(), 0U);
    }

    std::int32_t deliver(JavaEventSink& sink, const char* instance = "here") {
        setEventSink(&sink);
        return sendEvent("soon", 1.5, "Swap", instance, "java(1)2");
    }

    std::vector<std::string> methodsCalled() const {
        std::vector<std::string> names;
        for (const auto& call : java.calls())
            names.push_back(call.method);
        return names;
    }

    test::CapturedLog log;
    test::FakeJavaEnvironment java;
    jobject events = java.makeEvents();
    std::size_t referencesBefore = java.localReferences();
    std::size_t framesBefore = java.openFrames();
};

TEST_F(JavaSink, AcceptedEventAsksItsThreeQuestionsFirstAndHandsOverItsFiveArguments) {
    JavaEventSink sink(java.env(), events);
    EXPECT_EQ(deliver(sink), 1);
    EXPECT_EQ(methodsCalled(),
              (std::vector<std::string>{"getOs_support", "getPrev_time", "getPrev_tte", "sendEvent"}));
    EXPECT_EQ(java.callsOf("sendEvent")[0].arguments,
              (std::vector<std::string>{"soon", "1.5", "Swap", "here", "java(1)2"}));
}

TEST_F(JavaSink, AbsentInstanceReachesJavaAsTheWordNullAndAnAbsentNameAsNull) {
    JavaEventSink sink(java.env(), events);
    setEventSink(&sink);
    EXPECT_EQ(sendEvent("fatal", 0.0, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(java.callsOf("sendEvent")[0].arguments,
              (std::vector<std::string>{"fatal", "0", "(null)", "Null", "(null)"}));
}

TEST_F(JavaSink, RefusalIsAZeroAndKeepsTheLog) {
    java.setBehaviour("sendEvent", {Mode::refuse});
    JavaEventSink sink(java.env(), events);
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_TRUE(log.text().starts_with("start sendEvent"));
}

TEST_F(JavaSink, ExceptionIsDescribedInTheLogClearedAndCountsAsARefusal) {
    JavaEventSink sink(java.env(), events);
    java.setBehaviour("sendEvent", {Mode::raise});
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_NE(log.text().find("Java exception in sendEvent: "), std::string::npos) << log.text();
    EXPECT_NE(log.text().find("sendEvent was told to throw"), std::string::npos) << log.text();
    java.setBehaviour("sendEvent", {Mode::answer});
    EXPECT_EQ(deliver(sink), 1);
}

TEST_F(JavaSink, ExceptionInAQuestionDoesNotStopTheEvent) {
    JavaEventSink sink(java.env(), events);
    for (const char* question : {"getOs_support", "getPrev_time", "getPrev_tte"})
        java.setBehaviour(question, {Mode::raise});
    EXPECT_EQ(deliver(sink), 1);
}

TEST_F(JavaSink, MissingMethodIsARefusalAndIsFoundOnceItIsThere) {
    java.setBehaviour("sendEvent", {Mode::missing});
    JavaEventSink sink(java.env(), events);
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_NE(log.text().find("Java exception in sendEvent: "), std::string::npos) << log.text();
    java.setBehaviour("sendEvent", {Mode::answer});
    EXPECT_EQ(deliver(sink), 1);
}

TEST_F(JavaSink, MethodsAreLookedUpAtTheStartSoThatAnEventNeedsNoLookUp) {
    JavaEventSink sink(java.env(), events);
    for (const char* method : {"getOs_support", "getPrev_time", "getPrev_tte", "sendEvent"})
        java.setBehaviour(method, {Mode::answer});
    const auto lookUps = [this] {
        const auto calls = java.functionCalls();
        return std::count(calls.begin(), calls.end(), "GetStaticMethodID");
    };
    const auto before = lookUps();
    EXPECT_EQ(before, 6);
    EXPECT_EQ(deliver(sink), 1);
    EXPECT_EQ(lookUps(), before);
}

TEST_F(JavaSink, NoMemoryForAnyOfTheTextsIsARefusal) {
    JavaEventSink sink(java.env(), events);
    for (std::size_t text = 1; text <= 4; ++text) {
        java.failNewTextsFrom(text);
        EXPECT_EQ(deliver(sink), 0) << text;
    }
    java.failNewTextsFrom(0);
    EXPECT_EQ(deliver(sink), 1);
}

TEST_F(JavaSink, ShortageOfMemoryIsNamedWhenJavaHasNoMemoryToDescribeItEither) {
    JavaEventSink sink(java.env(), events);
    java.setBehaviour("toString", {Mode::raise});
    java.failNewTextsFrom(1);
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_NE(log.text().find("Java exception in NewStringUTF: java.lang.OutOfMemoryError\n"),
              std::string::npos)
        << log.text();
    java.failNewTextsFrom(0);
    java.setBehaviour("sendEvent", {Mode::raise});
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_NE(log.text().find("Java exception in sendEvent: an exception that cannot be described\n"),
              std::string::npos)
        << log.text();
}

TEST_F(JavaSink, EventsGoOutWhereTheClassOfMemoryErrorsCannotBeFound) {
    java.setBehaviour("java/lang/OutOfMemoryError", {Mode::missing});
    JavaEventSink sink(java.env(), events);
    EXPECT_EQ(deliver(sink), 1);
    java.setBehaviour("toString", {Mode::raise});
    java.failNewTextsFrom(1);
    EXPECT_EQ(deliver(sink), 0);
    EXPECT_NE(log.text().find("an exception that cannot be described"), std::string::npos) << log.text();
}

TEST_F(JavaSink, NoReferenceOutlivesTheSink) {
    {
        JavaEventSink sink(java.env(), events);
        deliver(sink);
    }
    EXPECT_EQ(java.globalReferences(), 0U);
}

TEST_F(JavaSink, NoMemoryForAFrameIsARefusal) {
    JavaEventSink sink(java.env(), events);
    java.failLocalFrames(true);
    EXPECT_EQ(deliver(sink), 0);
    java.failLocalFrames(false);
}

TEST_F(JavaSink, WithoutAnEventsObjectEveryEventIsRefused) {
    JavaEventSink sink(java.env(), nullptr);
    EXPECT_EQ(deliver(sink), 0);
}

TEST_F(JavaSink, AnyBytesReachJavaAsValidText) {
    JavaEventSink sink(java.env(), events);
    EXPECT_EQ(deliver(sink, "/mnt/\xFF\xC0\x80\xF0\x9F\x98\x80%n"), 1);
}

TEST_F(JavaSink, ToleranceEventsReachTheirMethodsWithTheLimit) {
    JavaEventSink sink(java.env(), events);
    setEventSink(&sink);
    EXPECT_EQ(sendUpperToleranceEvent("Swap", "here", 100.0), 1);
    EXPECT_EQ(sendInnerToleranceEvent("Swap", "there", 0.0), 1);
    EXPECT_EQ(java.callsOf("sendUpperToleranceEvent")[0].arguments,
              (std::vector<std::string>{"Swap", "here", "100"}));
    EXPECT_EQ(java.callsOf("sendInnerToleranceEvent")[0].arguments,
              (std::vector<std::string>{"Swap", "there", "0"}));
}

TEST_F(JavaSink, AbsentInstanceOfAToleranceEventIsTheWordNullAndAnAbsentNameIsNull) {
    JavaEventSink sink(java.env(), events);
    setEventSink(&sink);
    sendUpperToleranceEvent(nullptr, nullptr, 100.0);
    sendInnerToleranceEvent(nullptr, nullptr, 100.0);
    EXPECT_EQ(java.callsOf("sendUpperToleranceEvent")[0].arguments,
              (std::vector<std::string>{"(null)", "Null", "100"}));
    EXPECT_EQ(java.callsOf("sendInnerToleranceEvent")[0].arguments,
              (std::vector<std::string>{"(null)", "Null", "100"}));
}

TEST_F(JavaSink, ToleranceEventThatThrowsIsMissingOrRefusesIsAZero) {
    for (Mode mode : {Mode::raise, Mode::missing, Mode::refuse}) {
        java.setBehaviour("sendUpperToleranceEvent", {mode});
        JavaEventSink sink(java.env(), events);
        setEventSink(&sink);
        EXPECT_EQ(sendUpperToleranceEvent("Swap", "here", 100.0), 0);
        setEventSink(nullptr);
    }
}

TEST_F(JavaSink, ManyEventsGatherNoReferences) {
    JavaEventSink sink(java.env(), events);
    java.keepRecords(false);
    for (int i = 0; i < 1000; ++i)
        deliver(sink);
    EXPECT_LT(java.mostLocalReferences(), referencesBefore + 16);
}

} // namespace
} // namespace obrin
