#include "acquisition/samplingCycle.h"

#include "acquisition/archiveFile.h"
#include "acquisition/archiveResume.h"
#include "acquisition/circularBuffers.h"
#include "acquisition/counterReaders.h"
#include "acquisition/diskListing.h"
#include "acquisition/instances.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/stopSync.h"
#include "resources/resourceChain.h"
#include "resources/scratchPad.h"
#include "support/numberText.h"
#include "trendviewer/trendFiles.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <vector>

namespace obrin {
namespace {

bool readLink(Link* link) {
    const int result = ReadRawData(link);
    if (result == -1)
        DEBUGMSG("Failure of ReadRawData. Error Code %d\n", result);
    return result != -1;
}

/// Takes back what a reading of the instance before has written into the working copy of a template, so that
/// an instance without a reading of its own shows the template's value and not its neighbour's.
void putBack(const Link& pattern, Link* instance) {
    std::copy(std::begin(pattern.DataArray), std::end(pattern.DataArray), instance->DataArray);
    instance->UpperLimitCalc = pattern.UpperLimitCalc;
}

/// Puts the working copy of an instance into the chain unless it is there: under its old number when the
/// scratch pad knows it, else under a new one and with its first reading. False when that reading failed
/// severely.
bool adopt(ScratchPad& scratchPad, const Link& pattern, Link* instance) {
    if (CheckForDuplicateLinkInChain(instance) != -2)
        return true;
    putBack(pattern, instance);
    std::int32_t knownRid = -2;
    instance->awaitsHistory = CheckForDuplicateLinkInFileAndGetRID(scratchPad, instance, &knownRid) != -2;
    if (!instance->awaitsHistory) {
        if (GenerateNewRID(instance) != 1)
            return true;
        RecordLinkForRIDCollision(scratchPad, instance);
        if (!readLink(instance))
            return false;
    } else {
        instance->RID = knownRid;
    }
    CreateLinkInChainAndCopyData(instance);
    return true;
}

bool expandProcessTemplate(ScratchPad& scratchPad, const Link* pattern) {
    const int count = GetNumberOfPIDsPerProcess(pattern->Descriptor0.c_str(), pattern->Descriptor1.c_str());
    if (count < 1)
        return true;
    std::vector<std::int32_t> pids(static_cast<std::size_t>(count));
    const int found = RetrievePIDsGivenProcess(pattern->Descriptor0.c_str(), pattern->Descriptor1.c_str(),
                                               count, pids.data());
    std::unique_ptr<Link> instance;
    if (found < 1 || CreateAndCopyType2Resource(&instance, pattern) != 1)
        return true;
    for (int i = 0; i < std::min(count, found); ++i) {
        instance->Descriptor3.assign(std::to_string(pids[static_cast<std::size_t>(i)]));
        if (!adopt(scratchPad, *pattern, instance.get()))
            return false;
    }
    DeleteType2Resource(std::move(instance));
    return true;
}

bool expandDiskTemplate(ScratchPad& scratchPad, const Link* pattern) {
    const int count = GetNumberOfdisks();
    if (count < 1)
        return true;
    std::vector<DiskName> names;
    const int found = Retrievedisks(count, &names);
    if (found < 0) {
        DEBUGMSG("Retrievedisks returned error code %d\n", found);
        return true;
    }
    std::unique_ptr<Link> instance;
    if (CreateAndCopyType2Resource(&instance, pattern) != 1)
        return true;
    for (const DiskName& name : names) {
        instance->Descriptor3.assign("-2");
        instance->Descriptor1.assign(name.view());
        if (!adopt(scratchPad, *pattern, instance.get()))
            return false;
    }
    DeleteType2Resource(std::move(instance));
    return true;
}

/// Reads every link and expands every template. New links stand behind their template, so the same walk
/// reaches them; but for one that gets back a number below the template's, which is read in the next cycle.
bool readChain(Clasp* clasp) {
    ScratchPad& scratchPad = scratchPadOf(*clasp);
    scratchPad.settle(); // what a full disk refused in an earlier cycle may fit now
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        bool done = true;
        if (link->ResourceType == 1 || (link->ResourceType == 2 && !isTemplate(*link)))
            done = readLink(link);
        else if (isTemplate(*link) && link->Descriptor0 == "Process")
            done = expandProcessTemplate(scratchPad, link);
        else if (isTemplate(*link) && link->Descriptor0 == "LogicalDisk")
            done = expandDiskTemplate(scratchPad, link);
        if (!done)
            return false;
    }
    return true;
}

void removeUnmountedDisks(Clasp* clasp) {
    const MountTable mounted = MountTable::read();
    RemovalPass removals;
    for (Link* link = clasp->pFirstLink; link != nullptr;) {
        Link* next = link->pNextLink;
        if (link->ResourceType == 2 && !isTemplate(*link) && link->Descriptor0 == "LogicalDisk" &&
            isGone(mounted, link->Descriptor1.view())) {
            deleteResourceTrendFilesSynchronized(link, &removals);
            DeleteType2Resource(takeLinkFromChain(link));
        }
        link = next;
    }
}

void appendTriple(std::string& line, const Link& link) {
    char value[longestNumberText];
    line.append(std::to_string(link.RID)).append(" ").append(std::to_string(link.SampleStatus)).append(" ");
    line.append(value, putFixed(value, link.DataArray[0], 2)).append(" ");
}

/// Before the archive line, which memory may be refused to: the rings need none.
void pushSamples(Clasp* clasp) {
    MutexLock lock(chainLock);
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink)
        if (!isTemplate(*link))
            pushSample(*link, static_cast<double>(TimeStamp), link->DataArray[0]);
}

