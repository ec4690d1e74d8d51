#pragma once

#include <cstdint>

namespace obrin {

// Kernels on strided vectors of 32-bit floats. A vector is (n, x, incx): element k is x[start + k * incx]
// with start 0 when incx >= 1 and (-incx) * (n - 1) when incx < 1: a negative stride walks from the far end,
// a stride of 0 is x[0] n times. n = 0 is a no-op that reads no pointer; a negative n ends the process
// (Check_N) unless a function says otherwise. Each element is computed as if in double and rounded to float
// once, when it is stored; sums run in double, strictly in index order, first element first. Source and
// destination may be the same array with the same stride; any other overlap is the caller's mistake. Any
// thread, no lock, no allocation.

using Count = std::int32_t;

/// A negative count is a programming error: logs "%s : the number of elements in the vector should be
/// non-negative.\n" with `name` and "The Provided value is %d \n" with `n`, then ends the process with exit
/// status 1.
void Check_N(Count n, const char* name);

void scopy(Count n, const float* x, Count incx, float* y, Count incy);          ///< y := x
void saxpy(Count n, float a, const float* x, Count incx, float* y, Count incy); ///< y := a x + y
/// y := a x + b: slope first, then offset.
void smadd(float a, float b, Count n, const float* x, Count incx, float* y, Count incy);
/// z := x - y
void sves(Count n, const float* x, Count incx, const float* y, Count incy, float* z, Count incz);
/// z := x y, element by element
void svem(Count n, const float* x, Count incx, const float* y, Count incy, float* z, Count incz);
double smean(Count n, const float* x,
             Count incx);                         ///< (sum x) / n; NaN for n = 0. Checks its count as "mean".
double ssum(Count n, const float* x, Count incx); ///< sum x; 0.0 for n = 0. Checks its count as "sum".

/// dst[i] := src[idx[i]] for i < n; a negative n is 0.
void sCopySelEls(Count n, const float* src, const std::int32_t* idx, float* dst);
void iCopySelEls(Count n, const std::int32_t* src, const std::int32_t* idx, std::int32_t* dst);

/// y := natural logarithm of x; 0.0 for every element that is not above zero (NaN included). A negative n is
/// 0.
void slogx(Count n, const float* x, Count incx, float* y, Count incy);
/// y := e^x, without a guard against overflow: +infinity from x = 88.73 on. A negative n is 0.
void sexpx(Count n, const float* x, Count incx, float* y, Count incy);

} // namespace obrin
