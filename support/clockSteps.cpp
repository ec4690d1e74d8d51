#include "support/clockSteps.h"

#include <algorithm>
#include <cmath>

namespace obrin {

double toleratedDrift(std::int32_t millisecondsPerSample) {
    return 2.0 * std::max(millisecondsPerSample, 0) / 1000.0 + 1.0;
}

ClockSteps::Look ClockSteps::look(std::int32_t millisecondsPerSample) {
    const Before now{systemClock().now(), systemClock().wallTime()};
    Look look{now.wall};
    if (before_) {
        const std::chrono::duration<double> gone = now.moment - before_->moment;
        const double drift = static_cast<double>(now.wall - before_->wall) - gone.count();
        if (std::abs(drift) > toleratedDrift(millisecondsPerSample))
            look.step = std::llround(drift);
    }
    before_ = now;
    total_ += look.step;
    return look;
}

} // namespace obrin
