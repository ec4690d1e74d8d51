#include "agent/agentRun.h"

#include "acquisition/counterReaders.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/hostFeed.h"
#include "agent/resume.h"
#include "agent/stopSync.h"
#include "prediction/exhaustion.h"
#include "support/systemPaths.h"
#include "tests/support/feedReading.h"
#include "tests/support/recordingSink.h"
#include "tests/support/sourceText.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/timeZone.h"
#include "tests/support/turnedClock.h"
#include "trendviewer/trendFiles.h"

#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <regex>
#include <stdexcept>

namespace obrin::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Stands still, and tells when somebody asks for the time of day.
class WatchedClock : public TurnedClock {
public:
    std::time_t wallTime() override {
        if (onWallTime)
            onWallTime();
        return TurnedClock::wallTime();
    }
    Reading read() override {
        if (onWallTime)
            onWallTime();
        return TurnedClock::read();
    }

    std::function<void()> onWallTime;
};

/// Tells of each call while it lasts.
class WatchedSink : public RecordingSink {
public:
    bool sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                   const char* culprit) override {
        if (onEvent)
            onEvent(name);
        return RecordingSink::sendEvent(timeText, seconds, name, instance, culprit);
    }
    bool sendUpperToleranceEvent(const char* name, const char* instance, double limit) override {
        if (onTolerance)
            onTolerance();
        return RecordingSink::sendUpperToleranceEvent(name, instance, limit);
    }

    std::function<void(const std::string&)> onEvent;
    std::function<void()> onTolerance;
};

/// A run of so many cycles over a machine whose swap space is used up, which the forecast of the first cycle
/// says.
class AgentRun : public testing::Test {
protected:
    AgentRun() {
        std::filesystem::create_directory(home.path("data"));
        systemPaths().meminfo = home.path("meminfo");
        systemPaths().trimWorkFile = home.path("temp");
        writeFile(systemPaths().meminfo, "SwapTotal: 100 kB\nSwapFree: 0 kB\n");
        writeFile(resources, declarations);
        clock.onWait([this](const char* what, std::chrono::seconds) {
            if (std::string(what) == "sleep" && --cycles == 0)
                continueExecuting = 0;
        });
    }
    ~AgentRun() override {
        const SystemPaths defaults;
        systemPaths().meminfo = defaults.meminfo;
        systemPaths().trimWorkFile = defaults.trimWorkFile;
    }

    /// `numbers` are the period in milliseconds and the two forecast horizons in hours.
    int run(const std::string& numbers = "1000 0 1") {
        writeFile(home.path("AutoConfig.ini"), home.path("data/") + " archive.txt " + home.path("pad") +
                                                   " analysis " + resources + " " + numbers + " 50 0 0\n");
        beginExecuting();
        return runAgent(2, "Lumetra", home.path("AutoConfig.ini"));
    }

    /// Whether a reader gets the trend-file lock now, and which declarations it would find.
    std::string seen() const {
        const int result = std::async(std::launch::async, [] {
                               const int locked = trendViewerLockFiles();
                               trendViewerUnlockFiles();
                               return locked;
                           }).get();
        return std::string(result == 0 ? "unlocked" : "locked") + ", " +
               (readFile(resources) == declarations ? "old declarations" : "new declarations");
    }

    const std::string declarations =
        "BeginResourceDeclaration BeginResourceInput FindObject (PercentSwapSpaceUsed) FindInstance (i) "
        "FindCounter (c) WindowSize -1. NameIs (Swap) AnalyticalMethod 1 UpperLimitAbs 0 UpperLimitCalc 0 "
        "LowerLimitAbs 0 LowerLimitCalc 0 CulpritMarker (m) EndResourceInput EndResourceDeclaration\n";
    TemporaryDirectory home;
    CapturedLog log;
    WatchedSink sink;
    WatchedClock clock;
    const std::string resources = home.path("resources.txt");
    const std::string archive = home.path("data/archive.txt");
    int cycles = 1;
};

TEST_F(AgentRun, StartWaitsOneSecondWithItsLogOpenAndThenSaysSo) {
    std::vector<std::string> waits;
    clock.onWait([&](const char* what, std::chrono::seconds time) {
        waits.push_back(what + std::to_string(time.count()) +
                        (std::filesystem::exists(systemPaths().log) ? " log" : "") + log.text());
    });
    writeFile(systemPaths().log, "of an earlier run");
    testing::internal::CaptureStdout();
    announceStart();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "libObrinagent.so starting. Log file is open!\n");
    EXPECT_THAT(waits, ElementsAre("pause1 log"));
    EXPECT_EQ(log.text(), "libObrinagent.so starting. Log file is open!\n");
}

