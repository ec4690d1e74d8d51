#pragma once

#include "acquisition/circularBuffers.h"

namespace obrin {

/// Sees to it that a new resource gets none of the numbers that the newest lines of the archive hold
/// (highestArchivedNumber()), in case the scratch pad has lost one. To be called before the first number is
/// given. Agent thread.
void keepArchivedNumbers(Clasp* clasp);

/// In a run that resumes (Clasp::resumes), fills the rings of all links that await it (Link::awaitsHistory)
/// from the archive, in one reading for all, notes with each how many samples it took over, and tells the
/// log. No ring is tried twice, also when memory or the reading fails: the run goes on with what there is.
/// To be called before a new link gets its first sample. Agent thread.
void resumeRings(Clasp* clasp, const ReadOn& readOn);

} // namespace obrin
