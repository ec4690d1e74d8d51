// The piecewise fits: the fast search against the complete one, and any floats.

#include "fuzz/target.h"
#include "numeric/linearRegression.h"
#include "numeric/piecewiseFit.h"
#include "tests/numeric/exhaustiveFit.h"

#include <cmath>

namespace obrin::fuzz::fit {
namespace {

using Floats = std::vector<float>;

struct Problem {
    Floats x;
    Floats y;
    std::vector<std::int32_t> positions;
    Count k = 0;

    Count size() const { return static_cast<Count>(x.size()); }
};

/// Times that ascend and values of few digits, positions between the ends.
Problem readTame(Input& bytes) {
    Problem problem;
    problem.k = bytes.within(0, 3);
    const auto positions = bytes.take<std::uint64_t>();
    float time = 0;
    for (const std::uint16_t sample : bytes.series<std::uint16_t>(60)) {
        time += static_cast<float>(1 + sample % 4);
        problem.x.push_back(time);
        problem.y.push_back(static_cast<float>(sample >> 2) / 16.0F);
    }
    for (std::int32_t i = 1; i + 1 < problem.size() && problem.positions.size() < 8; ++i)
        if ((positions >> i & 1) != 0)
            problem.positions.push_back(i);
    return problem;
}

/// Any floats; positions that ascend, also on the first sample, the last one and twice on the same.
Problem readAny(Input& bytes) {
    Problem problem;
    problem.k = bytes.within(0, 3);
    const Count positions = bytes.within(0, 8);
    std::vector<std::uint8_t> places;
    for (Count i = 0; i < positions; ++i)
        places.push_back(bytes.take<std::uint8_t>());
    const Floats all = bytes.series<float>(80);
    problem.x.assign(all.begin(), all.begin() + std::ssize(all) / 2);
    problem.y.assign(all.begin() + std::ssize(all) / 2, all.begin() + std::ssize(all) / 2 * 2);
    for (const std::uint8_t place : places)
        if (problem.size() > 0)
            problem.positions.push_back(place % problem.size());
    std::ranges::sort(problem.positions);
    return problem;
}

struct Fit {
    double error;
    Floats x;
    Floats y;
};

Fit fitBest(Problem problem) {
    const auto P = static_cast<Count>(problem.positions.size());
    problem.k = std::min(problem.k, P);
    Fit fit{0, Floats(static_cast<std::size_t>(problem.k) + 2),
            Floats(static_cast<std::size_t>(problem.k) + 2)};
    fit.error = best_piecewise_fit(problem.size(), problem.x.data(), problem.y.data(), P,
                                   problem.positions.data(), problem.k, fit.x.data(), fit.y.data());
    return fit;
}

double squares(const Floats& values) {
    double sum = 0;
    for (const float value : values)
        sum += double{value} * double{value};
    return sum;
}

void checkBest(const Problem& problem, const Fit& fit) {
    const std::size_t k = std::min(static_cast<std::size_t>(problem.k), problem.positions.size());
    if (problem.x.size() <= k + 2)
        return; // nothing is left over
    const auto expected = test::fitExhaustively(problem.x, problem.y, problem.positions, k);
    const double doubt = 1e-9 * squares(problem.y) + 1e-12;
    require(fit.error <= expected.error + doubt && fit.error >= expected.error - doubt,
            "the fit is as good as the best of all");
}

/// A polyline goes through its endpoints.
void checkPolyline(const Fit& fit) {
    Floats y(fit.x.size());
    const auto count = static_cast<Count>(y.size());
    require(y_eq_piec_lin_x(count, fit.x.data(), fit.y.data(), count, fit.x.data(), y.data()) == 1,
            "it is evaluated");
    const double scale = 1 + std::sqrt(squares(fit.y));
    for (std::size_t i = 0; i < y.size(); ++i)
        require(std::fabs(double{y[i]} - double{fit.y[i]}) <= 1e-5 * scale,
                "a polyline goes through its endpoints");
}

void check(std::string_view input) {
    Input bytes(input);
    const bool isTame = bytes.take<std::uint8_t>() % 2 == 0;
    const Problem problem = isTame ? readTame(bytes) : readAny(bytes);
    const Fit fit = fitBest(problem);
    float intercept = 0;
    float slope = 0;
    linearRegression(problem.size(), problem.x.data(), problem.y.data(), &intercept, &slope);
    if (problem.x.empty())
        return;
    Floats y(problem.x.size());
    y_eq_piec_lin_x(static_cast<Count>(fit.x.size()), fit.x.data(), fit.y.data(), problem.size(),
                    problem.x.data(), y.data());
    if (isTame && problem.x.size() > 2) {
        checkBest(problem, fit);
        checkPolyline(fit);
    }
}

const Target target("fit", check);

} // namespace
} // namespace obrin::fuzz::fit
