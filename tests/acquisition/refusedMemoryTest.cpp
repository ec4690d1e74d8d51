// The sampling cycle where memory is refused: the rings stay in step.

#include "acquisition/circularBuffers.h"
#include "acquisition/samplingCycle.h"
#include "resources/resourceChain.h"
#include "resources/windowSizing.h"
#include "tests/acquisition/testMachine.h"
#include "tests/support/refusedAllocations.h"

namespace obrin::test {
namespace {

TEST(RefusedMemory, ACycleGivesEveryRingItsSampleOrNone) {
    TestMachine machine;
    Clasp clasp;
    clasp.ScratchPad = machine.path("pad");
    clasp.HardDriveArchive = machine.path("archive");
    clasp.MillisecondsPerSample = 1000;
    for (int i = 1; i <= 40; ++i) {
        Link link = systemLink(("Whatever " + std::to_string(i)).c_str());
        link.RID = i;
        link.WindowSize = 1;
        link.pClasp = &clasp;
        ASSERT_EQ(CreateLinkInChainAndCopyData(&link), 1);
    }
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    unsigned sampled = 0;
    unsigned withoutLine = 0;
    for (long n = 1, refused = 1; refused > 0; ++n) {
        allocations.begin(n, n);
        try {
            const Watched agent;
            EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        } catch (const std::bad_alloc&) {
        }
        refused = allocations.refused;
        allocations.refuseNoMore();
        const unsigned before = sampled;
        sampled = clasp.pFirstLink->SampleCount;
        withoutLine += refused > 0 && sampled > before ? 1 : 0;
        for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
            ASSERT_EQ(link->SampleCount, sampled) << n << " " << link->RID;
    }
    EXPECT_GE(withoutLine, 3U) << "the line alone was lost";
    ScanUpChainDeletingAllLinks(&clasp);
}

} // namespace
} // namespace obrin::test
