#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

// Searches in n sorted floats, ascending for order 1, descending for any other order; about log2(n)
// comparisons. 0 with *pos untouched when n < 1. No lock, no allocation. Where a NaN stands in the array or
// is looked for, the place is one inside the array or one of the two that mean "none", and nothing outside
// the array is read.

/// 1 with *pos the index of an element equal to value (any of several), else 0 with *pos untouched.
int BinSearch(float value, const float* arr, Count n, int order, std::int32_t* pos);

/// The smallest element >= value: 1 with its index (the first of equals ascending, the last descending); 0
/// with *pos = n (ascending) or -1 (descending) when there is none.
int FindSMGeq(float value, const float* arr, Count n, int order, std::int32_t* pos);

/// The largest element <= value: 1 with its index (the last of equals ascending, the first descending); 0
/// with *pos = -1 (ascending) or n (descending) when there is none.
int FindLGLeq(float value, const float* arr, Count n, int order, std::int32_t* pos);

} // namespace obrin
