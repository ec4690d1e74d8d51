#include "acquisition/archiveResume.h"

#include "acquisition/archiveReader.h"
#include "agent/debugLog.h"
#include "support/safeOpen.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <string>

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

/// 0 without an archive; nothing, with errno, when it cannot be read.
std::optional<std::int32_t> highestNumberOf(const std::string& path) {
    off_t size = 0;
    const Descriptor archive = openArchiveToRead(path, &size);
    if (!archive)
        return errno == ENOENT ? std::optional(0) : std::nullopt;
    return highestArchivedNumber(archive.get(), size);
}

} // namespace

void keepArchivedNumbers(Clasp* clasp) {
    std::optional<std::int32_t> highest = highestNumberOf(clasp->HardDriveArchive);
    if (!highest) // what fails once need not fail for good, and there is no second chance in this run
        highest = highestNumberOf(clasp->HardDriveArchive);
    if (!highest)
        DEBUGMSG("Archive file %s: its numbers cannot be read: %s\n", clasp->HardDriveArchive.c_str(),
                 whyNotOpened(errno));
    clasp->MaximumRIDValue = std::max(clasp->MaximumRIDValue, highest.value_or(0));
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
