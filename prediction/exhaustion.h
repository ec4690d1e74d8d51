#pragma once

#include "diagnosis/LX_DAQ_Subs.h"
#include "prediction/modelSelection.h"
#include "resources/resourceRecords.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace obrin {

// Whether a resource will reach its limit: the decisions on plain arrays, and predict_exhaustion, which takes
// them for one link and acts on them. Values and limits are per cent in 32-bit floats; a limit of -1.0 is
// none. Times are seconds since the oldest sample. Agent thread.

struct ToleranceLimits {
    float lower = -1.0F;
    float upper = -1.0F;
};

/// The limits that an AnalyticalMethod stands for: 1 upper 100; 2 lower 0; 3 both; any other none.
ToleranceLimits limitsOfMethod(std::int32_t analyticalMethod);

enum class ReachedLimit { none, lower, upper };

/// The limit that a value has reached: at or below the lower, at or above the upper less 0.05.
ReachedLimit reachedLimit(float value, ToleranceLimits limits);

/// A value as per cent on the way to its limit: itself, or 100 less it where there is a lower limit alone.
double usedOf(double value, ToleranceLimits limits);

/// The limit that the newest value has reached, if it is the first of the series that has reached any.
/// `values` oldest first, not empty.
ReachedLimit newlyReachedLimit(std::span<const float> values, ToleranceLimits limits);

inline constexpr int forecastPoints = 200;

/// Fills the times at which the forecast is wanted: forecastPoints of them, from `first` + `inner` on in
/// equal steps up to `outer`; each is rounded to float as it is stored.
void forecastGrid(float first, float inner, float outer, std::span<float> times);

struct Crossing {
    bool ahead = false;  ///< a limit is reached after the newest sample
    double hours = -1.0; ///< from the newest sample to the crossing that was looked at last; -1.0 without any
};

/// The first point of the forecast beyond a limit and later than the newest sample (at `now`).
Crossing findCrossing(std::span<const float> times, std::span<const float> values, float now,
                      ToleranceLimits limits);

/// What a cycle's forecast did to the notification state of a resource.
enum class Notification { none, onset, pending, fires, fading, cleared };

/// Advances the notification state of `link` by one cycle. `last`: the newest value.
Notification advanceNotification(Link& link, bool exhaustionAhead, float last);

/// What a cycle sees of a resource's future.
struct Outlook {
    std::array<float, forecastPoints> times{};    ///< the grid, seconds since the oldest sample
    std::array<float, 3> gridOf{-1.0F};           ///< first, inner and outer that the grid was made from
    std::array<float, forecastPoints> forecast{}; ///< per cent, as the model has it
    std::string model;                            ///< its name, also when there is none
    bool valid = false;                           ///< a model could be fitted
    Crossing crossing;                            ///< of a valid outlook
    Notification notification = Notification::none;
};

/// Forecasts a series, oldest first and not empty, over the alert window and, if a model could be fitted,
/// advances the notification state of `link`. Nothing but `link` and `*outlook` is touched. Any thread.
void lookAhead(Link& link, std::span<const float> times, std::span<const float> values,
               ToleranceLimits limits, float inner, float outer, const PredictionParameters& params,
               Outlook* outlook);

/// Holds the forecast inside what a picture shows.
void clipForDisplay(std::span<float> values, ToleranceLimits limits);

/// 1 once a tolerance event has been offered to Java, whatever it made of it: no further one of any resource
/// until it is cleared.
extern std::int32_t shownUpper;
extern std::int32_t shownInner; ///< cleared with shownUpper; nothing else uses it

/// Clears both; at start-up and after every exhaustion event that Java accepted.
void setInitialEventStates();

/// Takes one resource through a cycle: tolerance check, forecast, notification state, event, trend files. `x`
/// and `y`: n times and values, oldest first, n at least 1; `inner`, `outer`: the alert window in seconds.
/// `*predictionValid`: 1 when a model could be fitted; without one the state and the trend files stay as they
/// are. 1 when the exhaustion event was due, else 0.
std::int32_t predict_exhaustion(Link* link, std::int32_t n, const float* x, const float* y, float lower,
                                float upper, float inner, float outer, const PredictionParameters* params,
                                std::int32_t* predictionValid, CulpritText* culpritText);

} // namespace obrin
