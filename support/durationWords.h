#pragma once

#include <cstdint>
#include <string>

namespace obrin {

/// A duration rounded to what matters at its size, as the host words it: "45 s", "33 min", "2 h 15 min",
/// "3 days 4 h". A negative one is taken for zero.
std::string durationWords(std::int64_t seconds);

} // namespace obrin
