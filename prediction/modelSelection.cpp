#include "prediction/modelSelection.h"

#include "agent/debugLog.h"
#include "numeric/errorMeasures.h"
#include "numeric/linearRegression.h"
#include "numeric/medianFilter.h"
#include "numeric/piecewiseFit.h"
#include "numeric/workArrays.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace obrin {
namespace {

constexpr std::int32_t modelCount = 6;
constexpr Count mostEndpoints = 4;
constexpr double complexityPenalty = 0.2;

struct Model {
    const char* name;
    Count hinges;
    bool logarithmic; ///< fitted to log y
    std::int32_t degreesOfFreedom;
    std::int32_t lastCandidate; ///< valid when the last candidate breakpoint is not below this
};

constexpr std::array<Model, modelCount> modelTable{{
    {model0, 0, false, 2, 0},
    {model1, 1, false, 4, 41},
    {model2, 2, false, 6, 81},
    {model3, 0, true, 2, 0},
    {model4, 1, true, 4, 41},
    {model5, 2, true, 6, 81},
}};

/// A fitted curve: a line, or a polyline when it has endpoints.
struct Curve {
    float intercept;
    float slope;
    Count endpoints;
    std::array<float, mostEndpoints> endpointsX;
    std::array<float, mostEndpoints> endpointsY;
};

struct Workspace {
    WorkArray<float> smoothedX{"smoothed_x"};
    WorkArray<float> smoothedY{"smoothed_y"};
    WorkArray<float> logSmoothedY{"log_smoothed_y"};
    WorkArray<float> fittedY{"fitted_y"};
    WorkArray<std::int32_t> candidates{"hingepts"};
    WorkArray<float> weights{"weights"};
};

/// A smoothed series with what is needed to fit and judge models over it.
struct SmoothedSeries {
    Count points;
    const float* x;
    const float* y;
    const float* logY;
    const float* weights;
    const std::int32_t* candidates;
    Count candidateCount;
};

struct ModelScores {
    std::array<double, modelCount> mses{};
    std::array<std::int32_t, modelCount> degreesOfFreedom{};
    std::array<std::int32_t, modelCount> valid{};
};

constexpr Count slack = 3;

Count withSlack(Count count) {
    return count > std::numeric_limits<Count>::max() - slack ? count : count + slack;
}

/// Candidate breakpoints at equal steps up to the newest point that may hold one, then that one again.
/// Returns how many differ from their successor: these are offered to the search. No candidate offered is
/// behind the last point, whatever the parameters.
Count placeCandidates(Count points, const PredictionParameters& parameters, std::int32_t* candidates) {
    const std::int64_t excluded = parameters.tailExclusion / parameters.medianStride;
    const auto usable = static_cast<Count>(std::clamp<std::int64_t>(points - excluded, 0, points));
    const Count step = std::max(usable / parameters.hingeCandidates, 1);
    Count count = 0;
    candidates[0] = step;
    for (Count i = 1; i < parameters.hingeCandidates; ++i) {
        const bool stalled = candidates[i - 1] + step > usable;
        candidates[i] = stalled ? candidates[i - 1] : candidates[i - 1] + step;
        count += stalled ? 0 : 1;
    }
    return count;
}

void fillWeights(Count points, float decay, float* weights) {
    weights[points - 1] = 1.0F;
    for (Count i = points - 2; i >= 0; --i) {
        weights[i] = weights[i + 1] * decay;
    }
}

Curve fit(const FittingTools& tools, const Model& model, const SmoothedSeries& series) {
    Curve curve{};
    const float* const y = model.logarithmic ? series.logY : series.y;
    if (model.hinges == 0) {
        linearRegression(series.points, series.x, y, &curve.intercept, &curve.slope);
    } else {
        tools.bestPiecewiseFit(series.points, series.x, y, series.candidateCount, series.candidates,
                               model.hinges, curve.endpointsX.data(), curve.endpointsY.data());
        // The search makes do with fewer hinges than asked for when there are fewer candidates.
        curve.endpoints = std::min(model.hinges, series.candidateCount) + 2;
    }
    return curve;
}

void evaluate(const Model& model, const Curve& curve, Count n, const float* x, float* y) {
    if (model.hinges == 0) {
        smadd(curve.slope, curve.intercept, n, x, 1, y, 1);
    } else {
        y_eq_piec_lin_x(curve.endpoints, curve.endpointsX.data(), curve.endpointsY.data(), n, x, y);
    }
    if (model.logarithmic) {
        sexpx(n, y, 1, y, 1);
    }
}

/// Fits every model that is valid with this last candidate, keeps its curve and scores it against the
/// smoothed values as they are, also when it was fitted to their logarithms.
ModelScores fitModels(const FittingTools& tools, const SmoothedSeries& series, Count lastCandidate,
                      float* fitted, std::array<Curve, modelCount>& curves) {
    ModelScores scores;
    for (std::size_t k = 0; k < modelTable.size(); ++k) {
        if (lastCandidate >= modelTable[k].lastCandidate) {
            curves[k] = fit(tools, modelTable[k], series);
            evaluate(modelTable[k], curves[k], series.points, series.x, fitted);
            scores.mses[k] = WMSE(series.points, series.y, fitted, series.weights);
            scores.degreesOfFreedom[k] = modelTable[k].degreesOfFreedom;
            scores.valid[k] = 1;
        }
    }
    return scores;
}

/// The reference variance of Mallows' rule: the least error of the valid models with the most degrees of
/// freedom.
double referenceVariance(const ModelScores& scores) {
    std::size_t most = 0; // the simple line is always valid
    for (std::size_t k = 1; k < modelTable.size(); ++k) {
        const std::int32_t more = scores.degreesOfFreedom[k] - scores.degreesOfFreedom[most];
        if (scores.valid[k] == 1 && (more > 0 || (more == 0 && scores.mses[k] < scores.mses[most]))) {
            most = k;
        }
    }
    return scores.mses[most];
}

std::int32_t select(const char* method, const SmoothedSeries& series, const ModelScores& scores) {
    if (method != nullptr && std::strcmp(method, "mallows") == 0) {
        return SelectWithMallows(modelCount, series.points, scores.mses.data(),
                                 scores.degreesOfFreedom.data(), scores.valid.data(),
                                 referenceVariance(scores), ssum(series.points, series.weights, 1));
    }
    if (method != nullptr && std::strcmp(method, "penalty") == 0) {
        return SelectWithMultiplicativePenalty(modelCount, scores.mses.data(), scores.degreesOfFreedom.data(),
                                               scores.valid.data(), complexityPenalty);
    }
    return -1;
}

/// Infinite, or not a number, for a reference variance of 0: a perfect fit of the largest model is no
/// yardstick for others.
__attribute__((no_sanitize("float-divide-by-zero"))) double
mallowsScore(double N, double mse, std::int32_t dof, double sigma2, double S) {
    return (N * mse / sigma2) * N / S - N + 2.0 * dof;
}

/// The valid model of least score: the first one, or a later one marked 1 whose score is less than that of
/// all before.
template <class Score>
std::int32_t leastScore(const char* rule, std::int32_t K, const std::int32_t* valid, Score score) {
    std::int32_t chosen = 0;
    while (chosen < K && valid[chosen] == 0) {
        ++chosen;
    }
    if (chosen >= K) {
        DEBUGMSG("%s: No valid model was found !\n", rule);
        return -1;
    }
    double best = score(chosen);
    for (std::int32_t k = chosen + 1; k < K; ++k) {
        if (valid[k] == 1 && score(k) < best) {
            best = score(k);
            chosen = k;
        }
    }
    return chosen;
}

} // namespace

