#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

/// Medians (place w / 2 in sorted order) of the windows in[i s .. i s + w - 1], i < windows, all of them
/// complete, into `out`. No NaN, no negative zero; w >= 2, s >= 1. Any thread.
///
/// A stretch of about four windows is sorted once, which gives each sample a rank. The window is then a set
/// of ranks, one bit each: to slide is to clear a bit and set another, and the median, which moves by at most
/// one element a sample, is the next or the previous bit set. The mean cost of a sample is that of sorting
/// (O(log w)) and a few instructions; the worst, for a series that jumps between two far levels at each
/// sample, another w / 16 instructions for finding that bit.
void slidingMedians(const float* in, Count w, Count s, Count windows, float* out);

} // namespace obrin
