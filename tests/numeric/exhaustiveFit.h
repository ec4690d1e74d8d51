#pragma once

#include "numeric/lapack.h"
#include "numeric/vectorKernels.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace obrin::test {

// The search for hinges as a textbook has it, one least-squares solution a hinge set and fresh arrays for
// each: what the fast search is tested and timed against.

struct ExhaustiveFit {
    double error = -1.0;
    std::vector<float> x, y;          ///< k + 2 endpoints
    std::vector<std::int32_t> hinges; ///< k sample indices
};

/// A size as the search takes it.
inline Count count(std::size_t size) {
    return static_cast<Count>(size);
}

/// The place of x between xl and xr; infinite or not-a-number when they are equal.
__attribute__((no_sanitize("float-divide-by-zero"))) inline double place(double x, double xl, double xr) {
    return (x - xl) / (xr - xl);
}

/// The fit for given hinges. Values are floats, or doubles when they have been centred for a judge of near
/// ties.
template <class Value>
ExhaustiveFit fitForHinges(const std::vector<float>& x, const std::vector<Value>& y,
                           const std::vector<std::int32_t>& hinges) {
    const int M = static_cast<int>(x.size()), N = static_cast<int>(hinges.size()) + 2;
    std::vector<int> endpointIndex{0};
    endpointIndex.insert(endpointIndex.end(), hinges.begin(), hinges.end());
    endpointIndex.push_back(M - 1);
    std::vector<double> A(static_cast<std::size_t>(M) * static_cast<std::size_t>(N), 0.0),
        B(y.begin(), y.end());
    const int lwork = 32 * std::max(M, N) + std::min(M, N);
    std::vector<double> work(static_cast<std::size_t>(lwork));
    std::size_t j = 0;
    const std::size_t rows = x.size();
    for (std::size_t i = 0; i < rows; ++i) {
        while (static_cast<int>(i) > endpointIndex[j + 1])
            ++j;
        const double xl = static_cast<double>(x[static_cast<std::size_t>(endpointIndex[j])]);
        const double xr = static_cast<double>(x[static_cast<std::size_t>(endpointIndex[j + 1])]);
        const double t = place(static_cast<double>(x[i]), xl, xr);
        A[i + j * rows] = 1.0 - t;
        A[i + (j + 1) * rows] = t;
    }
    solveLeastSquares(M, N, A.data(), M, B.data(), M, work.data(), lwork);
    ExhaustiveFit fit;
    fit.hinges = hinges;
    fit.error = 0.0;
    for (std::size_t i = static_cast<std::size_t>(N); i < rows; ++i)
        fit.error += B[i] * B[i];
    for (std::size_t e = 0; e < endpointIndex.size(); ++e) {
        fit.x.push_back(x[static_cast<std::size_t>(endpointIndex[e])]);
        fit.y.push_back(static_cast<float>(B[e]));
    }
    return fit;
}

/// Calls visit(hinges) for each k of the positions in lexicographic order.
template <class Visit>
void forEachHingeSet(const std::vector<std::int32_t>& positions, std::size_t k, Visit visit) {
    const std::size_t P = positions.size();
    std::vector<std::size_t> c(k);
    for (std::size_t i = 0; i < k; ++i)
        c[i] = i;
    std::vector<std::int32_t> hinges(k);
    for (;;) {
        for (std::size_t i = 0; i < k; ++i)
            hinges[i] = positions[c[i]];
        visit(hinges);
        std::size_t j = k;
        while (j > 0 && c[j - 1] >= P - k + j - 1)
            --j;
        if (j == 0)
            return;
        ++c[j - 1];
        for (std::size_t m = j; m < k; ++m)
            c[m] = c[m - 1] + 1;
    }
}

/// The best of all sets; a later set must be strictly better. `each` receives every set's error in order.
template <class Value>
ExhaustiveFit fitExhaustively(const std::vector<float>& x, const std::vector<Value>& y,
                              const std::vector<std::int32_t>& positions, std::size_t k,
                              std::vector<double>* each = nullptr) {
    ExhaustiveFit best;
    forEachHingeSet(positions, k, [&](const std::vector<std::int32_t>& hinges) {
        ExhaustiveFit fit = fitForHinges(x, y, hinges);
        if (each != nullptr)
            each->push_back(fit.error);
        if (best.error == -1.0 || fit.error < best.error)
            best = std::move(fit);
    });
    return best;
}

/// The same behind the arguments of best_piecewise_fit; k is at most P.
inline double exhaustivePiecewiseFit(std::int32_t M, const float* x, const float* y, std::int32_t P,
                                     const std::int32_t* positions, std::int32_t k, float* endpoints_x,
                                     float* endpoints_y) {
    const ExhaustiveFit best =
        fitExhaustively(std::vector<float>(x, x + M), std::vector<float>(y, y + M),
                        std::vector<std::int32_t>(positions, positions + P), static_cast<std::size_t>(k));
    std::copy(best.x.begin(), best.x.end(), endpoints_x);
    std::copy(best.y.begin(), best.y.end(), endpoints_y);
    return best.error;
}

} // namespace obrin::test
