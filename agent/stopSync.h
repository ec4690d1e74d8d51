#pragma once

#include <atomic>

namespace obrin {

/// 1 while the agent should run, 0 after a stop request. Written under the stop mutex; may be read without
/// it.
extern std::atomic<int> continueExecuting;

/// Sets continueExecuting to 1 under the stop mutex: a run begins. Agent thread.
void beginExecuting();

/// Whether a stop was requested, read under the stop mutex. Any thread.
bool stopRequested();

/// Sleeps up to `seconds` seconds on the monotonic clock, or until a stop request that arrives during the
/// sleep; one that came before it does not shorten it. 0 when woken by a stop request, ETIMEDOUT when the
/// time ran out, else the error number of the wait (logged). Tells the service manager on the way that the
/// agent lives. Agent thread.
int javaThreadSyncSleep(int seconds);

/// Asks the agent to stop: clears continueExecuting and wakes a sleep in progress. 0. Any thread, any number
/// of times.
int pleaseStop();

} // namespace obrin
