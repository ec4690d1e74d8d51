#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

/// Least-squares line y = slope x + intercept through n points, computed in double from the centred values
/// (two passes) and stored as float; the intercept is mean y - slope * mean x with the slope as stored. The
/// slope is 0 and the intercept mean y where the spread of x is not above zero: all x equal, n = 1, a NaN
/// among them (the intercept is then NaN). With n = 0 the intercept is NaN. A negative n ends the process
/// (Check_N, as "sum"). Any thread, no allocation.
void linearRegression(Count n, const float* x, const float* y, float* intercept, float* slope);

} // namespace obrin