TEST_F(AgentRun, CycleSamplesForecastsUnderTheLockUnlocksRewritesAndTrims) {
    std::vector<std::string> steps;
    sink.onTolerance = [&] {
        EXPECT_EQ(std::ranges::count(readFile(archive), '\n'), 1);
        std::filesystem::remove(archive); // for the trimming to find it gone
        steps.push_back("forecast: " + seen());
        clock.onWallTime = [&] {
            clock.onWallTime = nullptr;
            steps.push_back("rewriting: " + seen());
        };
    };
    sink.onEvent = [&](const std::string& text) { steps.push_back(text + ": " + seen()); };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(steps,
                ElementsAre("forecast: locked, old declarations", "rewriting: unlocked, old declarations",
                            "Cannot Get Filesize of " + archive + ": unlocked, new declarations"));
}

TEST_F(AgentRun, PublishesTheStartEachCycleAndTheEndToAHost) {
    openHostFeed();
    publishEnd(); // of whatever ran before
    std::int64_t serial = readState(*awaitPublication(0, std::chrono::milliseconds(0))).serial;
    std::vector<std::string> seen;
    const auto look = [&] {
        const Publication newest = awaitPublication(serial, std::chrono::milliseconds(0));
        if (newest == nullptr)
            return;
        const FedState state = readState(*newest);
        serial = state.serial;
        seen.push_back(std::to_string(state.kind) + ": " + std::to_string(state.cycles));
    };
    cycles = 2;
    clock.onWallTime = look; // a cycle begins with the time of day
    clock.onWait([&](const char*, std::chrono::seconds) {
        look();
        if (--cycles == 0)
            continueExecuting = 0;
    });
    EXPECT_EQ(run(), 0);
    look();
    openHostFeed(false);
    EXPECT_THAT(seen, ElementsAre("1: 0", "1: 1", "1: 2", "2: 2"));
}

TEST_F(AgentRun, WhatTheCyclesTakeIsPublishedOfEachAndOfAll) {
    openHostFeed();
    clock.onWallTime = [&] {
        clock.turn(std::chrono::seconds(2));
    }; // to stamp the samples and the declarations
    cycles = 0;
    clock.onWait([&](const char*, std::chrono::seconds) {
        const FedState state = readState(*awaitPublication(0, std::chrono::milliseconds(0)));
        EXPECT_EQ(state.sampling, 2.0);
        EXPECT_EQ(state.forecast, 0.0);
        EXPECT_EQ(state.writing, 2.0);
        EXPECT_EQ(state.total, 4.0 * ++cycles);
        if (cycles == 3)
            continueExecuting = 0;
    });
    EXPECT_EQ(run(), 0);
    openHostFeed(false);
    EXPECT_EQ(cycles, 3);
}

TEST_F(AgentRun, AForecastIsPublishedInTheCycleInWhichItIsMade) {
    openHostFeed();
    std::int32_t firstForecast = 0;
    cycles = 0;
    clock.onWait([&](const char*, std::chrono::seconds) {
        ++cycles;
        const FedState state = readState(*awaitPublication(0, std::chrono::milliseconds(0)));
        EXPECT_EQ(state.cycles, cycles);
        EXPECT_EQ(state.resources.at(0).usable, cycles);
        if (state.resources[0].forecastTime != 0 && firstForecast == 0) {
            firstForecast = cycles;
            EXPECT_EQ(state.resources[0].forecastTime, state.time);
        }
        if (cycles == 201)
            continueExecuting = 0;
    });
    EXPECT_EQ(run(), 0);
    openHostFeed(false);
    EXPECT_EQ(firstForecast, 200);
}

/// A swap space of which a thousandth more is used in each cycle.
class ResumedRun : public AgentRun {
protected:
    ResumedRun() { openHostFeed(); }
    ~ResumedRun() override {
        setResume(false);
        openHostFeed(false);
    }

    /// The newest state after so many cycles; that of the start is in `atStart`.
    FedState after(int wanted) {
        FedState state;
        cycles = 0;
        clock.onWallTime = [&] {
            const Publication newest =
                cycles == 0 ? awaitPublication(0, std::chrono::milliseconds(0)) : nullptr;
            if (newest != nullptr) // which there is not before the archive is read
                atStart = readState(*newest);
        };
        clock.onWait([&](const char*, std::chrono::seconds) {
            state = readState(*awaitPublication(0, std::chrono::milliseconds(0)));
            writeFile(systemPaths().meminfo,
                      "SwapTotal: 100000 kB\nSwapFree: " + std::to_string(90000 - 100 * ++used) + " kB\n");
            if (++cycles == wanted)
                continueExecuting = 0;
        });
        EXPECT_EQ(run(), 0);
        return state;
    }

