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

} // namespace obrin::bench
