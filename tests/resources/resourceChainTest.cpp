#include "resources/resourceChain.h"

#include "tests/resources/chainFixture.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <random>

namespace obrin::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ResourceChain : public ChainTest {};

TEST_F(ResourceChain, KeepsAscendingOrderWhateverTheOrderOfInsertion) {
    EXPECT_EQ(insert(5, "e"), 1);
    EXPECT_EQ(insert(2, "b"), 1);
    EXPECT_EQ(insert(9, "i"), 1);
    EXPECT_EQ(insert(7, "g"), 1);
    EXPECT_THAT(chain(), ElementsAre("b 2", "e 5", "g 7", "i 9"));
}

TEST_F(ResourceChain, KeepsItsOrderWhileLinksComeAndGo) {
    std::mt19937 random(5);
    std::map<std::int32_t, Link*> expected;
    for (int step = 0; step < 2000; ++step) {
        const auto rid = static_cast<std::int32_t>(1 + random() % 200);
        const auto known = expected.find(rid);
        if (known != expected.end() && random() % 2 == 0) {
            takeLinkFromChain(known->second);
            expected.erase(known);
            continue;
        }
        const bool taken = known == expected.end();
        if (!taken && rid == clasp.pLastLink->RID)
            continue; // may be there twice
        ASSERT_EQ(insert(rid, "x"), taken ? 1 : -1);
        if (taken) {
            Link* link = clasp.pFirstLink;
            while (link->RID != rid)
                link = link->pNextLink;
            expected[rid] = link;
        }
        ASSERT_EQ(chain().size(), expected.size());
    }
    const Link* link = clasp.pFirstLink;
    for (const auto& [rid, there] : expected) {
        EXPECT_EQ(link, there);
        link = link->pNextLink;
    }
}

TEST_F(ResourceChain, ANumberEqualToTheLastLinksIsAppended) {
    insert(1, "a");
    insert(2, "b");
    EXPECT_EQ(insert(2, "c"), 1);
    EXPECT_THAT(chain(), ElementsAre("a 1", "b 2", "c 2"));
}

TEST_F(ResourceChain, ANumberEqualToOneInTheMiddleIsRefused) {
    insert(1, "a");
    insert(2, "b");
    insert(3, "c");
    EXPECT_EQ(insert(2, "x"), -1);
    EXPECT_EQ(insert(1, "x"), -1);
    EXPECT_THAT(chain(), ElementsAre("a 1", "b 2", "c 3"));
}

TEST_F(ResourceChain, ANumberThatTheLastTwoLinksShareIsRefused) {
    insert(2, "b");
    insert(2, "c");
    EXPECT_EQ(insert(2, "d"), -1);
    EXPECT_THAT(chain(), ElementsAre("b 2", "c 2"));
}

TEST_F(ResourceChain, LinksOfDifferentTypeNeverCompareEqual) {
    Link one = makeLink(1, "a");
    Link two = makeLink(2, "a");
    EXPECT_EQ(CompareLinks(&one, &two), -2);
    EXPECT_EQ(CompareLinks(&one, &one), 2);
    EXPECT_NE(linkIdentity(one), linkIdentity(two));
}

TEST_F(ResourceChain, LinksOfAnotherTypeEqualNothing) {
    Link three = makeLink(3, "a");
    EXPECT_EQ(CompareLinks(&three, &three), -2);
    EXPECT_EQ(linkIdentity(three), "");
    EXPECT_EQ(CheckForDuplicateLinkInChain(&three), -2);
}

TEST_F(ResourceChain, ComparisonLooksAtEachDescriptorToTheByteAndAtNothingElse) {
    Link link = makeLink(1, "a", "b", "c", "-2");
    const Link others[] = {makeLink(1, "A", "b", "c"), makeLink(1, "a", "b ", "c"), makeLink(1, "a", "b", ""),
                           makeLink(1, "a", "b", "c", "-1"), makeLink(1, "ab", "", "c")};
    for (const Link& other : others) {
        EXPECT_EQ(CompareLinks(&link, &other), -2);
        EXPECT_NE(linkIdentity(link), linkIdentity(other));
    }
    Link renamed = makeLink(1, "a", "b", "c", "-2");
    renamed.NameIs = "another";
    renamed.UpperLimitAbs = 7;
    renamed.CulpritMarker = "other";
    EXPECT_EQ(CompareLinks(&link, &renamed), 2);
    EXPECT_EQ(linkIdentity(link), linkIdentity(renamed));
}

