#pragma once

#include "resources/resourceRecords.h"

namespace obrin {

// The ring of (time, value) samples of each link. While SampleCount is below BufferSize, slots 0 to
// SampleCount-1 hold the samples from oldest to newest; once full, the i-th oldest is at (NextSlot + i) mod
// BufferSize. The agent thread alone changes it, under chainLock; what changes it here takes that lock
// itself, but for pushSample.

/// Gives a link an empty ring of its window's size, zeroed. False, and none at all, when it cannot be had.
bool allocateRing(Link& link, std::int32_t millisecondsPerSample);

/// Sizes every link's ring to its window, templates included, empty and zeroed. 1; -1 with a log line at the
/// first ring that cannot be had: that link is left without a ring, links further down keep their old state.
int allocatecircularbuffers(Clasp* clasp);

/// The slots of the ring from the oldest sample to the newest are slotOfSample(link, 0) to
/// slotOfSample(link, samplesHeld(link) - 1).
std::uint32_t samplesHeld(const Link& link);
std::uint32_t slotOfSample(const Link& link, std::uint32_t place);

/// Adds one sample; the oldest goes when the ring is full. Constant time, no allocation. Nothing for a link
/// without a ring. With chainLock held.
void pushSample(Link& link, double time, double value);

/// Fills the rings from the archive file. 1, also without an archive; -1 with a log line when the archive
/// ends inside a triple. Samples older than a link's window and of resources no longer in the chain are
/// passed over.
int refreshcircularbuffers(Clasp* clasp);

/// Write rings to the log in time order. Always 1.
int dumpallcircularbuffers(Clasp* clasp);
int dumponecircularbuffer(const Link* link);

} // namespace obrin
