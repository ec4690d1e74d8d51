#pragma once

#include <cstdlib>
#include <string_view>

namespace obrin::test {

/// How often to repeat something, or how large to make it: in an ordinary run, and in a long one
/// (LUMETRA_LONG=1).
inline int often(int ordinary, int longRun) {
    const char* wanted = std::getenv("LUMETRA_LONG");
    return wanted != nullptr && std::string_view(wanted) == "1" ? longRun : ordinary;
}

} // namespace obrin::test
