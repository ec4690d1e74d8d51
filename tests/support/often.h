#pragma once

#include "tests/support/sanitizers.h"

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace obrin::test {

/// How often to repeat something, or how large to make it: in an ordinary run, and in a long one
/// (LUMETRA_LONG=1).
inline int often(int ordinary, int longRun) {
    const char* wanted = std::getenv("LUMETRA_LONG");
    return wanted != nullptr && std::string_view(wanted) == "1" ? longRun : ordinary;
}

/// Of so many cases of arithmetic that the suite runs without a sanitizer too: a few under one.
inline std::size_t sample(std::size_t cases) {
#if LUMETRA_UNDER_ASAN
    return (cases + 31) / 32;
#else
    return cases;
#endif
}

} // namespace obrin::test
