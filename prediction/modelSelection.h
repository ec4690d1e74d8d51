#pragma once

#include "numeric/vectorKernels.h"

#include <cstdint>
#include <string>

namespace obrin {

/// How a series is smoothed, where its trend may break, and by which rule a model is chosen.
struct PredictionParameters {
    std::int32_t medianWindow = 5;           ///< window of the median filter, in samples
    std::int32_t medianStride = 5;           ///< stride of the median filter, in samples
    std::int32_t hingeCandidates = 10;       ///< number of candidate breakpoints
    std::int32_t tailExclusion = 50;         ///< newest raw samples that may hold no breakpoint
    float weightDecay = 0.95F;               ///< weight of a smoothed point, in parts of the next newer one's
    const char* selectionMethod = "penalty"; ///< "penalty" or "mallows"; not owned
};

// The names of the six models in the order in which they are fitted, scored and preferred, and what stands
// for none.
inline constexpr const char* model0 = "simple linear regression";
inline constexpr const char* model1 = "hinge regression";
inline constexpr const char* model2 = "3-segment linear regression";
inline constexpr const char* model3 = "simple linear regression on log";
inline constexpr const char* model4 = "hinge regression on log";
inline constexpr const char* model5 = "3-segment linear regression on log";
inline constexpr const char* no_model = "Not enough data: no model selected";

/// The smoothed points that a forecast needs at the least.
inline constexpr std::int32_t minimumSmoothedPoints = 40;

/// So many samples that is with the parameters as they are.
inline constexpr std::int32_t samplesForForecast =
    minimumSmoothedPoints * PredictionParameters{}.medianStride;

/// Takes all memory that forecasts of up to so many samples with the parameters as they are work in, for the
/// calling thread: from then on select_model_and_predict() takes none there and cannot end the process for
/// want of it, but for the text of the name. False when it cannot be had, or for more samples than a forecast
/// can take; what was taken before stays.
[[nodiscard]] bool reserveForecastMemory(std::int64_t samples) noexcept;

/// Smooths the n samples (x ascending, seconds since the first; y any unit), fits the six models, chooses one
/// by the weighted error that favours the newest points, and evaluates it at the nOut ascending times xOut
/// (same base as x), also beyond the samples, into yOut.
///
/// 1 when models were fitted. *modelName is then the name of the chosen one; it is left as it was, and yOut
/// with it, when the selection method is neither of the two texts. 0 when there are fewer than 40 smoothed
/// points, or when a parameter leaves nothing to work with (a window, stride or number of candidates below
/// 1): *modelName is then `no_model` and yOut is untouched. With n below the window neither x nor y is read.
///
/// "mallows" takes its reference variance from the valid models with the most degrees of freedom, the smaller
/// error of those; it is the 3-segment models' wherever these are valid. A model with more breakpoints than
/// there are candidates for is fitted with as many as there are.
///
/// Values that are not finite make a forecast that is not finite, or one of another model, and nothing worse.
/// Ends the process with exit status 1 when memory is refused that reserveForecastMemory() has not taken (see
/// workArrays.h) and, after a line in the log, when the median filter says that it wrote more than its array
/// holds.
///
/// Any thread; the working arrays belong to the thread and stay for the next call, so that a second call of
/// the same sizes takes no memory. Cost grows linearly with n.
std::int32_t select_model_and_predict(std::int32_t n, const float* x, const float* y, std::int32_t nOut,
                                      const float* xOut, float* yOut, const PredictionParameters* params,
                                      std::string* modelName);

/// The two costly steps of the above, with the signatures of median_filter and best_piecewise_fit.
struct FittingTools {
    Count (*medianFilter)(Count n, const float* in, Count w, Count s, float* out);
    double (*bestPiecewiseFit)(Count M, const float* x, const float* y, Count P,
                               const std::int32_t* positions, Count k, float* endpoints_x,
                               float* endpoints_y);
};

/// The same by other tools of the same promises: the textbook forms that the fast ones are measured and
/// tested against.
std::int32_t select_model_and_predict_with(const FittingTools& tools, std::int32_t n, const float* x,
                                           const float* y, std::int32_t nOut, const float* xOut, float* yOut,
                                           const PredictionParameters* params, std::string* modelName);

// The two rules of choice among K models with the weighted mean squared errors `mses`, the degrees of freedom
// `dof` and the marks `valid` (1 for a model that takes part). The index of the model with the least score,
// the lowest of equals; -1 after a line in the log when no mark is set. The first marked model is kept when
// its score is NaN.

/// Mallows' Cp for weighted errors: score = N mse / sigma2 * N / S - N + 2 dof, with N points of total weight
/// S and the reference variance sigma2.
std::int32_t SelectWithMallows(std::int32_t K, std::int32_t N, const double* mses, const std::int32_t* dof,
                               const std::int32_t* valid, double sigma2, double S);

/// score = (1 + p)^dof mse: at p = 0.2, two more degrees of freedom must lower the error by a factor of 1.44
/// to win.
std::int32_t SelectWithMultiplicativePenalty(std::int32_t K, const double* mses, const std::int32_t* dof,
                                             const std::int32_t* valid, double p);

} // namespace obrin