bool reserveForecastMemory(std::int64_t samples) noexcept {
    constexpr PredictionParameters parameters;
    static_assert(parameters.medianWindow <= 4 * parameters.medianStride, "as the median filter asks");
    constexpr auto mostHinges =
        std::max_element(modelTable.begin(), modelTable.end(), [](const Model& a, const Model& b) {
            return a.hinges < b.hinges;
        })->hinges;
    const std::int64_t points = samples / parameters.medianStride + slack;
    auto* const workspace = tryThreadOwn<Workspace>();
    return workspace != nullptr && workspace->smoothedX.reserve(points) &&
           workspace->smoothedY.reserve(points) && workspace->logSmoothedY.reserve(points) &&
           workspace->fittedY.reserve(points) &&
           workspace->candidates.reserve(parameters.hingeCandidates + slack) &&
           workspace->weights.reserve(points + slack) && reserveMedianFilter(samples) &&
           reserveErrorMeasures(points) &&
           reservePiecewiseFits(points, parameters.hingeCandidates, mostHinges);
}

std::int32_t SelectWithMallows(std::int32_t K, std::int32_t N, const double* mses, const std::int32_t* dof,
                               const std::int32_t* valid, double sigma2, double S) {
    return leastScore("SelectWithMallows", K, valid,
                      [=](std::int32_t k) { return mallowsScore(N, mses[k], dof[k], sigma2, S); });
}

