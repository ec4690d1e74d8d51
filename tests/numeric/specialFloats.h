#pragma once

#include <limits>

namespace obrin::test {

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

} // namespace obrin::test
