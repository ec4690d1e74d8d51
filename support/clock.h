#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <pthread.h>

namespace obrin {

inline constexpr double secondsPerHour = 3600.0;
inline constexpr std::int64_t wholeSecondsPerHour = 3600; ///< for times that have no fractions

/// Every time that the agent goes by enters here, the real one unless a test has set another. Any thread.
class Clock {
public:
    using Duration = std::chrono::steady_clock::duration;
    /// Of a clock that nobody sets: only differences mean anything.
    using Moment = std::chrono::steady_clock::time_point;

    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    /// The time of day in seconds since the epoch; may jump either way.
    virtual std::time_t wallTime();

    virtual Moment now();

    /// Both as of one moment, to the clock ticks of the kernel.
    struct Reading {
        std::chrono::nanoseconds wall{}; ///< the time of day since the epoch
        Moment steady;
    };
    virtual Reading read();

    /// Comes back after that time, whatever signals arrive.
    virtual void pause(std::chrono::seconds time);

    /// Waits on the condition with its mutex held. 0 when woken, with or without a cause; ETIMEDOUT when the
    /// deadline has passed, else the error number of the wait.
    virtual int waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Moment deadline);
};

/// The clock that everybody uses.
Clock& systemClock();

/// Sets another one, null for the real one. It must outlive its users, so: while no agent runs.
void setSystemClock(Clock* clock);

} // namespace obrin
