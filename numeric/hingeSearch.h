#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

/// Hinge sets whose residual sum of squares lies within this part of the total sum of squares (about the
/// mean) above the least are equal; the first in lexicographic order wins. Below this line rounding decides,
/// and two LAPACKs disagree.
inline constexpr double hingeTieBand = 1e-12;

/// Chooses the k of P allowed positions for which the continuous piecewise-linear least-squares fit to M
/// points leaves the least residual sum of squares, by the rule of hingeTieBand, without fitting each: one
/// pass over the samples, then constant time and no memory for each of the C(P, k) sets (some 10 ns; none is
/// left out, so the caller bounds P and k).
///
/// Writes the k sample indices to `hinges` and returns true. Returns false with `hinges` untouched for input
/// whose least squares problem is not surely well posed, which is for the caller to fit set by set:
/// - anything but 1 <= k <= P and k + 2 < M;
/// - a sample that is not finite, or an abscissa below its predecessor;
/// - positions that do not ascend strictly within 1 ... M - 2;
/// - neighbours among the first sample, the positions and the last sample with the same abscissa.
///
/// Scratch memory of 9 doubles a position and 9 a hinge lives on in the calling thread. Any thread may call.
bool findBestHinges(Count M, const float* x, const float* y, Count P, const std::int32_t* positions, Count k,
                    std::int32_t* hinges);

/// Takes that memory for up to P positions and k hinges on the calling thread. False when it cannot be had.
[[nodiscard]] bool reserveHingeSearch(Count P, Count k) noexcept;

} // namespace obrin
