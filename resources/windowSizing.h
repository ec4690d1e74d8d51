#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace obrin {

/// Number of samples in a window: windowHours x 3600 x 1000 / millisecondsPerSample in double, truncated
/// toward zero, never below 1. Nothing when the quotient is not finite or above 32 bits: such a ring cannot
/// be had.
std::optional<std::uint32_t> windowSamples(double windowHours, std::int32_t millisecondsPerSample);

/// Gives a link an empty ring of its window's size, zeroed, and the calling thread the memory that forecasts
/// of a full one work in. False, and no ring at all, when either cannot be had.
bool allocateRing(Link& link, std::int32_t millisecondsPerSample);

/// The window in hours of a resource that asks for none of its own.
double defaultWindow(std::int32_t maxForecastHours);

/// The period in milliseconds that puts 300 samples into a window of so many hours.
std::int32_t automaticPeriod(double longestWindow);

/// Whether not even one period fits into the window.
bool isShorterThanPeriod(double windowHours, std::int32_t millisecondsPerSample);

/// What becomes of a declared window.
enum class WindowFate : std::int32_t {
    own = 0,         ///< it stays
    automatic = 1,   ///< the automatic window takes its place, as it asks for
    belowPeriod = 2, ///< the same, as not even one period fits into it
    tooLong = 3,     ///< its ring cannot be had: the resource is not taken up
};

struct PlannedWindow {
    WindowFate fate = WindowFate::own;
    std::optional<std::uint32_t> samples{}; ///< windowSamples of the window in force
};

/// What a run makes of its period and its windows.
struct WindowPlan {
    std::int32_t millisecondsPerSample = 0; ///< in force
    double automaticHours = 0.0;
    std::optional<std::uint32_t> automaticSamples{};
    std::vector<PlannedWindow> windows{}; ///< as the declared ones
};

/// Does to declared windows, in hours, what a run does to those of its chain, without one. Any thread.
WindowPlan planWindows(std::span<const double> declaredHours, std::int32_t millisecondsPerSample,
                       std::int32_t maxForecastHours);

/// Gives every link with a negative window MaxForecastHours / 10 hours, and a period of -1 the length that
/// puts 300 samples into the longest window. Always 1.
int AutoSizeWindows(Clasp* clasp);

/// Resets every window shorter than one sample period to MaxForecastHours / 10 hours, with two log texts
/// each. 1 when nothing changed, else -2.
int SanityCheckChain(Clasp* clasp);

} // namespace obrin
