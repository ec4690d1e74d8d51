#pragma once

// Counts the allocations of the program that includes this in one of its sources (and in one only), and
// refuses them where told: the hooks replace the C library's entry points. Not under the sanitizers, which
// own them; LUMETRA_COUNTS_ALLOCATIONS tells.

#include "tests/support/sanitizers.h"

#include <cerrno>
#include <cstddef>

#if LUMETRA_UNDER_ASAN || LUMETRA_UNDER_TSAN
#define LUMETRA_COUNTS_ALLOCATIONS 0
#else
#define LUMETRA_COUNTS_ALLOCATIONS 1
#endif

#if LUMETRA_COUNTS_ALLOCATIONS
// Every allocation of the process passes here, those of LAPACK's library included; each thread counts its
// own, and refuses those from `firstRefused` to `lastRefused`.
namespace {
thread_local long allocations = 0;
thread_local long firstRefused = 0;
thread_local long lastRefused = -1;

bool isRefused() {
    const bool is = ++allocations >= firstRefused && allocations <= lastRefused;
    if (is)
        errno = ENOMEM;
    return is;
}
} // namespace
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_realloc(memory, size);
}
__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return isRefused() ? nullptr : __libc_memalign(alignment, size);
}
}
#endif
