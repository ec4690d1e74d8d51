#pragma once

#include "support/clock.h"

#include <cstdint>
#include <optional>

namespace obrin {

/// Seconds that the time of day may gain or lose against the time that goes by, from one cycle to the next,
/// before that counts as a step: two sample periods, and one second because times are kept in whole ones.
/// What is slewed stays far below it.
double toleratedDrift(std::int32_t millisecondsPerSample);

/// Notices when somebody sets the clock, and when the machine was suspended, which stops the time that goes
/// by and not the time of day.
class ClockSteps {
public:
    struct Look {
        std::time_t wall = 0;  ///< the time of day
        std::int64_t step = 0; ///< seconds that it has stepped since the look before; 0 at the first
    };

    Look look(std::int32_t millisecondsPerSample);

    /// Seconds of all steps together.
    std::int64_t total() const { return total_; }

private:
    std::optional<Clock::Reading> before_;
    std::int64_t total_ = 0;
};

} // namespace obrin
