#include "tests/support/turnedClock.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace obrin::test {

using std::chrono::floor;
using std::chrono::seconds;

std::time_t TurnedClock::wallTime() {
    MutexLock lock(lock_);
    return wallAtNothing_ + floor<seconds>(gone_).count();
}

Clock::Moment TurnedClock::now() {
    std::shared_ptr<Looked> looked;
    Moment before;
    {
        MutexLock lock(lock_);
        looked = looked_;
        before = Moment(gone_);
    }
    if (looked)
        turn((*looked)(before));
    MutexLock lock(lock_);
    return Moment(gone_);
}

Clock::Reading TurnedClock::read() {
    MutexLock lock(lock_);
    return {seconds(wallAtNothing_) + gone_, Moment(gone_)};
}

void TurnedClock::pause(seconds time) {
    tell("pause", &TurnedClock::pauses_, time);
    turn(time);
}

int TurnedClock::waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Moment deadline) {
    Duration left{};
    bool wait = false;
    {
        MutexLock lock(lock_);
        left = deadline.time_since_epoch() - gone_;
        wait = held_ && left > Duration(0);
        sleepersCondition_ = wait ? condition : nullptr;
        sleepersMutex_ = mutex;
    }
    tell("sleep", &TurnedClock::sleeps_, left);
    if (wait) // whoever turns the clock from here on needs the mutex before it can wake us
        ::pthread_cond_wait(condition, mutex);
    MutexLock lock(lock_);
    sleepersCondition_ = nullptr;
    if (!held_)
        gone_ = std::max(gone_, deadline.time_since_epoch());
    return gone_ < deadline.time_since_epoch() ? 0 : ETIMEDOUT;
}

void TurnedClock::turn(Duration time) {
    pthread_cond_t* condition = nullptr;
    pthread_mutex_t* mutex = nullptr;
    {
        MutexLock lock(lock_);
        gone_ += time;
        condition = sleepersCondition_;
        mutex = sleepersMutex_;
    }
    if (condition == nullptr)
        return;
    ::pthread_mutex_lock(mutex);
    ::pthread_cond_broadcast(condition);
    ::pthread_mutex_unlock(mutex);
}

void TurnedClock::setWallTime(std::time_t time) {
    MutexLock lock(lock_);
    wallAtNothing_ = time - floor<seconds>(gone_).count();
}

void TurnedClock::holdSleeps() {
    MutexLock lock(lock_);
    held_ = true;
}

void TurnedClock::onWait(Told told) {
    MutexLock lock(lock_);
    told_ = std::move(told);
}

void TurnedClock::onLook(Looked looked) {
    MutexLock lock(lock_);
    looked_ = looked ? std::make_shared<Looked>(std::move(looked)) : nullptr;
}

TurnedClock::Seconds TurnedClock::pauses() {
    MutexLock lock(lock_);
    return pauses_;
}

TurnedClock::Seconds TurnedClock::sleeps() {
    MutexLock lock(lock_);
    return sleeps_;
}

void TurnedClock::tell(const char* what, Seconds TurnedClock::*kept, Duration time) {
    Told told;
    {
        MutexLock lock(lock_);
        if (!told_)
            return (this->*kept).push_back(floor<seconds>(time));
        told = told_;
    }
    told(what, floor<seconds>(time));
}

TimeGoesBy::TimeGoesBy(TurnedClock& clock, Clock::Duration time, When when) : clock_(clock) {
    clock_.onLook(
        [time, when = std::move(when)](Clock::Moment now) { return when(now) ? time : Clock::Duration(0); });
}

TimeGoesBy::~TimeGoesBy() {
    clock_.onLook({});
}

} // namespace obrin::test
