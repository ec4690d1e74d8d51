#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

// Continuous piecewise-linear functions of time: least-squares fits whose breakpoints (hinges) lie on
// samples, the search for the best hinges, and evaluation. A function with k hinges is given by its k + 2
// endpoints: the first sample, the hinges, the last sample; endpoint abscissae are sample abscissae, endpoint
// ordinates are fitted values.
//
// Samples are M floats x (ascending) and M floats y. A negative M or k is a programming error and ends the
// process (Check_N). M = 0 has no endpoints to report: they stay untouched and the result is 0.0. A work
// array that cannot be had ends the process as allocateWork() says. Work arrays are the calling thread's and
// live on for its next call, which takes no memory when its sizes are not larger; they hold M (k + 4) + 32 M
// doubles, so M stays below 2^31 / (k + 34). Any thread may call.

/// Least-squares fit for k given hinges, which are ascending sample indices within 1 ... M - 2. Fills the
/// endpoints and returns the residual sum of squares; 0.0 when M <= k + 2.
///
/// Two hinges with the same abscissa, or a hinge at the first or last sample, let infinities, not-a-number or
/// a singular matrix into LAPACK, and what comes out is the result. With fewer samples than unknowns (M < k +
/// 2) the log receives "dgels failed miserably!", and the ordinates are the first M values, then 0.0.
double find_piec_lin_fit_ord(Count M, const float* x, const float* y, Count k, const std::int32_t* hinges,
                             float* endpoints_x, float* endpoints_y);

/// The best fit with k hinges out of P allowed positions (ascending sample indices). Endpoints and result are
/// those of find_piec_lin_fit_ord for the set with the least residual sum of squares; among sets within
/// hingeTieBand of the total sum of squares of the least (hingeSearch.h), for the first in lexicographic
/// order. k = 0 is the straight line.
///
/// When k exceeds P, standard error receives three lines that say so and k becomes P: the caller's endpoints
/// hold P + 2 values then.
///
/// Costs one fit, and some 10 ns for each of the C(P, k) sets. Input that findBestHinges() declines (not
/// finite, times that step back, positions out of place) costs one fit a set, the least strictly smaller one
/// winning, and a not-a-number of the first set being kept. The enumeration is complete in either case, there
/// is no limit of time: the caller keeps C(P, k) reasonable.
double best_piecewise_fit(Count M, const float* x, const float* y, Count P, const std::int32_t* positions,
                          Count k, float* endpoints_x, float* endpoints_y);

/// Takes the work arrays of fits to up to M samples with up to k hinges out of P positions for the calling
/// thread, so that both of the above take no memory. False when they cannot be had, or M is out of range.
[[nodiscard]] bool reservePiecewiseFits(std::int64_t M, Count P, Count k) noexcept;

/// Evaluates the polyline with m endpoints (ex ascending) at n ascending abscissae x; the first and the last
/// segment go on beyond the ends. Computed in double, each value rounded once. Returns 1; or 0 with a line on
/// standard error and y untouched when m < 2 or n < 0.
int y_eq_piec_lin_x(Count m, const float* ex, const float* ey, Count n, const float* x, float* y);

} // namespace obrin
