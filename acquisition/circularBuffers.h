#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <functional>

namespace obrin {

// The ring of (time, value) samples of each link. While SampleCount is below BufferSize, slots 0 to
// SampleCount-1 hold the samples from oldest to newest; once full, the i-th oldest is at (NextSlot + i) mod
// BufferSize. The agent thread alone changes it, under chainLock; what changes it here takes that lock
// itself, but for pushSample.

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

/// Moves the times of all samples by so many seconds. With chainLock held.
void moveSamples(Link& link, double seconds);

/// Keeps the samples that are younger at `now` than the link's window. With chainLock held.
void keepWithinWindow(Link& link, double now);

/// By how many seconds the clock was put back between two lines of an archive, as far as their times can
/// tell, a period apart: below 0, or 0 for as little as drift. A clock that was set forward looks like a
/// pause.
double stepBack(double before, double after, std::int32_t millisecondsPerSample);

/// After such a step, takes the samples that lie ahead of the line at `time` for so much earlier, those
/// before them along as long as they would lie ahead of the moved ones. So a few samples of a clock that was
/// ahead for a while leave those before them in their place. With chainLock held.
void followStepBack(Link& link, double time, double step);

/// Asked now and then while the archive is read, with the bytes that have been read and those to be read in
/// all; false ends the reading there.
using ReadOn = std::function<bool(std::int64_t read, std::int64_t all)>;

/// Fills rings from the archive file: those of all links, or of those that await it (Link::awaitsHistory). 1,
/// also without an archive and when the reading was ended; -1 with a log line when the archive ends inside a
/// triple. Samples as old as a link's window or older, and those of no such link, are passed over; so is
/// damage, with one log line. Where the times of the archive run back, and where they end ahead of the clock
/// (which the log says), the clock was put back: see followStepBack(). Of the archive only the part is read
/// that can be young enough, as beginOfYoungLines finds it. Readers of the rings on other threads wait for a
/// few thousand samples at most, or for one ring.
int refreshcircularbuffers(Clasp* clasp, bool onlyAwaiting = false, const ReadOn& readOn = {});

/// Write rings to the log in time order. Always 1.
int dumpallcircularbuffers(Clasp* clasp);
int dumponecircularbuffer(const Link* link);

} // namespace obrin