    FedState atStart;
    int used = 0;
};

TEST_F(ResumedRun, ForecastsInItsFirstCycleByTheSameModelAndTellsTheHost) {
    const FedState first = after(260);
    ASSERT_NE(first.resources.at(0).forecastTime, 0);
    EXPECT_EQ(first.resumedSamples, 0);
    setResume(true);
    const FedState second = after(1);
    EXPECT_EQ(atStart.cycles, 0);
    EXPECT_EQ(atStart.resumedSamples, 260);
    EXPECT_EQ(atStart.resumedResources, 1);
    EXPECT_EQ(atStart.resources.at(0).usable, 260);
    const FedResource& r = second.resources.at(0);
    EXPECT_EQ(r.usable, 261);
    EXPECT_EQ(r.forecastTime, second.time);
    EXPECT_EQ(r.model, first.resources[0].model);
    EXPECT_NEAR(r.hours, first.resources[0].hours, 0.01 * first.resources[0].hours);
    EXPECT_EQ(second.resumedSamples, 260);
}

TEST_F(ResumedRun, ANotificationBeginsAnewWithTheOnset) {
    ASSERT_TRUE(after(260).resources.at(0).pending);
    setResume(true);
    after(1);
    EXPECT_FALSE(atStart.resources.at(0).pending);
    const std::string text = log.text();
    EXPECT_THAT(text.substr(text.find("\nResumed with ")),
                HasSubstr("\nOnset of exhaustion detected, setting notification level to "));
}

TEST_F(ResumedRun, WithoutTheHostsWishStartsEmpty) {
    after(260);
    const FedState second = after(1);
    EXPECT_EQ(second.resources.at(0).usable, 1);
    EXPECT_EQ(second.resources[0].forecastTime, 0);
    EXPECT_EQ(second.resumedSamples, 0);
    EXPECT_THAT(log.text(), Not(HasSubstr("Resumed")));
}

TEST_F(ResumedRun, ARequestToStopEndsTheReading) {
    after(260);
    setResume(true);
    std::string told;
    clock.onWait([](const char*, std::chrono::seconds) {});
    int looks = 0; // at the time of day: the reading's, then those of the one cycle that comes all the same
    clock.onWallTime = [&] {
        if (++looks == 1)
            continueExecuting = 0;
        else
            told = describeReading();
    };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(log.text(), HasSubstr("\nResumed with 1 samples of 1 resources from "));
    FeedReading in(told);
    in.number();
    EXPECT_EQ(in.longNumber(), 0) << "it reads no more";
    EXPECT_EQ(in.longNumber(), 0);
}

TEST_F(AgentRun, ACounterIsAddedByItsReaderAndOneRow) {
    counterTable().push_back({"PercentLicencesUsed", "",
                              [](Link& link) {
                                  link.DataArray[0] = 12.5;
                                  link.UpperLimitCalc = 40.0;
                                  link.findings.valueRead = link.findings.capacityRead = true;
                                  return 1;
                              },
                              "Licences", "seats", 0.0, true, "seats that are paid for", "none is paid for",
                              true});
    std::string other = declarations;
    other.replace(other.find("PercentSwapSpaceUsed"), 20, "PercentLicencesUsed");
    writeFile(resources, other);
    openHostFeed();
    FedState state;
    clock.onWait([&](const char*, std::chrono::seconds) {
        state = readState(*awaitPublication(0, std::chrono::milliseconds(0)));
        continueExecuting = 0;
    });
    EXPECT_EQ(run(), 0);
    openHostFeed(false);
    EXPECT_THAT(readFile(archive), HasSubstr(" 1 0 12.50 "));
    EXPECT_THAT(readFile(resources), HasSubstr("UpperLimitCalc 40"));
    ASSERT_EQ(state.resources.size(), 1U);
    EXPECT_EQ(state.resources[0].object, "PercentLicencesUsed");
    EXPECT_EQ(state.resources[0].value, 12.5);
    EXPECT_EQ(state.resources[0].capacity, 40.0);
    const FedRow row = readCounters(describeCounters()).counters.back();
    counterTable().pop_back();
    EXPECT_THAT(row, ElementsAre("PercentLicencesUsed", "", "Licences", "seats", "0", "whole",
                                 "seats that are paid for", "none is paid for", "absent"));
}

