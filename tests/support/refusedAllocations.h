#pragma once

// Refuses memory in the program that includes this in one of its sources (and in one only): its `new` throws
// as told, on the thread that told it and only where the agent is at work.

#include "tests/support/fakeJavaEnvironment.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace obrin::test {

/// What becomes of the allocations of this thread.
struct Allocations {
    long made = 0;         ///< since the last begin()
    long firstRefused = 0; ///< its place in that order
    long lastRefused = -1;
    long refused = 0;

    /// Counts from 1 again and refuses the allocations from `first` to `last`.
    void begin(long first = 0, long last = -1) { *this = {0, first, last, 0}; }
    void refuseNoMore() { lastRefused = -1; }
    bool refuses() {
        ++made;
        const bool is = made >= firstRefused && made <= lastRefused;
        refused += is ? 1 : 0;
        return is;
    }
};

inline thread_local Allocations allocations;
inline thread_local int unwatched =
    1; ///< above 0 the test itself is at work, and nothing is counted or refused
inline constexpr long forGood = std::numeric_limits<long>::max();

class Watched {
public:
    Watched() { --unwatched; }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched() { ++unwatched; }
};

class Unwatched {
public:
    Unwatched() { ++unwatched; }
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;
    ~Unwatched() { --unwatched; }
};

} // namespace obrin::test

__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    using namespace obrin::test;
    const bool refused = unwatched == 0 && !insideFakeJava() && allocations.refuses();
    return refused ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}

__attribute__((noinline)) void* operator new(std::size_t size) {
    if (void* memory = ::operator new(size, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
