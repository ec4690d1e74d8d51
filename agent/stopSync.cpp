#include "agent/stopSync.h"

#include "agent/debugLog.h"
#include "agent/serviceNotice.h"
#include "support/clock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <pthread.h>

namespace obrin {

std::atomic<int> continueExecuting{0};

namespace {

pthread_mutex_t mut = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t pleaseStopCond = PTHREAD_COND_INITIALIZER;
unsigned stopRequests = 0; ///< guarded by mut; tells a stop request from a wake-up without a cause

class StopLock {
public:
    StopLock() { ::pthread_mutex_lock(&mut); }
    StopLock(const StopLock&) = delete;
    StopLock& operator=(const StopLock&) = delete;
    ~StopLock() { ::pthread_mutex_unlock(&mut); }
};

void logUnexpected(int seconds, int result) {
    char text[32] = "";
    const std::time_t now = systemClock().wallTime();
    ::ctime_r(&now, text);
    DEBUGMSG("javaThreadSyncSleep(%d) returned %d=0x%08x (ERROR). timeOfDay=%s", seconds, result,
             static_cast<unsigned>(result), text);
}

} // namespace

void beginExecuting() {
    StopLock lock;
    continueExecuting = 1;
}

bool stopRequested() {
    StopLock lock;
    return continueExecuting == 0;
}

int javaThreadSyncSleep(int seconds) {
    StopLock lock;
    const Clock::Moment deadline = systemClock().now() + std::chrono::seconds(seconds);
    const unsigned requestsBefore = stopRequests;
    int result = 0;
    while (result == 0 && stopRequests == requestsBefore) {
        const Clock::Moment wake = std::min(deadline, nextSignOfLife());
        result = systemClock().waitUntil(&pleaseStopCond, &mut, wake);
        if (result == ETIMEDOUT && wake < deadline) {
            tellAlive();
            result = 0;
        }
    }
    if (result != 0 && result != ETIMEDOUT && result != EINTR)
        logUnexpected(seconds, result);
    return result;
}

int pleaseStop() {
    StopLock lock;
    continueExecuting = 0;
    ++stopRequests;
    return ::pthread_cond_broadcast(&pleaseStopCond);
}

} // namespace obrin