TEST_F(AgentRun, DeclarationsThatCannotBeReadAreToldAndEndTheRun) {
    std::filesystem::remove(resources);
    EXPECT_EQ(run(), 0);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, "Call To validateResourceText Failed");
    EXPECT_THAT(log.text(),
                HasSubstr("\nvalidateResourceText failed...exiting\n"
                          "start sendEvent fatal 0.000000 Call To validateResourceText Failed (null)\n"));
    EXPECT_FALSE(std::filesystem::exists(archive));
}

TEST_F(AgentRun, RingsThatFindNoMemoryAreToldAndTheRunGoesOn) {
    EXPECT_EQ(run("1 0 2147483647"), 0);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, "Call To allocatecircularbuffers Failed");
    EXPECT_THAT(log.text(),
                HasSubstr("\nallocatecircularbuffers failed...exiting\n"
                          "start sendEvent fatal 0.000000 Call To allocatecircularbuffers Failed (null)\n"));
    EXPECT_EQ(std::ranges::count(readFile(archive), '\n'), 1);
}

TEST_F(AgentRun, StepsThatCannotFailWouldBeToldInTheSameWords) {
    const std::string source = sourceText("agent/agentRun.cpp");
    for (const std::string step : {"AutoSizeWindows", "SanityCheckChain"})
        EXPECT_THAT(source, HasSubstr("if (" + step + "(clasp) == -1) {\n        reportFailedStep(\"" + step +
                                      "\");"));
}

TEST_F(AgentRun, ForecastThatFailsIsToldAndTheRunGoesOn) {
    cycles = 2;
    sink.onTolerance = [] { throw std::runtime_error("no room"); };
    EXPECT_EQ(run(), 0);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].timeText, "fatal");
    EXPECT_EQ(sink.events[0].name, "Call To predictor Failed");
    EXPECT_THAT(log.text(), HasSubstr("\nFailure of predictor. Error Code -1...exiting.\n"
                                      "start sendEvent fatal 0.000000 Call To predictor Failed (null)\n"));
    EXPECT_EQ(std::ranges::count(readFile(archive), '\n'), 2);
    EXPECT_THAT(readFile(resources), StartsWith("/** Updated on "));
}

TEST_F(AgentRun, SamplingThatFailsIsToldEveryCycleAndTheForecastGoesOn) {
    cycles = 2;
    std::filesystem::create_directory(archive);
    std::vector<std::string> texts;
    EXPECT_EQ(run(), 0);
    for (const auto& event : sink.events)
        texts.push_back(event.timeText + " " + event.name);
    EXPECT_THAT(texts, ElementsAre("fatal Call To RawDataRetrievalAndArchive Failed",
                                   "fatal Call To RawDataRetrievalAndArchive Failed"));
    EXPECT_THAT(log.text(), HasSubstr("\nFailure of RawDataRetrievalAndArchive. Error Code -1...exiting.\n"));
    EXPECT_EQ(sink.upperEvents.size(), 1U);
}

TEST_F(AgentRun, StartDeletesTrendFilesThenResetsTheEventFlagsThenSamples) {
    shownUpper = 1;
    writeFile(home.path("data/oldBM.ini"), "x");
    bool deleted = false;
    sink.onTolerance = [&] { deleted = !std::filesystem::exists(home.path("data/oldBM.ini")); };
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(deleted);
    EXPECT_THAT(log.text(), HasSubstr("\ntrendFiles: after deleteTrendFiles()  XStatus=1=0x00000001\n"
                                      "Before setInitialEventStates()\n"
                                      "\n************ TimeStamp = "));
    EXPECT_EQ(sink.upperEvents.size(), 1U);
}

TEST_F(AgentRun, EndDeletesTrendFilesThenTheChainThenSaysSo) {
    const TimeZone zone(tellingZone);
    clock.setWallTime(tellingMoment);
    // Everything takes no time on this clock, but for the pause of a second at the start.
    EXPECT_EQ(run(), 0);
    const std::regex end(
        "\ntrendFiles: after deleteTrendFiles\\(\\)  XStatus=1=0x00000001\n"
        "ScanUpChainDeletingAllLinks\\(pResourceClasp=08[0-9a-f]{8}\\) deleting pLink1=08[0-9a-f]{8}\n"
        "Ending prediction\\. timeOfDay=Sat Feb 14 04:31:31 2009\n\n$");
    const std::string text = log.text();
    EXPECT_TRUE(std::regex_search(text, end)) << text;
    EXPECT_EQ(pResourceClasp, nullptr);
    EXPECT_FALSE(std::filesystem::exists(home.path("data/SwapiBM.ini")));
}

} // namespace
} // namespace obrin::test
