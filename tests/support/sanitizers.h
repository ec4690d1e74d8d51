#pragma once

// Which sanitizer a test runs under, for what cannot be tested there: LUMETRA_UNDER_ASAN and
// LUMETRA_UNDER_TSAN are 0 or 1. gcc and clang tell it in ways of their own.

#if defined(__has_feature)
#define LUMETRA_UNDER_ASAN __has_feature(address_sanitizer)
#define LUMETRA_UNDER_TSAN __has_feature(thread_sanitizer)
#else
#if defined(__SANITIZE_ADDRESS__)
#define LUMETRA_UNDER_ASAN 1
#else
#define LUMETRA_UNDER_ASAN 0
#endif
#if defined(__SANITIZE_THREAD__)
#define LUMETRA_UNDER_TSAN 1
#else
#define LUMETRA_UNDER_TSAN 0
#endif
#endif
