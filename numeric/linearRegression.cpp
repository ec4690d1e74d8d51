#include "numeric/linearRegression.h"

#include <limits>

namespace obrin {
namespace {

double mean(Count n, const float* x) {
    const double sum = ssum(n, x, 1);
    return n == 0 ? std::numeric_limits<double>::quiet_NaN() : sum / n;
}

} // namespace

void linearRegression(Count n, const float* x, const float* y, float* intercept, float* slope) {
    const double meanX = mean(n, x);
    const double meanY = mean(n, y);
    double sxy = 0.0;
    double sxx = 0.0;
    for (Count i = 0; i < n; ++i) {
        const double dx = double{x[i]} - meanX;
        sxy += dx * (double{y[i]} - meanY);
        sxx += dx * dx;
    }
    *slope = sxx > 0.0 ? static_cast<float>(sxy / sxx) : 0.0F;
    *intercept = static_cast<float>(meanY - double{*slope} * meanX);
}

} // namespace obrin
