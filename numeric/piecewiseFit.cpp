#include "numeric/piecewiseFit.h"

#include "agent/debugLog.h"
#include "numeric/hingeSearch.h"
#include "numeric/lapack.h"
#include "numeric/workArrays.h"

#include <algorithm>
#include <cstdio>
#include <utility>

// Endpoints that share an abscissa divide by zero, on purpose: infinities and NaN are the documented outcome.
#define OBRIN_DIVIDES_BY_ZERO __attribute__((no_sanitize("float-divide-by-zero")))

namespace obrin {
namespace {

struct FitMemory {
    WorkArray<std::int32_t> endpointIndex{"endpoint_index"};
    WorkArray<double> matrix{"Amatrix"};
    WorkArray<double> rightSide{"Bvector"};
    WorkArray<double> work{"WORK"};
};

struct SearchMemory {
    WorkArray<float> endpointsX{"curr_endpoints_x"}, otherEndpointsX{"curr_endpoints_x"};
    WorkArray<float> endpointsY{"curr_endpoints_y"}, otherEndpointsY{"curr_endpoints_y"};
    WorkArray<std::int32_t> hinges{"curr_hinge_pos"};
    WorkArray<std::int32_t> combination{"hinge_pos"};
};

/// What LAPACK is given to work in.
template <class Number>
constexpr Number workLength(Number M, Number N) {
    return 32 * std::max(M, N) + std::min(M, N);
}

/// One segment's rows of the design matrix: 1 - t for its left endpoint, t for its right one.
OBRIN_DIVIDES_BY_ZERO
void fillSegment(Count begin, Count end, const float* x, double left, double right, double* leftColumn,
                 double* rightColumn) {
    for (Count i = begin; i < end; ++i) {
        const double t = (static_cast<double>(x[i]) - left) / (right - left);
        leftColumn[i] = 1.0 - t;
        rightColumn[i] = t;
    }
}

/// A sample on a hinge belongs to the segment on its left.
void fillDesignMatrix(Count M, const float* x, Count k, const std::int32_t* endpointIndex, double* matrix) {
    std::fill_n(matrix, static_cast<std::ptrdiff_t>(M) * (k + 2), 0.0);
    Count row = 0;
    for (Count j = 0; j <= k; ++j) {
        const Count end = std::max(row, endpointIndex[j + 1] + 1);
        double* const column = matrix + static_cast<std::ptrdiff_t>(M) * j;
        fillSegment(row, end, x, static_cast<double>(x[endpointIndex[j]]),
                    static_cast<double>(x[endpointIndex[j + 1]]), column, column + M);
        row = end;
    }
}

OBRIN_DIVIDES_BY_ZERO
double slope(const float* ex, const float* ey, Count segment) {
    return (static_cast<double>(ey[segment]) - static_cast<double>(ey[segment - 1])) /
           (static_cast<double>(ex[segment]) - static_cast<double>(ex[segment - 1]));
}

float onLine(float x, float ex, float ey, double slope) {
    return static_cast<float>((static_cast<double>(x) - static_cast<double>(ex)) * slope +
                              static_cast<double>(ey));
}

/// The next combination of k out of P in lexicographic order; false after the last one.
bool advanceCombination(Count P, Count k, std::int32_t* combination) {
    Count j = k - 1;
    while (j >= 0 && combination[j] >= P - k + j) {
        --j;
    }
    if (j < 0) {
        return false;
    }
    ++combination[j];
    for (Count m = j + 1; m < k; ++m) {
        combination[m] = combination[m - 1] + 1;
    }
    return true;
}

double fitEachSet(Count M, const float* x, const float* y, Count P, const std::int32_t* positions, Count k,
                  float* endpoints_x, float* endpoints_y) {
    auto& memory = threadOwn<SearchMemory>();
    float* currentX = memory.endpointsX.get(k + 2);
    float* currentY = memory.endpointsY.get(k + 2);
    float* bestX = memory.otherEndpointsX.get(k + 2);
    float* bestY = memory.otherEndpointsY.get(k + 2);
    std::int32_t* const hinges = memory.hinges.get(k);
    std::int32_t* const combination = memory.combination.get(k);
    for (Count i = 0; i < k; ++i) {
        combination[i] = i;
    }
    double best = -1.0;
    bool beatable = true;
    do {
        iCopySelEls(k, positions, combination, hinges);
        const double error = find_piec_lin_fit_ord(M, x, y, k, hinges, currentX, currentY);
        if (best == -1.0 || error < best) {
            best = error;
            std::swap(currentX, bestX);
            std::swap(currentY, bestY);
        }
        // No sum of squares is below zero or compares below NaN. With too few samples each set is to be
        // logged.
        beatable = best > 0.0 || M < k + 2;
    } while (beatable && advanceCombination(P, k, combination));
    scopy(k + 2, bestX, 1, endpoints_x, 1);
    scopy(k + 2, bestY, 1, endpoints_y, 1);
    return best;
}

} // namespace

double find_piec_lin_fit_ord(Count M, const float* x, const float* y, Count k, const std::int32_t* hinges,
                             float* endpoints_x, float* endpoints_y) {
    Check_N(M, "find_piec_lin_fit_ord");
    Check_N(k, "find_piec_lin_fit_ord");
    if (M == 0) {
        return 0.0;
    }
    const Count N = k + 2;
    endpoints_x[0] = x[0];
    endpoints_x[k + 1] = x[M - 1];
    sCopySelEls(k, x, hinges, endpoints_x + 1);

    auto& memory = threadOwn<FitMemory>();
    std::int32_t* const endpointIndex = memory.endpointIndex.get(N);
    endpointIndex[0] = 0;
    std::copy_n(hinges, k, endpointIndex + 1);
    endpointIndex[k + 1] = M - 1;

    const int lwork = workLength(M, N);
    double* const matrix = memory.matrix.get(M * N);
    double* const rightSide = memory.rightSide.get(M);
    double* const work = memory.work.get(lwork);
    fillDesignMatrix(M, x, k, endpointIndex, matrix);
    for (Count i = 0; i < M; ++i) {
        rightSide[i] = static_cast<double>(y[i]);
    }
    // A right side of M < N rows is an argument that dgels refuses; LAPACK's own way of refusing may end the
    // process.
    const int ldbRefused = -8;
    const int info = M < N ? ldbRefused : solveLeastSquares(M, N, matrix, M, rightSide, M, work, lwork);
    if (info < 0) {
        DEBUGMSG("dgels failed miserably!");
    }
    for (Count j = 0; j < N; ++j) {
        endpoints_y[j] = j < M ? static_cast<float>(rightSide[j]) : 0.0F;
    }
    double residual = 0.0;
    for (Count i = N; i < M; ++i) {
        residual += rightSide[i] * rightSide[i];
    }
    return residual;
}

double best_piecewise_fit(Count M, const float* x, const float* y, Count P, const std::int32_t* positions,
                          Count k, float* endpoints_x, float* endpoints_y) {
    if (k > P) {
        std::fputs("You specified more hinges than allowed hinge positions.\n"
                   "Taking standard corrective actions.\n"
                   "Reducing the number of desired hinges to maximum allowed",
                   stderr);
        k = P;
    }
    Check_N(M, "best_piecewise_fit");
    Check_N(k, "best_piecewise_fit");
    if (M == 0) {
        return 0.0;
    }
    if (k > 0) {
        std::int32_t* const hinges = threadOwn<SearchMemory>().hinges.get(k);
        if (findBestHinges(M, x, y, P, positions, k, hinges)) {
            return find_piec_lin_fit_ord(M, x, y, k, hinges, endpoints_x, endpoints_y);
        }
    }
    return fitEachSet(M, x, y, P, positions, k, endpoints_x, endpoints_y);
}

bool reservePiecewiseFits(std::int64_t M, Count P, Count k) noexcept {
    const std::int64_t N = std::int64_t{k} + 2;
    auto* const fit = tryThreadOwn<FitMemory>();
    auto* const search = tryThreadOwn<SearchMemory>();
    return fit != nullptr && search != nullptr && fit->endpointIndex.reserve(N) &&
           fit->matrix.reserve(M * N) && fit->rightSide.reserve(M) && fit->work.reserve(workLength(M, N)) &&
           search->endpointsX.reserve(N) && search->otherEndpointsX.reserve(N) &&
           search->endpointsY.reserve(N) && search->otherEndpointsY.reserve(N) && search->hinges.reserve(k) &&
           search->combination.reserve(k) && reserveHingeSearch(P, k);
}

int y_eq_piec_lin_x(Count m, const float* ex, const float* ey, Count n, const float* x, float* y) {
    if (m < 2) {
        std::fprintf(stderr, "y_eq_piec_lin_x: Need at least 2 endpoints, specified %d\n", m);
        return 0;
    }
    if (n < 0) {
        std::fprintf(stderr, "y_eq_piec_lin_x: the length of the array to fit is %d < 0\n", n);
        return 0;
    }
    double g = slope(ex, ey, 1);
    Count i = 0;
    for (; i < n && x[i] < ex[0]; ++i) {
        y[i] = onLine(x[i], ex[0], ey[0], g);
    }
    for (Count j = 1; j < m; ++j) {
        g = slope(ex, ey, j);
        for (; i < n && x[i] < ex[j]; ++i) {
            y[i] = onLine(x[i], ex[j], ey[j], g);
        }
    }
    for (; i < n; ++i) {
        y[i] = onLine(x[i], ex[m - 1], ey[m - 1], g);
    }
    return 1;
}

} // namespace obrin
