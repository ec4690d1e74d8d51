#include "prediction/exhaustion.h"

#include "acquisition/textForms.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "prediction/eventDelivery.h"
#include "prediction/trendFileFormat.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace obrin {

std::int32_t shownUpper = 0;
std::int32_t shownInner = 0;

namespace {

constexpr float none = -1.0F;
constexpr double upperMargin = 0.05;
constexpr std::int32_t patience = 5; ///< cycles without a positive forecast before the intent is dropped

bool isSet(float limit) {
    return limit != none;
}

} // namespace

ToleranceLimits limitsOfMethod(std::int32_t analyticalMethod) {
    switch (analyticalMethod) {
    case 1:
        return {none, 100.0F};
    case 2:
        return {0.0F, none};
    case 3:
        return {0.0F, 100.0F};
    default:
        return {none, none};
    }
}

ReachedLimit reachedLimit(float value, ToleranceLimits limits) {
    if (isSet(limits.lower) && value <= limits.lower)
        return ReachedLimit::lower;
    if (isSet(limits.upper) && static_cast<double>(value) >= static_cast<double>(limits.upper) - upperMargin)
        return ReachedLimit::upper;
    return ReachedLimit::none;
}

double usedOf(double value, ToleranceLimits limits) {
    return isSet(limits.lower) && !isSet(limits.upper) ? 100.0 - value : value;
}

ReachedLimit newlyReachedLimit(std::span<const float> values, ToleranceLimits limits) {
    for (float value : values.first(values.size() - 1))
        if (reachedLimit(value, limits) != ReachedLimit::none)
            return ReachedLimit::none;
    return reachedLimit(values.back(), limits);
}

void forecastGrid(float first, float inner, float outer, std::span<float> times) {
    const double step = static_cast<double>(outer - inner) / 199.0;
    times[0] = first + inner;
    for (std::size_t i = 1; i < times.size(); ++i)
        times[i] = static_cast<float>(static_cast<double>(times[i - 1]) + step);
}

Crossing findCrossing(std::span<const float> times, std::span<const float> values, float now,
                      ToleranceLimits limits) {
    // Nothing is beyond a limit that is no number.
    const float lower = isSet(limits.lower) ? limits.lower : std::numeric_limits<float>::quiet_NaN();
    const float upper = isSet(limits.upper) ? limits.upper : std::numeric_limits<float>::quiet_NaN();
    const auto isBeyond = [=](float value) { return value <= lower || value >= upper; };
    Crossing crossing;
    auto at = std::find_if(values.begin(), values.end(), isBeyond);
    for (; at != values.end() && !crossing.ahead; at = std::find_if(at + 1, values.end(), isBeyond)) {
        const auto i = static_cast<std::size_t>(at - values.begin());
        crossing.hours = static_cast<double>(times[i] - now) / 3600.0;
        crossing.ahead = crossing.hours > 0;
    }
    return crossing;
}

Notification advanceNotification(Link& link, bool exhaustionAhead, float last) {
    if (exhaustionAhead) {
        link.HysteresisCount = patience;
        if (link.NotifyPending != 0)
            return last >= link.NotifyLevel ? Notification::fires : Notification::pending;
        link.NotifyPending = 1;
        link.NotifyLevel =
            static_cast<float>(static_cast<double>(last) + (100.0 - static_cast<double>(last)) * 0.5);
        return Notification::onset;
    }
    if (link.NotifyPending == 0)
        return Notification::none;
    if (--link.HysteresisCount > 0)
        return Notification::fading;
    link.NotifyPending = 0;
    return Notification::cleared;
}

void lookAhead(Link& link, std::span<const float> times, std::span<const float> values,
               ToleranceLimits limits, float inner, float outer, const PredictionParameters& params,
               Outlook* outlook) {
    if (const std::array gridOf{times.front(), inner, outer}; outlook->gridOf != gridOf) {
        forecastGrid(times.front(), inner, outer, outlook->times);
        outlook->gridOf = gridOf;
    }
    outlook->valid = select_model_and_predict(static_cast<std::int32_t>(times.size()), times.data(),
                                              values.data(), forecastPoints, outlook->times.data(),
                                              outlook->forecast.data(), &params, &outlook->model) == 1;
    if (!outlook->valid)
        return;
    outlook->crossing = findCrossing(outlook->times, outlook->forecast, times.back(), limits);
    outlook->notification = advanceNotification(link, outlook->crossing.ahead, values.back());
}

void clipForDisplay(std::span<float> values, ToleranceLimits limits) {
    for (float& value : values) {
        if (isSet(limits.lower)) {
            if (value <= limits.lower)
                value = limits.lower;
            if (value > 100.0F)
                value = 100.0F;
        } else if (isSet(limits.upper)) {
            if (value >= limits.upper)
                value = limits.upper;
            if (value < 0.0F)
                value = 0.0F;
        }
    }
}

