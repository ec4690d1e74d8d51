// The scratch pad where memory is refused: no number is given to two resources.

#include "resources/linkLogic.h"
#include "resources/resourceChain.h"
#include "resources/scratchPad.h"
#include "tests/resources/chainFixture.h"
#include "tests/support/refusedAllocations.h"

#include <filesystem>
#include <sys/resource.h>

namespace obrin::test {
namespace {

class RefusedMemory : public ChainTest {
protected:
    static std::int32_t numberIn(ScratchPad& pad, const Link& link) {
        std::int32_t rid = 0;
        CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid);
        return rid;
    }
};

TEST_F(RefusedMemory, ANumberThatTheScratchPadKnowsIsAlsoInItsFile) {
    for (long n = 1;; ++n) {
        const std::string path = directory.path("pad" + std::to_string(n));
        ScratchPad pad(path);
        Link first = makeLink(1, "a resource with a long name");
        ASSERT_EQ(GenerateNewRID(&first), 1);
        allocations.begin(n, n);
        try {
            const Watched agent;
            RecordLinkForRIDCollision(pad, &first);
        } catch (const std::bad_alloc&) {
        }
        const bool refused = allocations.refused > 0;
        allocations.refuseNoMore();
        Link second = makeLink(1, "another resource with a long name");
        const std::int32_t known = numberIn(pad, first);
        if (known == -2) { // not recorded: it gets another number, and nobody this one
            ASSERT_EQ(GenerateNewRID(&first), 1);
            EXPECT_EQ(RecordLinkForRIDCollision(pad, &first), 1);
        }
        ASSERT_EQ(GenerateNewRID(&second), 1);
        EXPECT_EQ(RecordLinkForRIDCollision(pad, &second), 1);
        ScratchPad nextRun(path);
        EXPECT_EQ(numberIn(nextRun, first), first.RID) << n;
        EXPECT_EQ(numberIn(nextRun, second), second.RID) << n;
        EXPECT_NE(first.RID, second.RID);
        if (!refused)
            break;
    }
}

TEST_F(RefusedMemory, ADeclaredResourceIsNotMissingForTheWholeRunBecauseMemoryWasRefusedOnce) {
    const std::string text =
        " FindInstance (a long name of an instance) FindCounter (count) WindowSize 1.5 "
        "NameIs (Name) AnalyticalMethod 3 UpperLimitAbs 0 UpperLimitCalc 0 LowerLimitAbs "
        "0 LowerLimitCalc 0 CulpritMarker (mark) EndResourceInput";
    long taken = 0;
    for (long n = 1, refused = 1; refused > 0; ++n) {
        clasp.ScratchPad = directory.path("pad" + std::to_string(n));
        ScratchPad pad(clasp.ScratchPad);
        TextScanner scanner(text);
        InputReading input{scanner, pad, &clasp};
        allocations.begin(n, n);
        try {
            const Watched agent;
            Type1ResourceLinkLogic(input, "a long name of an object");
            taken += allocations.refused; // refused, and no exception: the engine went on by itself
        } catch (const std::bad_alloc&) { // the start as a whole is tried again
        }
        refused = allocations.refused;
        allocations.refuseNoMore();
        EXPECT_FALSE(input.linkMissing) << n;
        ScanUpChainDeletingAllLinks(&clasp);
        clasp.MaximumRIDValue = 0;
    }
    EXPECT_GE(taken, 2);
}

TEST_F(RefusedMemory, AnIndexThatCannotBeReadAnewKeepsTheNumbersItKnew) {
    ScratchPad writer(clasp.ScratchPad);
    std::vector<Link> links;
    for (int i = 0; i < 20; ++i) {
        links.push_back(makeLink(1, "a resource with a long name " + std::to_string(i)));
        ASSERT_EQ(GenerateNewRID(&links.back()), 1);
        ASSERT_EQ(RecordLinkForRIDCollision(writer, &links.back()), 1);
    }
    const std::string known = readFile(clasp.ScratchPad);
    Link added = makeLink(1, "added by others");
    ASSERT_EQ(GenerateNewRID(&added), 1);
    ASSERT_EQ(RecordLinkForRIDCollision(writer, &added), 1);
    const std::string changed = readFile(clasp.ScratchPad);
    long refusals = 0;
    for (long n = 1, refused = 1; refused > 0; ++n) {
        writeFile(clasp.ScratchPad, known);
        ScratchPad pad(clasp.ScratchPad);
        ASSERT_TRUE(pad.refresh());
        writeFile(clasp.ScratchPad, changed); // the file is to be read anew
        allocations.begin(n, n);
        try {
            const Watched agent;
            pad.refresh();
        } catch (const std::bad_alloc&) {
        }
        refused = allocations.refused;
        refusals += refused;
        allocations.refuseNoMore();
        rlimit before{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{0, before.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0); // what it knows is all there is
        bool all = true;
        for (const Link& link : links)
            all = all && numberIn(pad, link) == link.RID;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_TRUE(all) << n;
        EXPECT_TRUE(pad.refresh());
        EXPECT_EQ(numberIn(pad, added), added.RID) << n;
    }
    EXPECT_GT(refusals, 20);
}

} // namespace
} // namespace obrin::test
