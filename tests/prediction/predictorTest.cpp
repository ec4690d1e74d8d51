#include "prediction/predictor.h"

#include "acquisition/circularBuffers.h"
#include "agent/agentState.h"
#include "prediction/exhaustion.h"
#include "support/systemPaths.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace obrin {
namespace {

class Predictor : public testing::Test {
protected:
    Predictor() {
        setInitialEventStates();
        clasp.DataHomeDirectory = directory.path("");
        clasp.MillisecondsPerSample = 10000;
        clasp.MaxForecastHours = 48;
        MutexLock lock(chainLock);
        pResourceClasp = &clasp;
    }
    ~Predictor() override {
        MutexLock lock(chainLock);
        pResourceClasp = nullptr;
    }

    Link& add(const char* name, int slots = 1728) {
        links.push_back(std::make_unique<Link>());
        Link& link = *links.back();
        link.ResourceType = 1;
        link.Descriptor0 = name;
        link.Descriptor1 = "_Total";
        link.Descriptor2 = "counter";
        link.Descriptor3 = "-2";
        link.NameIs = name;
        link.AnalyticalMethod = 1;
        link.WindowSize = slots / 360.0;
        link.pClasp = &clasp;
        link.RID = static_cast<std::int32_t>(links.size());
        (clasp.pLastLink == nullptr ? clasp.pFirstLink : clasp.pLastLink->pNextLink) = &link;
        clasp.pLastLink = &link;
        allocatecircularbuffers(&clasp);
        return link;
    }

    static void fill(Link& link, int n, double from, double to, double start = 1700000000) {
        for (int i = 0; i < n; ++i)
            pushSample(link, start + 10.0 * i, from + (to - from) * i / (n - 1));
        link.DataArray[0] = to;
    }

    std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(directory.path()), {}));
    }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    test::RecordingSink sink;
    Clasp clasp;
    std::vector<std::unique_ptr<Link>> links;
};

TEST_F(Predictor, ASeriesIsTheSameFromTheRingAndFromItsGatheredSamples) {
    for (const int slots : {1, 7, 300})
        for (const int pushed : {0, 1, 6, 7, 8, 299, 300, 301, 450})
            for (const int hole : {-1, 0, 3, 148, 299}) { // which sample of each three hundred is none
                Link& link = add("Disk", slots);
                for (int i = 0; i < pushed; ++i)
                    pushSample(link, 1700000000 + 10.1 * i, i % 300 == hole ? noSample : 50 + 0.1 * i);
                std::vector<SampleRecord> samples;
                gatherSamples(link, &samples);
                Series gathered;
                makeSeries(samples, &gathered);
                Series series{{1.0F}, {2.0F, 3.0F}};
                makeSeries(link, &series);
                EXPECT_EQ(series.times, gathered.times) << slots << " " << pushed << " " << hole;
                EXPECT_EQ(series.values, gathered.values) << slots << " " << pushed << " " << hole;
            }
}

TEST_F(Predictor, ResourceWithoutAMethodAndTemplatesAreNeitherDiagnosedNorPredicted) {
    Link& without = add("PercentSwapSpaceUsed");
    without.AnalyticalMethod = 0;
    Link& pattern = add("PercentProcessesUsed");
    pattern.ResourceType = 2;
    pattern.Descriptor3 = "-1";
    fill(without, 300, 10, 20);
    fill(pattern, 300, 10, 20);
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(files(), 0U);
    EXPECT_EQ(log.text(), "Alert if exhaustion between 0 and 48 hours (0.00 and 2.00 days):\n");
}

TEST_F(Predictor, AlertWindowComesFromTheForecastHours) {
    clasp.MinForecastHours = 36;
    clasp.MaxForecastHours = 1000000;
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(InnerTolerance, 129600.0);
    EXPECT_EQ(OuterTolerance, 3600000000.0);
    EXPECT_NE(log.text().find("between 36 and 1000000 hours (1.50 and 41666.67 days):\n"), std::string::npos)
        << log.text();
}

TEST_F(Predictor, ForecastAndAnnouncementBeginAtMinForecastHours) {
    clasp.MinForecastHours = 24;
    Link& link = add("Disk");
    fill(link, 300, 50, 99); // full long before the window begins
    link.NotifyPending = 1;
    EXPECT_EQ(predictor(&clasp), 1);
    const std::string forecast = test::readFile(directory.path("Disk_TotalBMPRD.gnp"));
    EXPECT_TRUE(forecast.starts_with("86400.000000 100.000000 \n")) << forecast.substr(0, 40);
    EXPECT_EQ(std::count(forecast.begin(), forecast.end(), '\n'), 200);
    // The grid ends at 48 hours, to the rounding of its times.
    EXPECT_EQ(forecast.substr(forecast.rfind('\n', forecast.size() - 2) + 1, 6), "172800") << forecast;
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_DOUBLE_EQ(sink.events[0].seconds, 86400.0 - 2990.0);
}

TEST_F(Predictor, EachAnalysedResourceIsLoggedAndGetsItsFiles) {
    Link& link = add("Disk");
    fill(link, 300, 10, 20);
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_NE(log.text().find("\nDisk _Total counter: 300/1728 points Last Sample = 20.00\n"),
              std::string::npos)
        << log.text();
    EXPECT_EQ(files(), 3U);
}

TEST_F(Predictor, ResourceWithoutSamplesIsPassedOver) {
    add("Disk");
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(log.text().find("Selected model"), std::string::npos);
    Link& lost = add("Lost");
    lost.BufferSize = 0; // a ring that found no memory
    lost.ValueBuffer.reset();
    lost.TimeBuffer.reset();
    EXPECT_EQ(predictor(&clasp), 1);
}