void setInitialEventStates() {
    shownInner = 0;
    shownUpper = 0;
}

namespace {

/// Tells Java of a limit that has just been reached. Both sides share one method and one flag.
void checkTolerance(const Link& link, std::span<const float> values, ToleranceLimits limits) {
    const ReachedLimit reached = newlyReachedLimit(values, limits);
    if (reached == ReachedLimit::none)
        return;
    const char* name = link.NameIs.c_str();
    const char* instance = link.Descriptor1.c_str();
    const double limit = static_cast<double>(reached == ReachedLimit::lower ? limits.lower : limits.upper);
    const double value = static_cast<double>(values.back());
    if (reached == ReachedLimit::lower)
        DEBUGMSG("Resource %s %s is at level %f, equal to or below lower tolerance of %f\n", name, instance,
                 value, limit);
    else
        DEBUGMSG("Resource %s %s is at level %f, equal to or above upper tolerance of %f\n", name, instance,
                 value, limit);
    if (shownUpper != 1)
        sendUpperToleranceEvent(name, instance, limit);
    shownUpper = 1;
}

void logNotification(const Link& link, Notification notification) {
    const double level = static_cast<double>(link.NotifyLevel);
    switch (notification) {
    case Notification::onset:
        DEBUGMSG("Onset of exhaustion detected, setting notification level to %f\n", level);
        break;
    case Notification::pending:
    case Notification::fires:
        DEBUGMSG("Exhaustion notification pending, prediction is TRUE, will fire event at level %f\n", level);
        break;
    case Notification::fading:
    case Notification::cleared:
        DEBUGMSG(
            "Exhaustion notification pending, prediction if FALSE, decrementing hysteresis count to %d\n",
            link.HysteresisCount);
        if (notification == Notification::cleared)
            DEBUGMSG("Clearing intent to notify\n");
        break;
    case Notification::none:
        DEBUGMSG("No exhaustion imminent in the given time limits\n");
        break;
    }
}

/// Keeps the forecast with its link for those who look on.
void keepForecast(Link& link, const TrendHeadline& headline, std::span<const float> forecast, float newest,
                  bool eventDue) {
    MutexLock lock(chainLock);
    LinkFindings& findings = link.findings;
    findings.forecastTime = headline.timeStamp;
    findings.hoursToExhaustion = headline.hoursToExhaustion;
    findings.model.assign(headline.model);
    findings.notificationLevel = headline.notifyLevel;
    findings.eventDue = eventDue;
    findings.forecastOrigin = static_cast<double>(headline.timeStamp) - static_cast<double>(newest);
    if (!findings.forecast)
        findings.forecast = allocateZeroed<float>(forecast.size());
    if (findings.forecast)
        std::ranges::copy(forecast, findings.forecast.get());
}

void announceExhaustion(const Link& link, double hours, const CulpritText* culpritText) {
    const double seconds = hours * 3600.0;
    DEBUGMSG("In %.2f seconds (%.2f hours) from NOW,\n", seconds, hours);
    DEBUGMSG("exhaustion imminent\n");
    const char* culprits = culpritText == nullptr ? nullptr : culpritText->text;
    if (sendEvent(Getdays(seconds).c_str(), seconds, link.NameIs.c_str(), link.Descriptor1.c_str(),
                  culprits) == 1)
        setInitialEventStates();
}

} // namespace

std::int32_t predict_exhaustion(Link* link, std::int32_t n, const float* x, const float* y, float lower,
                                float upper, float inner, float outer, const PredictionParameters* params,
                                std::int32_t* predictionValid, CulpritText* culpritText) {
    const ToleranceLimits limits{lower, upper};
    const std::span times(x, static_cast<std::size_t>(n));
    const std::span values(y, static_cast<std::size_t>(n));
    checkTolerance(*link, values, limits);

    Outlook outlook;
    lookAhead(*link, times, values, limits, inner, outer, *params, &outlook);
    *predictionValid = outlook.valid ? 1 : 0;
    DEBUGMSG("Selected model:%s\n", outlook.model.c_str());
    if (!outlook.valid)
        return 0;

    const Crossing& crossing = outlook.crossing;
    logNotification(*link, outlook.notification);
    const bool fires = outlook.notification == Notification::fires;
    if (fires)
        announceExhaustion(*link, crossing.hours, culpritText);

    clipForDisplay(outlook.forecast, limits);
    const TrendHeadline headline{static_cast<double>(isSet(lower) ? lower : upper), TimeStamp, crossing.hours,
                                 outlook.model, link->NotifyLevel};
    keepForecast(*link, headline, outlook.forecast, times.back(), fires);
    writeTrendFiles(headline, link->pClasp->DataHomeDirectory, link->NameIs.view(), link->Descriptor1.view(),
                    outlook.times, outlook.forecast, times, values);
    return fires ? 1 : 0;
}

} // namespace obrin