/// The archive line of this cycle's samples.
std::string archiveLine(const Clasp& clasp) {
    std::string line = std::to_string(TimeStamp) + " ";
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        if (!isTemplate(*link))
            appendTriple(line, *link);
    return line + "\n";
}

/// After a step of the clock, moves what is held along with it, so that the time between two samples stays
/// the time that went by.
void followClock(Clasp* clasp, std::int64_t step) {
    MutexLock lock(chainLock);
    const auto seconds = static_cast<double>(step);
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        moveSamples(*link, seconds);
        if (link->findings.forecastTime == 0)
            continue;
        link->findings.forecastTime += step;
        link->findings.forecastOrigin += seconds;
    }
}

void stampCycle(Clasp* clasp) {
    const auto [now, step] = clasp->clockSteps.look(clasp->MillisecondsPerSample);
    TimeStamp = now;
    char text[32] = "";
    ::ctime_r(&now, text);
    DEBUGMSG("\n************ TimeStamp = %lld = %s\n", static_cast<long long>(TimeStamp), text);
    if (step == 0)
        return;
    followClock(clasp, step);
    DEBUGMSG(
        "The clock has stepped by %+lld seconds (it was set, or the machine slept): all samples move along\n",
        static_cast<long long>(step));
}

} // namespace

int RawDataRetrievalAndArchive(Clasp* clasp) {
    const int refreshed = RefreshRawData();
    if (refreshed != 1) {
        DEBUGMSG("Failure of RefreshRawData at point A. Error Code %d\n", refreshed);
        return -1;
    }
    stampCycle(clasp);
    beginListingCycle(std::chrono::milliseconds(clasp->MillisecondsPerSample));
    beginSelectionCycle();
    if (!readChain(clasp))
        return -1;
    removeUnmountedDisks(clasp);
    resumeRings(clasp, [](std::int64_t, std::int64_t) { return continueExecuting != 0; });
    pushSamples(clasp);
    return appendArchiveLine(clasp->HardDriveArchive, archiveLine(*clasp)) ? 1 : -1;
}

} // namespace obrin
