#include "support/clockSteps.h"

#include <algorithm>
#include <cmath>

namespace obrin {

double toleratedDrift(std::int32_t millisecondsPerSample) {
    return 2.0 * std::max(millisecondsPerSample, 0) / 1000.0 + 1.0;
}

ClockSteps::Look ClockSteps::look(std::int32_t millisecondsPerSample) {
    const Clock::Reading now = systemClock().read();
    Look look{std::chrono::floor<std::chrono::seconds>(now.wall).count()};
    if (before_) {
        const std::chrono::duration<double> gained =
            (now.wall - before_->wall) - (now.steady - before_->steady);
        const double drift = gained.count();
        if (std::abs(drift) > toleratedDrift(millisecondsPerSample))
            look.step = std::llround(drift);
    }
    before_ = now;
    total_ += look.step;
    return look;
}

} // namespace obrin
