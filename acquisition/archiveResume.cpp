#include "acquisition/archiveResume.h"

#include "acquisition/archiveReader.h"
#include "agent/debugLog.h"

#include <algorithm>
#include <new>

namespace obrin {
namespace {

/// Notes what the rings that awaited it took over; none awaits it any more.
void takeStock(Clasp* clasp) {
    long long samples = 0;
    int resources = 0;
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        if (!link->awaitsHistory)
            continue;
        link->awaitsHistory = false;
        link->resumedSamples = samplesHeld(*link);
        samples += link->resumedSamples;
        resources += link->resumedSamples > 0 ? 1 : 0;
    }
    DEBUGMSG("Resumed with %lld samples of %d resources from %s\n", samples, resources,
             clasp->HardDriveArchive.c_str());
}

} // namespace

void keepArchivedNumbers(Clasp* clasp) {
    off_t size = 0;
    if (const Descriptor archive = openArchiveToRead(clasp->HardDriveArchive, &size))
        clasp->MaximumRIDValue = std::max(clasp->MaximumRIDValue, highestArchivedNumber(archive.get(), size));
}

void resumeRings(Clasp* clasp, const ReadOn& readOn) {
    const Link* link = clasp->resumes ? clasp->pFirstLink : nullptr;
    while (link != nullptr && !link->awaitsHistory)
        link = link->pNextLink;
    if (link == nullptr)
        return;
    try {
        refreshcircularbuffers(clasp, true, readOn);
    } catch (const std::bad_alloc&) {
        DEBUGMSG("There is no memory to read the archive with\n");
    }
    takeStock(clasp);
}

} // namespace obrin
