#include "support/clock.h"

#include "support/immortal.h"

#include <atomic>
#include <thread>

namespace obrin {
namespace {

std::atomic<Clock*> chosen{nullptr};

} // namespace

std::time_t Clock::wallTime() {
    return std::time(nullptr);
}

Clock::Moment Clock::now() {
    return std::chrono::steady_clock::now();
}

Clock::Reading Clock::read() {
    // These two tick together, and between two looks at them nothing but a tick can come.
    timespec wall{};
    timespec steady{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &wall);
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &steady);
    const auto since = [](const timespec& time) {
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    return {since(wall), Moment(since(steady))};
}

void Clock::pause(std::chrono::seconds time) {
    std::this_thread::sleep_for(time);
}

int Clock::waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Moment deadline) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(deadline);
    const std::chrono::nanoseconds rest = deadline - seconds;
    const timespec time{seconds.time_since_epoch().count(), rest.count()};
    return ::pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &time);
}

Clock& systemClock() {
    static Immortal<Clock> real;
    Clock* const clock = chosen;
    return clock == nullptr ? *real : *clock;
}

void setSystemClock(Clock* clock) {
    chosen = clock;
}

} // namespace obrin
