#include "agent/serviceStatus.h"

#include "agent/agentState.h"
#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "resources/resourceChain.h"

#include <gtest/gtest.h>
#include <string>

namespace obrin {
namespace {

class ServiceStatus : public testing::Test {
protected:
    ServiceStatus() {
        clasp.MaxForecastHours = 48;
        TimeStamp = now;
    }
    ~ServiceStatus() override {
        ScanUpChainDeletingAllLinks(&clasp);
        TimeStamp = 0;
    }

    Link* add(const char* name) {
        Link link;
        link.ResourceType = 1;
        link.Descriptor0 = "PercentSwapSpaceUsed";
        link.Descriptor1 = "_Total";
        link.Descriptor2 = "PercentSwapSpaceUsed";
        link.Descriptor3 = "-2";
        link.NameIs = name;
        return add(link);
    }
    Link* addDisk(const char* instance) {
        Link link;
        link.ResourceType = 2;
        link.Descriptor0 = "LogicalDisk";
        link.Descriptor1 = instance;
        link.Descriptor2 = "PercentFreeSpaceUsed";
        link.Descriptor3 = "-2";
        link.NameIs = "Disk Space";
        return add(link);
    }
    Link* add(Link& link) {
        link.RID = ++rid;
        link.AnalyticalMethod = 1;
        link.pClasp = &clasp;
        EXPECT_EQ(CreateLinkInChainAndCopyData(&link), 1);
        return clasp.pLastLink;
    }
    static void forecast(Link* link, double hours, std::int32_t time = now) {
        link->findings.forecastTime = time;
        link->findings.hoursToExhaustion = hours;
        link->findings.usableSamples = samplesForForecast;
    }

    static constexpr std::int32_t now = 1700000000;
    Clasp clasp;
    std::int32_t rid = 0;
};

TEST_F(ServiceStatus, BeforeTheFirstForecastItCountsSamples) {
    EXPECT_EQ(describeService(clasp), "0 resources; collecting: 0 of 200 samples");
    add("Swap")->findings.usableSamples = 12;
    EXPECT_EQ(describeService(clasp), "1 resource; collecting: 12 of 200 samples");
    add("Memory")->findings.usableSamples = 35;
    EXPECT_EQ(describeService(clasp), "2 resources; collecting: 35 of 200 samples");
    clasp.pLastLink->findings.usableSamples = 200;
    EXPECT_EQ(describeService(clasp), "2 resources; no forecast");
}

TEST_F(ServiceStatus, ATemplateIsNoResource) {
    add("Swap");
    addDisk("*")->Descriptor3 = "-1";
    EXPECT_EQ(describeService(clasp), "1 resource; collecting: 0 of 200 samples");
}

TEST_F(ServiceStatus, WhatRunsOutFirstIsNamedADiskByItsPlace) {
    forecast(add("Swap"), -1.0);
    EXPECT_EQ(describeService(clasp), "1 resource; nothing runs out within 48 h");
    forecast(addDisk("/dev/sda1 /data"), 5.0);
    EXPECT_EQ(describeService(clasp), "2 resources; /data runs out in 5 h");
    forecast(add("Memory"), 6.0);
    EXPECT_EQ(describeService(clasp), "3 resources; /data runs out in 5 h");
    forecast(add("Descriptors"), 2.25);
    EXPECT_EQ(describeService(clasp), "4 resources; Descriptors runs out in 2 h 15 min");
}

TEST_F(ServiceStatus, TheTimeCountsFromNowAndNotFromTheForecast) {
    Link* disk = addDisk("/dev/sda1 /data");
    forecast(disk, 5.0, now - 3600);
    EXPECT_EQ(describeService(clasp), "1 resource; /data runs out in 4 h");
    forecast(disk, 1.0, now - 3600);
    EXPECT_EQ(describeService(clasp), "1 resource; /data runs out now");
}

TEST_F(ServiceStatus, WhatIsAtItsLimitComesFirst) {
    forecast(add("Swap"), 1.0);
    Link* disk = addDisk("/dev/sda1 /data");
    disk->DataArray[0] = 100.0;
    EXPECT_EQ(describeService(clasp), "2 resources; Swap runs out in 60 min");
    disk->findings.valueRead = true;
    EXPECT_EQ(describeService(clasp), "2 resources; /data is at its limit");
}

TEST_F(ServiceStatus, ANameIsOneLineOfTextWhateverItsBytes) {
    forecast(addDisk("tmpfs /a\nMAINPID=1\x7f\t\xff\xC3\xA4\xC3"), 5.0);
    EXPECT_EQ(describeService(clasp), "1 resource; /a?MAINPID=1???\xC3\xA4? runs out in 5 h");
}

TEST_F(ServiceStatus, NoCharacterOfANameSteersATerminalOrTurnsTheReadingOrder) {
    struct Case {
        const char* name;
        const char* shown;
    };
    const Case cases[] = {
        {"\x1b[31m", "?[31m"},
        {"\xc2\x80 \xc2\x9b \xc2\xa0", "? ? \xc2\xa0"},
        {"\xd8\x9c \xd8\x9b", "? \xd8\x9b"},
        {"\xe2\x80\x8a \xe2\x80\x8b \xe2\x80\x8f \xe2\x80\x90", "\xe2\x80\x8a ? ? \xe2\x80\x90"},
        {"\xe2\x80\xa7 \xe2\x80\xa8 \xe2\x80\xae \xe2\x80\xaf", "\xe2\x80\xa7 ? ? \xe2\x80\xaf"},
        {"\xe2\x81\x9f \xe2\x81\xa0 \xe2\x81\xaf \xe2\x81\xb0", "\xe2\x81\x9f ? ? \xe2\x81\xb0"},
        {"\xef\xbb\xbf\xef\xbb\xbe", "?\xef\xbb\xbe"},
    };
    for (const auto& [name, shown] : cases) {
        Link* disk = addDisk((std::string("tmpfs /") + name).c_str());
        forecast(disk, 5.0);
        EXPECT_EQ(describeService(clasp), std::string("1 resource; /") + shown + " runs out in 5 h");
        ScanUpChainDeletingAllLinks(&clasp);
    }
}

TEST(ServiceStatusOfAStart, TellsHowMuchOfTheArchiveHasBeenRead) {
    EXPECT_EQ(describeReadingArchive(2, 5), "reading the archive: 40 %");
    EXPECT_EQ(describeReadingArchive(0, 0), "reading the archive: 0 %");
    EXPECT_EQ(describeReadingArchive(5000000000, 5000000000), "reading the archive: 100 %");
}

} // namespace
} // namespace obrin
