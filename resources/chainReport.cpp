// The walks that write the chain to the log, the deleting one among them.

#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "resources/resourceChain.h"

#include <cstdint>
#include <utility>

namespace obrin {

namespace {

/// The low 32 bits of an address: all that the log's texts have room for.
unsigned shortAddress(const void* address) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(address));
}

int signedAddress(const void* address) {
    return static_cast<int>(shortAddress(address));
}

/// Empties the chain in one step. The former last link; each owned through its up link.
Link* detachAll(Clasp& clasp) {
    MutexLock lock(chainLock);
    clasp.linksByIdentity.clear();
    clasp.pFirstLink = nullptr;
    clasp.lastInserted = nullptr;
    return std::exchange(clasp.pLastLink, nullptr);
}

} // namespace

void ScanUpChainDeletingAllLinks(Clasp* clasp) {
    if (clasp == nullptr)
        return;
    Link* link = detachAll(*clasp);
    while (link != nullptr) {
        std::unique_ptr<Link> owned(link);
        link = owned->pPrevLink;
        DEBUGMSG("ScanUpChainDeletingAllLinks(pResourceClasp=08%08x) deleting pLink1=08%08x\n",
                 shortAddress(clasp), shortAddress(owned.get()));
        DeleteType2Resource(std::move(owned));
    }
}

void ScanUpChain(Clasp* clasp) {
    for (const Link* link = clasp->pLastLink; link != nullptr; link = link->pPrevLink)
        PrintLink(link);
}

void ScanDownChain(Clasp* clasp) {
    for (const Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink)
        PrintLink(link);
}

void PrintLink(const Link* link) {
    DEBUGMSG("\n+-----------------------------------------------------+");
    DEBUGMSG("\nDescriptor0 = %s", link->Descriptor0.c_str());
    DEBUGMSG("\nDescriptor1 = %s", link->Descriptor1.c_str());
    DEBUGMSG("\nDescriptor2 = %s", link->Descriptor2.c_str());
    DEBUGMSG("\nRID = %d", link->RID);
    DEBUGMSG("\nWindowSize = %f", link->WindowSize);
    DEBUGMSG("\npTargetLink->DataArray = %f\n", link->DataArray[0]);
}

void PrintClasp(const Clasp* clasp) {
    DEBUGMSG("\n=======================================================");
    DEBUGMSG("\npResourceClasp->pFirstLink = %d", signedAddress(clasp->pFirstLink));
    DEBUGMSG("\npResourceClasp->pLastLink = %d", signedAddress(clasp->pLastLink));
    DEBUGMSG("\npResourceClasp->SolidStateMemory = %s", clasp->SolidStateMemory.c_str());
    DEBUGMSG("\npResourceClasp->DataHomeDirectory = %s", clasp->DataHomeDirectory.c_str());
    DEBUGMSG("\npResourceClasp->HardDriveArchive = %s", clasp->HardDriveArchive.c_str());
    DEBUGMSG("\npResourceClasp->ScratchPad = %s", clasp->ScratchPad.c_str());
    DEBUGMSG("\npResourceClasp->AnalysisLog = %s", clasp->AnalysisLog.c_str());
    DEBUGMSG("\npResourceClasp->ResourceText = %s", clasp->ResourceText.c_str());
    DEBUGMSG("\npResourceClasp->IniFile = %s", clasp->IniFile.c_str());
    DEBUGMSG("\npResourceClasp->MaximumRIDValue = %d", clasp->MaximumRIDValue);
    DEBUGMSG("\npResourceClasp->MillisecondsPerSample = %d", clasp->MillisecondsPerSample);
    DEBUGMSG("\npResourceClasp->MinForecastHours = %d", clasp->MinForecastHours);
    DEBUGMSG("\npResourceClasp->MaxForecastHours = %d", clasp->MaxForecastHours);
    DEBUGMSG("\n=======================================================\n");
}

} // namespace obrin
