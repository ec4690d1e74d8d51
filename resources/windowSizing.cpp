#include "resources/windowSizing.h"

#include "agent/debugLog.h"
#include "prediction/modelSelection.h"
#include "support/clock.h"
#include "support/textScanner.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace obrin {

namespace {

constexpr double samplesInLongestWindow = 300;

bool isTooLong(double windowHours, std::int32_t millisecondsPerSample) {
    return windowHours > 0 && !windowSamples(windowHours, millisecondsPerSample);
}

} // namespace

double defaultWindow(std::int32_t maxForecastHours) {
    return maxForecastHours / 10.0;
}

std::int32_t automaticPeriod(double longestWindow) {
    return truncateToInt32(longestWindow * secondsPerHour * 1000 / samplesInLongestWindow);
}

bool isShorterThanPeriod(double windowHours, std::int32_t millisecondsPerSample) {
    return millisecondsPerSample / 1000.0 > windowHours * secondsPerHour;
}

std::optional<std::uint32_t> windowSamples(double windowHours, std::int32_t millisecondsPerSample) {
    if (millisecondsPerSample == 0)
        return std::nullopt;
    const double samples = std::trunc(windowHours * secondsPerHour * 1000 / millisecondsPerSample);
    if (!std::isfinite(samples) || samples > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    return samples < 1 ? 1 : static_cast<std::uint32_t>(samples);
}

bool allocateRing(Link& link, std::int32_t millisecondsPerSample) {
    link.SampleCount = 0;
    link.NextSlot = 0;
    link.BufferSize = 0;
    link.ValueBuffer.reset();
    link.TimeBuffer.reset();
    const auto slots = windowSamples(link.WindowSize, millisecondsPerSample);
    if (!slots || !reserveForecastMemory(*slots))
        return false;
    link.ValueBuffer = allocateZeroed(*slots);
    link.TimeBuffer = allocateZeroed(*slots);
    if (!link.ValueBuffer || !link.TimeBuffer)
        return false;
    link.BufferSize = *slots;
    return true;
}

WindowPlan planWindows(std::span<const double> declaredHours, std::int32_t millisecondsPerSample,
                       std::int32_t maxForecastHours) {
    WindowPlan plan;
    plan.automaticHours = defaultWindow(maxForecastHours);
    double longest = 0.0;
    for (const double hours : declaredHours)
        if (!isTooLong(hours, millisecondsPerSample))
            longest = std::max(longest, hours < 0 ? plan.automaticHours : hours);
    plan.millisecondsPerSample =
        millisecondsPerSample == -1 ? automaticPeriod(longest) : millisecondsPerSample;
    plan.automaticSamples = windowSamples(plan.automaticHours, plan.millisecondsPerSample);
    for (const double hours : declaredHours) {
        if (isTooLong(hours, millisecondsPerSample))
            plan.windows.push_back({WindowFate::tooLong, std::nullopt});
        else if (hours < 0)
            plan.windows.push_back({WindowFate::automatic, plan.automaticSamples});
        else if (isShorterThanPeriod(hours, plan.millisecondsPerSample))
            plan.windows.push_back({WindowFate::belowPeriod, plan.automaticSamples});
        else
            plan.windows.push_back({WindowFate::own, windowSamples(hours, plan.millisecondsPerSample)});
    }
    return plan;
}

int AutoSizeWindows(Clasp* clasp) {
    double largest = 0.0;
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        if (link->WindowSize < 0)
            link->WindowSize = defaultWindow(clasp->MaxForecastHours);
        largest = std::max(largest, link->WindowSize);
    }
    if (clasp->MillisecondsPerSample == -1)
        clasp->MillisecondsPerSample = automaticPeriod(largest);
    // The text says "min" although the value is the largest window: readers of old logs know it so.
    DEBUGMSG("minwindowsize = %f, msecpersample = %d\n", largest, clasp->MillisecondsPerSample);
    return 1;
}

int SanityCheckChain(Clasp* clasp) {
    int result = 1;
    const double period = clasp->MillisecondsPerSample / 1000.0;
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        const double window = link->WindowSize * secondsPerHour;
        if (!isShorterThanPeriod(link->WindowSize, clasp->MillisecondsPerSample))
            continue;
        DEBUGMSG("***Error: Sample interval of %.2f sec is greater than window size of %.2f sec for %s %s %s",
                 period, window, link->Descriptor0.c_str(), link->Descriptor1.c_str(),
                 link->Descriptor2.c_str());
        link->WindowSize = defaultWindow(clasp->MaxForecastHours);
        DEBUGMSG(">>>>>>Setting window size to %.2f sec\n", link->WindowSize * secondsPerHour);
        result = -2;
    }
    return result;
}

} // namespace obrin
