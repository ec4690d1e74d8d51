#pragma once

#include <vector>

namespace obrin::bench {

/// One row of the table: what was measured, both times in nanoseconds a call, and the ratio that must be
/// reached.
struct Ratio {
    const char* what;
    double fast_ns;
    double slow_ns;
    double required;
};

/// What n things cost and what four times as many do, both in nanoseconds a call.
struct Growth {
    const char* what;
    int size;
    double once_ns;
    double four_times_ns;
};

} // namespace obrin::bench