TEST_F(ResourceChain, NumbersBeginAtOneAndGoUpByOne) {
    Link link = makeLink(1, "a");
    EXPECT_EQ(GenerateNewRID(&link), 1);
    EXPECT_EQ(link.RID, 1);
    EXPECT_EQ(GenerateNewRID(&link), 1);
    EXPECT_EQ(link.RID, 2);
    EXPECT_EQ(clasp.MaximumRIDValue, 2);
}

TEST_F(ResourceChain, NoNumberIsGivenPastTheLargest) {
    clasp.MaximumRIDValue = std::numeric_limits<std::int32_t>::max() - 1;
    Link link = makeLink(1, "a");
    EXPECT_EQ(GenerateNewRID(&link), 1);
    EXPECT_EQ(GenerateNewRID(&link), -1);
    EXPECT_EQ(link.RID, 2147483647);
    EXPECT_EQ(clasp.MaximumRIDValue, 2147483647);
}

TEST_F(ResourceChain, AnInsertedNumberIsNeverGeneratedAgain) {
    insert(12, "a");
    Link link = makeLink(1, "b");
    GenerateNewRID(&link);
    EXPECT_EQ(link.RID, 13);
}

TEST_F(ResourceChain, ACopyTakesTheDeclarationAndStartsIdle) {
    Link link = makeLink(2, "a", "b", "c", "17");
    link.NameIs = "name";
    link.CulpritMarker = "marker";
    link.DataArray[0] = 3.5;
    link.DataArray[1] = 4.5;
    link.sampleWords[1] = 6;
    link.SampleStatus = 7;
    for (int i = 0; i < 4; ++i)
        link.predictionWords[i] = 8 + i;
    link.RID = 4;
    link.AnalyticalMethod = 1;
    link.UpperLimitAbs = 1;
    link.UpperLimitCalc = 2;
    link.LowerLimitAbs = 3;
    link.LowerLimitCalc = 4;
    link.NotifyPending = 1;
    link.NotifyLevel = 9;
    link.HysteresisCount = 9;
    link.NextSlot = 9;
    link.SampleCount = 9;
    std::unique_ptr<Link> copy;
    ASSERT_EQ(CreateAndCopyType2Resource(&copy, &link), 1);
    EXPECT_EQ(CompareLinks(&link, copy.get()), 2);
    EXPECT_EQ(copy->NameIs, "name");
    EXPECT_EQ(copy->CulpritMarker, "marker");
    EXPECT_EQ(copy->DataArray[0] + copy->DataArray[1], 8);
    EXPECT_EQ(copy->sampleWords[1], 6);
    EXPECT_EQ(copy->SampleStatus, 7);
    EXPECT_THAT(copy->predictionWords, ElementsAre(8, 9, 10, 11));
    EXPECT_EQ(copy->RID, 4);
    EXPECT_EQ(copy->AnalyticalMethod, 1);
    EXPECT_EQ(copy->UpperLimitAbs + 10 * copy->UpperLimitCalc, 21);
    EXPECT_EQ(copy->LowerLimitAbs + 10 * copy->LowerLimitCalc, 43);
    EXPECT_EQ(copy->pClasp, &clasp);
    EXPECT_EQ(copy->NotifyPending, 0);
    EXPECT_EQ(copy->NotifyLevel, 0);
    EXPECT_EQ(copy->HysteresisCount, 0);
    EXPECT_EQ(copy->NextSlot, 0U);
    EXPECT_EQ(copy->SampleCount, 0U);
    EXPECT_EQ(copy->BufferSize, 0U);
    EXPECT_EQ(copy->ValueBuffer, nullptr);
    EXPECT_EQ(DeleteType2Resource(std::move(copy)), 1);
    EXPECT_EQ(DeleteType2Resource(nullptr), 1);
}

TEST_F(ResourceChain, APositiveWindowGetsProvisionalBuffers) {
    Link link = makeLink(1, "a");
    link.WindowSize = 0.5;
    clasp.MillisecondsPerSample = 7000;
    std::unique_ptr<Link> copy;
    ASSERT_EQ(CreateAndCopyType2Resource(&copy, &link), 1);
    EXPECT_EQ(copy->BufferSize, 257U); // 1800 s / 7 s, truncated
    EXPECT_NE(copy->ValueBuffer, nullptr);
    EXPECT_NE(copy->TimeBuffer, nullptr);
}

