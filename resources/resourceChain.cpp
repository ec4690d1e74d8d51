#include "resources/resourceChain.h"

#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "resources/windowSizing.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace obrin {

namespace {

/// Where a number goes: before `next`, or at the end when there is none.
struct Slot {
    bool allowed = true;
    Link* next = nullptr;
};

Slot placeInChain(const Clasp& clasp, std::int32_t rid) {
    // A new number is nearly always the highest; without this a machine with thousands of mounts walks for
    // ever.
    if (clasp.pLastLink == nullptr || rid > clasp.pLastLink->RID)
        return {};
    // Numbers that the scratch pad knew come mostly in order, too: the next place is near the last one.
    Link* link = clasp.lastInserted == nullptr ? clasp.pFirstLink : clasp.lastInserted;
    while (link->pNextLink != nullptr && link->RID < rid)
        link = link->pNextLink;
    while (link->pPrevLink != nullptr && link->pPrevLink->RID >= rid)
        link = link->pPrevLink;
    if (link->RID > rid)
        return {true, link};
    // A number that the chain has is refused in its middle and taken at its end.
    return {link->pNextLink == nullptr, nullptr};
}

void linkIn(Clasp& clasp, std::unique_ptr<Link> owned, Link* next) {
    Link* link = owned.release(); // the chain owns it from here on
    link->pNextLink = next;
    link->pPrevLink = next == nullptr ? clasp.pLastLink : next->pPrevLink;
    (link->pPrevLink == nullptr ? clasp.pFirstLink : link->pPrevLink->pNextLink) = link;
    (next == nullptr ? clasp.pLastLink : next->pPrevLink) = link;
    clasp.lastInserted = link;
}

void forgetIdentity(Clasp& clasp, const Link* link) {
    auto [entry, end] = clasp.linksByIdentity.equal_range(linkIdentity(*link));
    while (entry != end && entry->second != link)
        ++entry;
    if (entry != end)
        clasp.linksByIdentity.erase(entry);
}

/// Adds the copy to the chain. False, with the chain unchanged, when memory is short.
bool adopt(Clasp& clasp, std::unique_ptr<Link> copy, Link* next) {
    MutexLock lock(chainLock);
    try {
        clasp.linksByIdentity.emplace(linkIdentity(*copy), copy.get());
    } catch (const std::bad_alloc&) {
        return false;
    }
    clasp.MaximumRIDValue = std::max(clasp.MaximumRIDValue, copy->RID);
    linkIn(clasp, std::move(copy), next);
    return true;
}

std::unique_ptr<Link> copyWithoutBuffers(const Link& link) {
    auto copy = std::make_unique<Link>();
    copy->ResourceType = link.ResourceType;
    copy->Descriptor0 = link.Descriptor0;
    copy->Descriptor1 = link.Descriptor1;
    copy->Descriptor2 = link.Descriptor2;
    copy->Descriptor3 = link.Descriptor3;
    copy->NameIs = link.NameIs;
    copy->SampleStatus = link.SampleStatus;
    std::copy(std::begin(link.DataArray), std::end(link.DataArray), copy->DataArray);
    std::copy(std::begin(link.sampleWords), std::end(link.sampleWords), copy->sampleWords);
    copy->RID = link.RID;
    copy->WindowSize = link.WindowSize;
    copy->AnalyticalMethod = link.AnalyticalMethod;
    std::copy(std::begin(link.predictionWords), std::end(link.predictionWords), copy->predictionWords);
    copy->UpperLimitAbs = link.UpperLimitAbs;
    copy->UpperLimitCalc = link.UpperLimitCalc;
    copy->LowerLimitAbs = link.LowerLimitAbs;
    copy->LowerLimitCalc = link.LowerLimitCalc;
    copy->CulpritMarker = link.CulpritMarker;
    copy->awaitsHistory = link.awaitsHistory;
    copy->pClasp = link.pClasp;
    return copy;
}

bool giveProvisionalBuffers(Link& link) {
    return link.pClasp == nullptr || !(link.WindowSize > 0) ||
           allocateRing(link, link.pClasp->MillisecondsPerSample);
}

} // namespace

