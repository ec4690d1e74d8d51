#pragma once

#include "support/mutex.h"

#include <cstdint>
#include <jni.h>
#include <optional>
#include <string>

namespace obrin {

struct Clasp;
struct Link;

// Process-wide references of the run. The agent thread alone writes them.

/// Java environment of the agent thread and the objects handed to its native call; valid while that call runs
/// and only on that thread.
extern JNIEnv* gJEnv;
extern jobject gJObj;
extern jobject gJEvents;

/// The run's control record, null before a run and after. Written under chainLock by the agent thread, which
/// alone may read it without.
extern Clasp* pResourceClasp;

/// Guards pResourceClasp and the chain behind it against readers on other threads: held by the agent thread
/// while it changes the chain, by a reader while it walks. A reader copies what it needs and lets go before
/// it calls Java.
extern Mutex chainLock;

/// Cycle time in seconds since the epoch, set at the top of each cycle.
extern std::int64_t TimeStamp;

/// Configuration items 10 and 11: logged, acted upon by nothing.
extern int enablepooltaggingflag;
extern int grace_period; ///< hours

/// First link of the chain; null without a run or with an empty chain. What it points at may go as soon as
/// chainLock is let go, so a caller on another thread only tests it.
Link* getFirstLink();

/// A copy of the data home directory; nothing without a run, nor before it has a resource: until then the
/// configuration is still being read. Any thread.
std::optional<std::string> getHomeDirectory();

} // namespace obrin
