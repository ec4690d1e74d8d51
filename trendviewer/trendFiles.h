#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace obrin {

// The lock that keeps writing, reading and deletion of trend files apart, and the deletion. The lock is taken
// without waiting, with three pauses of a second; an unlock by a thread that does not hold it changes
// nothing. Any thread.

/// 0 taken; 2 the agent is stopping, not attempted; 5 stayed busy. The number of pauses decides, so a lock
/// taken after the third pause is held although the result is 5 and must be unlocked.
std::int32_t trendViewerLockFiles();

/// 5 when the lock is invalid, else 0.
std::int32_t trendViewerUnlockFiles();

/// Holds the lock for as long as it lives, if it got it: taken as by trendViewerLockFiles(), and given back
/// also where the result said 5 although it was taken. Goes on without the lock when it is refused: a reader
/// must not stop the agent.
class TrendFileGuard {
public:
    enum class Patience { waits, none }; ///< none: one attempt and no pause

    explicit TrendFileGuard(Patience patience = Patience::waits);
    TrendFileGuard(const TrendFileGuard&) = delete;
    TrendFileGuard& operator=(const TrendFileGuard&) = delete;
    ~TrendFileGuard();

    /// Whether it stayed busy.
    bool refused() const { return refused_; }

private:
    bool refused_ = false;
    bool taken_ = false;
};

/// Remove all trend files and culprit reports (*.cul, *.ini, *.gnp) of the data home directory. 1, or the
/// error number when the directory cannot be searched. An empty home directory deletes nothing; the run's own
/// four files are never deleted.
std::int32_t deleteTrendFiles(Clasp* clasp);
void deleteTrendFilesSynchronized(Clasp* clasp);

/// What the removals of one pass have in common, so that many cost little more than one: those behind a
/// refusal of the lock do not wait for it again, and the directory is listed once. For resources of one run;
/// nobody makes trend files meanwhile.
struct RemovalPass {
    bool lockRefused = false;
    std::optional<std::vector<std::string>> names; ///< of the directory, sorted, once it has been listed
};

/// Remove the trend files of one resource (its name stem and "BM*"). 1, or the error number when the
/// directory cannot be searched, reported; the three files that a forecast writes are removed all the same.
std::int32_t deleteResourceTrendFiles(Link* link, RemovalPass* pass = nullptr);
void deleteResourceTrendFilesSynchronized(Link* link, RemovalPass* pass = nullptr);

} // namespace obrin