int GenerateNewRID(Link* link) {
    Clasp* clasp = link->pClasp;
    if (clasp == nullptr || clasp->MaximumRIDValue == std::numeric_limits<std::int32_t>::max()) {
        DEBUGMSG("No resource identifier is left for %s %s %s\n", link->Descriptor0.c_str(),
                 link->Descriptor1.c_str(), link->Descriptor2.c_str());
        return -1;
    }
    link->RID = ++clasp->MaximumRIDValue;
    return 1;
}

int CompareLinks(const Link* a, const Link* b) {
    const bool known = a->ResourceType == 1 || a->ResourceType == 2;
    const bool equal = a->ResourceType == b->ResourceType && a->Descriptor0 == b->Descriptor0 &&
                       a->Descriptor1 == b->Descriptor1 && a->Descriptor2 == b->Descriptor2 &&
                       a->Descriptor3 == b->Descriptor3;
    return known && equal ? 2 : -2;
}

std::string linkIdentity(const Link& link) {
    if (link.ResourceType != 1 && link.ResourceType != 2)
        return {};
    // No descriptor holds a NUL, so it keeps them apart.
    std::string identity(1, link.ResourceType == 1 ? '1' : '2');
    for (std::string_view part :
         {link.Descriptor0.view(), link.Descriptor1.view(), link.Descriptor2.view(), link.Descriptor3.view()})
        identity.append(1, '\0').append(part);
    return identity;
}

int CheckForDuplicateLinkInChain(const Link* link) {
    const std::string identity = linkIdentity(*link);
    const bool found =
        !identity.empty() && link->pClasp != nullptr && link->pClasp->linksByIdentity.contains(identity);
    return found ? 2 : -2;
}

int CreateLinkInChainAndCopyData(const Link* link) {
    if (link->pClasp == nullptr)
        return -1;
    Clasp& clasp = *link->pClasp;
    const Slot place = placeInChain(clasp, link->RID);
    if (!place.allowed)
        return -1;
    std::unique_ptr<Link> copy;
    if (CreateAndCopyType2Resource(&copy, link) == 1 && adopt(clasp, std::move(copy), place.next))
        return 1;
    if (place.next != nullptr && place.next == clasp.pFirstLink)
        DEBUGMSG("\n\nMemory cannotbe allocated for new Link.\n\n");
    else
        DEBUGMSG("\n\nMemory cannot be allocated for new Link.\n\n");
    return -1;
}

int CreateAndCopyType2Resource(std::unique_ptr<Link>* out, const Link* link) {
    out->reset();
    try {
        auto copy = copyWithoutBuffers(*link);
        if (giveProvisionalBuffers(*copy)) {
            *out = std::move(copy);
            return 1;
        }
    } catch (const std::bad_alloc&) { // told like any other allocation failure
    }
    DEBUGMSG("Fatal error in malloc circular buffer\n");
    return -1;
}

int DeleteType2Resource(std::unique_ptr<Link> link) {
    link.reset();
    return 1;
}

std::unique_ptr<Link> takeLinkFromChain(Link* link) {
    Clasp& clasp = *link->pClasp;
    MutexLock lock(chainLock);
    forgetIdentity(clasp, link);
    if (clasp.lastInserted == link)
        clasp.lastInserted = link->pPrevLink;
    (link->pPrevLink == nullptr ? clasp.pFirstLink : link->pPrevLink->pNextLink) = link->pNextLink;
    (link->pNextLink == nullptr ? clasp.pLastLink : link->pNextLink->pPrevLink) = link->pPrevLink;
    link->pPrevLink = nullptr;
    link->pNextLink = nullptr;
    return std::unique_ptr<Link>(link);
}

} // namespace obrin
