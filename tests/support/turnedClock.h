#pragma once

#include "support/clock.h"
#include "support/mutex.h"

#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace obrin::test {

/// The agent's clock for as long as it lives. It stands still until it is turned. A pause and a wait on a
/// condition come back at once and turn it by what they were to last. Any thread.
class TurnedClock : public Clock {
public:
    using Seconds = std::vector<std::chrono::seconds>;

    TurnedClock() { setSystemClock(this); }
    ~TurnedClock() override { setSystemClock(nullptr); }

    std::time_t wallTime() override;
    Moment now() override;
    Reading read() override;
    void pause(std::chrono::seconds time) override;
    int waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Moment deadline) override;

    /// Time goes by, also for who waits on a condition.
    void turn(Duration time);

    /// The time of day jumps, and nothing else.
    void setWallTime(std::time_t time);

    /// Waits on a condition last until the clock is turned that far, or somebody wakes them.
    void holdSleeps();

    /// Is called when a pause ("pause") or a wait on a condition ("sleep") begins, instead of its being kept.
    using Told = std::function<void(const char* what, std::chrono::seconds time)>;
    void onWait(Told told);

    /// Is called with each look at the clock; what it gives goes by before the answer.
    using Looked = std::function<Duration(Moment)>;
    void onLook(Looked looked);

    /// What was asked for so far, in order.
    Seconds pauses();
    Seconds sleeps();

private:
    void tell(const char* what, Seconds TurnedClock::*kept, Duration time);

    Mutex lock_;
    Duration gone_ GUARDED_BY(lock_){std::chrono::hours(1)}; ///< a deadline may lie in the past
    std::time_t wallAtNothing_ GUARDED_BY(lock_){std::time(nullptr)};
    bool held_ GUARDED_BY(lock_) = false;
    pthread_cond_t* sleepersCondition_ GUARDED_BY(lock_) = nullptr;
    pthread_mutex_t* sleepersMutex_ GUARDED_BY(lock_) = nullptr;
    Told told_ GUARDED_BY(lock_);
    std::shared_ptr<Looked> looked_ GUARDED_BY(lock_);
    Seconds pauses_ GUARDED_BY(lock_);
    Seconds sleeps_ GUARDED_BY(lock_);
};

/// For as long as it lives, somebody else's look at a clock turns it by `time` if `when`, which is given the
/// moment before, holds. Who waits for a program until a deadline looks every 20 milliseconds or so.
class TimeGoesBy {
public:
    using When = std::function<bool(Clock::Moment)>;

    TimeGoesBy(TurnedClock& clock, Clock::Duration time, When when);
    TimeGoesBy(const TimeGoesBy&) = delete;
    TimeGoesBy& operator=(const TimeGoesBy&) = delete;
    ~TimeGoesBy();

private:
    TurnedClock& clock_;
};

/// Comes back once `condition` holds. No test has a deadline of its own: who runs them has one.
template <class Condition>
void await(Condition condition) {
    while (!condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace obrin::test
