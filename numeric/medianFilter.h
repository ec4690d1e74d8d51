#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

// Running medians of n samples: a window of w samples moves along them by s at a time, and each of its places
// gives the element at sorted place count / 2 of the samples inside (the upper of two middle ones; no
// averages: every median is a sample). Nothing outside in[0 .. n - 1] is read, whatever n, w and s.
//
// w = 1: the n / s samples in[0], in[s], ... are copied, and nothing at all when `in` and `out` are the same
// array. Any other w: `in` and `out` do not overlap, and n < 1 gives no output.
// w < 1 or s < 1: one line in the log (and on standard error a w below 1), result 0, nothing written.
//
// NaN: the samples enter and leave a sorted buffer by searches that a NaN sends astray (it never leaves
// again, and is told in the log when it should); such input is filtered in that buffer, so that the result
// is that of the searches. The same holds for a negative zero, of which only the searches say which of two
// equal zeros stays. Both cost O(w) a sample.
//
// The window's memory ("buff" in the allocation messages, which end the process) is kept by the thread for
// its next call. Any thread.

/// The result is the number of medians in `out`. It depends on n, w and s alone, by the filter's own rule:
/// the filter stops when the next sample to enter is at or past ((n - w) / s + 1) * s. With s well below w
/// that is before the last complete window (n - 2 w + 2 outputs for s = 1); with s = w it is exact; with s >
/// w, one window more begins near the end or past it. A window that reaches past the end is taken of the
/// samples that are there, one that begins past it repeats in[n - 1]; so n < w gives the median of the n
/// samples. Never more than n / s + 2 outputs. Cost: windows that share little, O(w) each; else, whatever w
/// is, O(s + log w) a window in the mean.
Count median_filter(Count n, const float* in, Count w, Count s, float* out);

/// Takes the window's memory for filtering up to n samples on the calling thread, in windows of at most four
/// strides, so that median_filter() takes none. False when it cannot be had.
[[nodiscard]] bool reserveMedianFilter(std::int64_t n) noexcept;

/// As above, with the medians of the partial windows at both ends: the first ends at in[w / 2], the last
/// holds what is left past in[n - w / 2]. Where that is nothing (w of 2 or 3), the last median repeats the
/// element that was last stored at the front of the sorted buffer. `out` holds at least n + 2 elements; where
/// n < w / 2 - 1 would give more, the filter ends there. O(w) a sample; nothing in the agent calls it.
Count median_filter_with_border_effects(Count n, const float* in, Count w, Count s, float* out);

} // namespace obrin