TEST_F(Predictor, SamplesOfExactlyMinusOneAreLeftOut) {
    Link& link = add("Disk");
    fill(link, 300, 30, 30);
    for (std::uint32_t i = 0; i < 300; i += 3)
        link.ValueBuffer[i] = -1.0;
    EXPECT_EQ(predictor(&clasp), 1);
    const std::string samples = test::readFile(directory.path("Disk_TotalBMSMP.gnp"));
    EXPECT_EQ(std::count(samples.begin(), samples.end(), '\n'), 200);
    EXPECT_EQ(samples.find("-1.0"), std::string::npos);
    EXPECT_TRUE(samples.starts_with("0.000000 30.000000 \n10.000000 30.000000 \n30.000000 "))
        << samples.substr(0, 80);
}

TEST_F(Predictor, BookkeepingTellsTheSamplesTheValidOnesTheirPairsAndTheLastSlot) {
    Link& link = add("Disk", 250);
    fill(link, 310, 30, 30);
    link.ValueBuffer[7] = -1.0;
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(NumOfSamples, 250);
    EXPECT_EQ(NumberOfValidDataPoints, 249);
    EXPECT_EQ(NumOfSlopes, 250 * 249 / 2);
    EXPECT_EQ(Index1, 59);
}

TEST_F(Predictor, ValuesNextToMinusOneAndBelowItAreSamples) {
    Link& link = add("Disk");
    fill(link, 300, 30, 30);
    const double values[] = {std::nextafter(-1.0, 0.0), std::nextafter(-1.0, -2.0), -0.999, -1.0000001, -2.0};
    std::copy(std::begin(values), std::end(values), link.ValueBuffer.get());
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(NumberOfValidDataPoints, 300);
    const std::string samples = test::readFile(directory.path("Disk_TotalBMSMP.gnp"));
    EXPECT_TRUE(samples.starts_with("0.000000 -1.000000 \n10.000000 -1.000000 \n20.000000 -0.999000 \n"
                                    "30.000000 -1.000000 \n40.000000 -2.000000 \n50.000000 30.000000 \n"))
        << samples.substr(0, 150);
}

TEST_F(Predictor, OneSampleAtTheLimitOfItsMethodIsTold) {
    struct Case {
        std::int32_t method;
        double value;
        const char* logged;
    };
    for (const Case& one : {Case{1, 100.0, "equal to or above upper tolerance of 100.000000\n"},
                            Case{2, 0.0, "equal to or below lower tolerance of 0.000000\n"}}) {
        setInitialEventStates();
        sink.upperEvents.clear();
        Link& link = add("Disk");
        link.AnalyticalMethod = one.method;
        pushSample(link, 1700000000, one.value);
        EXPECT_EQ(bestmodelObrin(&link, nullptr), 1);
        ASSERT_EQ(sink.upperEvents.size(), 1U);
        EXPECT_EQ(sink.upperEvents[0].limit, one.value);
        EXPECT_NE(log.text().find(one.logged), std::string::npos) << log.text();
    }
}

TEST_F(Predictor, MethodWithoutLimitsIsForecastAllTheSame) {
    add("Unknown").AnalyticalMethod = 4;
    add("Negative").AnalyticalMethod = -1;
    for (const auto& link : links)
        fill(*link, 300, 10, 99);
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(files(), 6U);
}

/// The resources of a small captured machine, of which both events are due in every cycle.
TEST_F(Predictor, CulpritsGatherOverTheResourcesOfACycleAndBeginAnewInTheNext) {
    systemPaths().proc = std::string(LUMETRA_FIXTURES) + "/census-small/proc";
    add("PercentFileDescriptorsUsed");
    add("PercentSwapSpaceUsed");
    for (const auto& link : links) {
        fill(*link, 300, 80, 81);
        link->NotifyPending = 1;
    }
    EXPECT_EQ(predictor(&clasp), 1);
    EXPECT_EQ(predictor(&clasp), 1);
    systemPaths().proc = SystemPaths().proc;
    const std::string descriptors = " java(20)42 sshd(21)11 init(1)9 bash(32)6 tool(30)5 worker(31)0";
    ASSERT_EQ(sink.events.size(), 4U);
    EXPECT_EQ(sink.events[0].culprit, descriptors);
    EXPECT_TRUE(sink.events[1].culprit.starts_with(descriptors + " java(20)210 ")) << sink.events[1].culprit;
    EXPECT_EQ(sink.events[2].culprit, descriptors);
    EXPECT_EQ(sink.events[3].culprit, sink.events[1].culprit);
}

TEST_F(Predictor, WrappedRingIsReadOldestFirst) {
    Link& link = add("Disk", 250);
    fill(link, 400, 10, 50);
    EXPECT_EQ(predictor(&clasp), 1);
    const std::string samples = test::readFile(directory.path("Disk_TotalBMSMP.gnp"));
    EXPECT_EQ(std::count(samples.begin(), samples.end(), '\n'), 250);
    EXPECT_TRUE(samples.starts_with("0.000000 25.03")) << samples.substr(0, 40);
    EXPECT_TRUE(samples.ends_with("2490.000000 50.000000 \n")) << samples.substr(samples.size() - 40);
}

TEST_F(Predictor, ChainIsListedOneLineALink) {
    add("One").DataArray[0] = 1.5;
    add("Two");
    EXPECT_EQ(PDisplayChain(&clasp), 1);
    EXPECT_EQ(log.text(), "Chain: \nOne _Total counter One 1 1.50\nTwo _Total counter Two 2 0.00\n");
}

} // namespace
} // namespace obrin
