#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

// Errors between two series of n floats. Each difference and each product is rounded to float before the
// mean, which is taken in double in index order; NaN for n = 0, a negative n ends the process (Check_N). The
// scratch array is called "diff" in the allocation messages, belongs to the thread and stays for the next
// call. Any thread.

/// Mean of (a_i - b_i)^2.
double MSE(Count n, const float* a, const float* b);

/// Mean of (a_i - b_i)^2 w_i, divided by n and not by the sum of the weights: a point of weight 0 counts as
/// one without error.
double WMSE(Count n, const float* a, const float* b, const float* w);

/// Takes the scratch array of up to n elements for the calling thread, so that the above take no memory.
/// False when it cannot be had.
[[nodiscard]] bool reserveErrorMeasures(std::int64_t n) noexcept;

} // namespace obrin