std::int32_t SelectWithMultiplicativePenalty(std::int32_t K, const double* mses, const std::int32_t* dof,
                                             const std::int32_t* valid, double p) {
    return leastScore("SelectWithMultiplicativePenalty", K, valid, [=](std::int32_t k) {
        return std::pow(1.0 + p, static_cast<double>(dof[k])) * mses[k];
    });
}

std::int32_t select_model_and_predict(std::int32_t n, const float* x, const float* y, std::int32_t nOut,
                                      const float* xOut, float* yOut, const PredictionParameters* params,
                                      std::string* modelName) {
    constexpr FittingTools fast{median_filter, best_piecewise_fit};
    return select_model_and_predict_with(fast, n, x, y, nOut, xOut, yOut, params, modelName);
}

std::int32_t select_model_and_predict_with(const FittingTools& tools, std::int32_t n, const float* x,
                                           const float* y, std::int32_t nOut, const float* xOut, float* yOut,
                                           const PredictionParameters* params, std::string* modelName) {
    const Count window = params->medianWindow;
    const Count stride = params->medianStride;
    const Count room = withSlack(stride < 1 ? 0 : n / stride);
    auto& workspace = threadOwn<Workspace>();
    float* const smoothedX = workspace.smoothedX.get(room);
    float* const smoothedY = workspace.smoothedY.get(room);
    float* const logSmoothedY = workspace.logSmoothedY.get(room);
    float* const fittedY = workspace.fittedY.get(room);

    // A window or stride below 1 is for the filter to log; it writes nothing then.
    const bool tooShort = n < window && stride >= 1;
    const Count points = tooShort ? 0 : tools.medianFilter(n, x, window, stride, smoothedX);
    if (points < minimumSmoothedPoints || params->hingeCandidates < 1) {
        *modelName = no_model;
        return 0;
    }
    if (points > room) {
        DEBUGMSG("Error, your algorithm sucks !%d %d\n", points, room);
        std::exit(1);
    }
    tools.medianFilter(n, y, window, stride, smoothedY);
    slogx(points, smoothedY, 1, logSmoothedY, 1);

    std::int32_t* const candidates = workspace.candidates.get(withSlack(params->hingeCandidates));
    const Count candidateCount = placeCandidates(points, *params, candidates);
    float* const weights = workspace.weights.get(withSlack(points));
    fillWeights(points, params->weightDecay, weights);
    const SmoothedSeries series{points,  smoothedX,  smoothedY,     logSmoothedY,
                                weights, candidates, candidateCount};

    std::array<Curve, modelCount> curves;
    const ModelScores scores =
        fitModels(tools, series, candidates[params->hingeCandidates - 1], fittedY, curves);
    const std::int32_t selected = select(params->selectionMethod, series, scores);
    if (selected >= 0 && selected < modelCount) {
        const auto chosen = static_cast<std::size_t>(selected);
        *modelName = modelTable[chosen].name;
        evaluate(modelTable[chosen], curves[chosen], nOut, xOut, yOut);
    }
    return 1;
}

} // namespace obrin
