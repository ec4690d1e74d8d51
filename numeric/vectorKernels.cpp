#include "numeric/vectorKernels.h"

#include "agent/debugLog.h"
#include "numeric/lapack.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>

namespace obrin {
namespace {

/// The floor that slogx stores for what has no logarithm; negative until the first use. Threads that meet
/// here all store the same number.
std::atomic<double> smlnum{-1.0};

double logarithmFloor() {
    double floor = smlnum.load(std::memory_order_relaxed);
    if (floor < 0.0) {
        floor = safeMinimum();
        smlnum.store(floor, std::memory_order_relaxed);
    }
    return floor;
}

/// Where element 0 of a vector of n >= 1 elements lies.
std::ptrdiff_t start(Count n, Count stride) {
    return stride >= 1 ? 0 : -std::ptrdiff_t{stride} * (std::ptrdiff_t{n} - 1);
}

/// y_k := function(x_k, y_k). Unit strides have a loop of their own, which the compiler turns into vector
/// instructions.
template <class Function>
void transform(Count n, const float* x, Count incx, float* y, Count incy, Function function) {
    if (incx == 1 && incy == 1) {
        for (Count k = 0; k < n; ++k) {
            y[k] = function(x[k], y[k]);
        }
    } else if (n > 0) {
        std::ptrdiff_t from = start(n, incx);
        std::ptrdiff_t to = start(n, incy);
        for (Count k = 0; k < n; ++k, from += incx, to += incy) {
            y[to] = function(x[from], y[to]);
        }
    }
}

/// z_k := function(x_k, y_k).
template <class Function>
void combine(Count n, const float* x, Count incx, const float* y, Count incy, float* z, Count incz,
             Function function) {
    if (incx == 1 && incy == 1 && incz == 1) {
        for (Count k = 0; k < n; ++k) {
            z[k] = function(x[k], y[k]);
        }
    } else if (n > 0) {
        std::ptrdiff_t first = start(n, incx);
        std::ptrdiff_t second = start(n, incy);
        std::ptrdiff_t to = start(n, incz);
        for (Count k = 0; k < n; ++k, first += incx, second += incy, to += incz) {
            z[to] = function(x[first], y[second]);
        }
    }
}

double sumInOrder(Count n, const float* x, Count incx) {
    double sum = 0.0;
    std::ptrdiff_t from = n > 0 ? start(n, incx) : 0;
    for (Count k = 0; k < n; ++k, from += incx) {
        sum += double{x[from]};
    }
    return sum;
}

} // namespace

void Check_N(Count n, const char* name) {
    if (n < 0) {
        DEBUGMSG("%s : the number of elements in the vector should be non-negative.\n", name);
        DEBUGMSG("The Provided value is %d \n", n);
        std::exit(1);
    }
}

void scopy(Count n, const float* x, Count incx, float* y, Count incy) {
    Check_N(n, "scopy");
    transform(n, x, incx, y, incy, [](float xk, float) { return xk; });
}

void saxpy(Count n, float a, const float* x, Count incx, float* y, Count incy) {
    Check_N(n, "saxpy");
    transform(n, x, incx, y, incy,
              [a](float xk, float yk) { return static_cast<float>(double{a} * double{xk} + double{yk}); });
}

void smadd(float a, float b, Count n, const float* x, Count incx, float* y, Count incy) {
    Check_N(n, "smadd");
    transform(n, x, incx, y, incy,
              [a, b](float xk, float) { return static_cast<float>(double{a} * double{xk} + double{b}); });
}

// One difference or product of two floats rounds to the same float whether it passes through a double or not
// (53 bits are more than twice 24 and two), so these two stay in float.
void sves(Count n, const float* x, Count incx, const float* y, Count incy, float* z, Count incz) {
    Check_N(n, "sves");
    combine(n, x, incx, y, incy, z, incz, [](float xk, float yk) { return xk - yk; });
}

void svem(Count n, const float* x, Count incx, const float* y, Count incy, float* z, Count incz) {
    Check_N(n, "svem");
    combine(n, x, incx, y, incy, z, incz, [](float xk, float yk) { return xk * yk; });
}

double smean(Count n, const float* x, Count incx) {
    Check_N(n, "mean");
    return n == 0 ? std::numeric_limits<double>::quiet_NaN() : sumInOrder(n, x, incx) / n;
}

double ssum(Count n, const float* x, Count incx) {
    Check_N(n, "sum");
    return sumInOrder(n, x, incx);
}

void sCopySelEls(Count n, const float* src, const std::int32_t* idx, float* dst) {
    for (Count i = 0; i < n; ++i) {
        dst[i] = src[idx[i]];
    }
}

void iCopySelEls(Count n, const std::int32_t* src, const std::int32_t* idx, std::int32_t* dst) {
    for (Count i = 0; i < n; ++i) {
        dst[i] = src[idx[i]];
    }
}

void slogx(Count n, const float* x, Count incx, float* y, Count incy) {
    const float floor = static_cast<float>(logarithmFloor());
    transform(n, x, incx, y, incy, [floor](float xk, float) {
        return xk > 0.0F ? static_cast<float>(std::log(double{xk})) : floor;
    });
}

void sexpx(Count n, const float* x, Count incx, float* y, Count incy) {
    transform(n, x, incx, y, incy, [](float xk, float) { return static_cast<float>(std::exp(double{xk})); });
}

} // namespace obrin