TEST_F(ResourceChain, APositiveWindowBeforeTheAutomaticPeriodIsKnownGetsOneSlot) {
    Link link = makeLink(1, "a");
    link.WindowSize = 12;
    EXPECT_EQ(CreateLinkInChainAndCopyData(&link), 1);
    EXPECT_EQ(clasp.pFirstLink->BufferSize, 1U);
}

TEST_F(ResourceChain, BuffersThatCannotBeHadLeaveTheChainUnchangedAndAreLogged) {
    insert(5, "e");
    Link link = makeLink(1, "a");
    link.WindowSize = 1e300;
    clasp.MillisecondsPerSample = 1000;
    link.RID = 6;
    EXPECT_EQ(CreateLinkInChainAndCopyData(&link), -1);
    EXPECT_THAT(log.text(), HasSubstr("Fatal error in malloc circular buffer\n"));
    EXPECT_THAT(log.text(), HasSubstr("\n\nMemory cannot be allocated for new Link.\n\n"));
    link.RID = 1;
    EXPECT_EQ(CreateLinkInChainAndCopyData(&link), -1);
    EXPECT_THAT(log.text(), HasSubstr("\n\nMemory cannotbe allocated for new Link.\n\n"));
    EXPECT_THAT(chain(), ElementsAre("e 5"));
}

TEST_F(ResourceChain, ALinkIsTakenOutWhereverItStands) {
    for (int taken : {1, 2, 3}) {
        for (int rid : {1, 2, 3})
            insert(rid, std::string(1, static_cast<char>('a' + rid)));
        Link* link = clasp.pFirstLink;
        while (link->RID != taken)
            link = link->pNextLink;
        auto owned = takeLinkFromChain(link);
        EXPECT_EQ(owned.get(), link);
        EXPECT_EQ(CheckForDuplicateLinkInChain(link), -2);
        EXPECT_EQ(chain().size(), 2U);
        ScanUpChainDeletingAllLinks(&clasp);
    }
}

TEST_F(ResourceChain, TakingTheOnlyLinkLeavesAnEmptyChain) {
    insert(1, "a");
    takeLinkFromChain(clasp.pFirstLink);
    EXPECT_THAT(chain(), IsEmpty());
    EXPECT_EQ(clasp.pFirstLink, nullptr);
    EXPECT_EQ(clasp.pLastLink, nullptr);
}

TEST_F(ResourceChain, OfTwoEqualLinksTheRightOneIsTaken) {
    insert(1, "a");
    insert(2, "a");
    Link* second = clasp.pLastLink;
    takeLinkFromChain(clasp.pFirstLink);
    EXPECT_EQ(clasp.pLastLink, second);
    EXPECT_EQ(clasp.linksByIdentity.begin()->second, second);
}

TEST_F(ResourceChain, DeletingAllLinksLogsEachAndLeavesTheChainEmpty) {
    insert(1, "a");
    insert(2, "b");
    const Link* last = clasp.pLastLink;
    char expected[120];
    std::snprintf(expected, sizeof expected,
                  "ScanUpChainDeletingAllLinks(pResourceClasp=08%08x) deleting pLink1=08%08x\n",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(&clasp)),
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(last)));
    ScanUpChainDeletingAllLinks(&clasp);
    EXPECT_THAT(log.text(), ::testing::StartsWith(expected));
    EXPECT_EQ(occurrences(log.text(), "ScanUpChainDeletingAllLinks(pResourceClasp=08"), 2U);
    EXPECT_THAT(chain(), IsEmpty());
    EXPECT_EQ(clasp.pFirstLink, nullptr);
}

TEST_F(ResourceChain, PrintingGoesUpFromTheLastOrDownFromTheFirst) {
    insert(1, "a");
    insert(2, "b");
    ScanDownChain(&clasp);
    const std::string block =
        "\n+-----------------------------------------------------+\nDescriptor0 = a\nDescriptor1 = instance"
        "\nDescriptor2 = counter\nRID = 1\nWindowSize = -1.000000\npTargetLink->DataArray = 0.000000\n";
    EXPECT_THAT(log.text(), ::testing::StartsWith(block));
    const std::size_t before = log.text().size();
    ScanUpChain(&clasp);
    EXPECT_THAT(log.text().substr(before), ::testing::EndsWith(block));
    PrintClasp(&clasp);
    EXPECT_THAT(log.text(), HasSubstr("\npResourceClasp->pFirstLink = "));
    EXPECT_THAT(log.text(), HasSubstr("\npResourceClasp->MaxForecastHours = 48"));
}

} // namespace
} // namespace obrin::test
