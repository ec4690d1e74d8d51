#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <memory>
#include <string>

namespace obrin {

// The doubly linked chain of monitored resources, in ascending order of RID. The chain owns its links, each
// link its buffers. The agent thread alone changes it, under chainLock (agent/agentState.h); the functions
// here that change it take that lock themselves and so must not be called with it held. Results: 1 done, -1
// failed, 2 found, -2 not found.

/// Hands the next number to the link: increments MaximumRIDValue of its owner. 1; -1 with a log line, and the
/// link as it was, when no number is left. MaximumRIDValue is at least every number in the chain (insertion
/// sees to that) and, after a search of the scratch pad, every number stored there, so the next number is
/// nobody's.
int GenerateNewRID(Link* link);

/// 2 when both have the same type, that type is 1 or 2, and all four descriptors are equal to the byte; -2
/// otherwise.
int CompareLinks(const Link* a, const Link* b);

/// A text that is equal for two links exactly when CompareLinks says 2; empty for a link of another type.
std::string linkIdentity(const Link& link);

/// 2 when a link of the owner's chain compares equal, else -2. Does not walk the chain.
int CheckForDuplicateLinkInChain(const Link* link);

/// Inserts a new copy of `link` in RID order. 1; -1 when the copy cannot be made (logged) or when its RID
/// stands in the chain before the last link. An RID equal to the last link's is appended behind it.
int CreateLinkInChainAndCopyData(const Link* link);

/// Makes a copy with provisional buffers of windowSamples() slots (none when the window is not above 0), idle
/// and outside any chain. 1; -1 with a log line and `*out` empty when memory is short.
int CreateAndCopyType2Resource(std::unique_ptr<Link>* out, const Link* link);

/// Frees a link that stands in no chain, with its buffers. 1, also for none.
int DeleteType2Resource(std::unique_ptr<Link> link);

/// Takes a link out of its chain, wherever it stands, keeping both ends right; the caller becomes its owner.
std::unique_ptr<Link> takeLinkFromChain(Link* link);

/// Deletes every link from the last to the first, with one log line each, and leaves the chain empty.
void ScanUpChainDeletingAllLinks(Clasp* clasp);

/// Log every link with PrintLink, from the last up or from the first down.
void ScanUpChain(Clasp* clasp);
void ScanDownChain(Clasp* clasp);
void PrintLink(const Link* link);
void PrintClasp(const Clasp* clasp);

} // namespace obrin
