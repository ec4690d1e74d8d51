#pragma once

#include <mutex>

// Lock annotations that clang checks at compile time (-Wthread-safety); nothing for other compilers.
#if defined(__clang__)
#define OBRIN_ANNOTATION(x) __attribute__((x))
#else
#define OBRIN_ANNOTATION(x)
#endif
#define GUARDED_BY(mutex) OBRIN_ANNOTATION(guarded_by(mutex))
#define REQUIRES(...) OBRIN_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) OBRIN_ANNOTATION(locks_excluded(__VA_ARGS__))

namespace obrin {

/// std::mutex as the lock analysis can follow it.
class OBRIN_ANNOTATION(capability("mutex")) Mutex {
public:
    void lock() OBRIN_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() OBRIN_ANNOTATION(release_capability()) { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

/// Holds a Mutex for as long as it lives.
class OBRIN_ANNOTATION(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) OBRIN_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
        mutex_.lock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock() OBRIN_ANNOTATION(release_capability()) { mutex_.unlock(); }

private:
    Mutex& mutex_;
};

} // namespace obrin
