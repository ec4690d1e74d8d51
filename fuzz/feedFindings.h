#pragma once

#include "agent/checkFeed.h"
#include "fuzz/target.h"
#include "support/bytes.h"

namespace obrin::fuzz {

/// Passes over the version and the findings at the beginning of what checkFeed.h lays out.
inline void passFindings(BytesReader& bytes) {
    require(bytes.number() == checkFeedVersion, "bytes for the host begin with their version");
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        require(!bytes.text().empty(), "a finding has a kind");
        require(bytes.number() >= 1 && bytes.number() >= 1, "a finding has a place");
        for (int text = 0; text < 3; ++text)
            require(bytes.text().size() <= longestTold, "a text that is told is bounded");
        bytes.number();
        bytes.longNumber();
    }
    require(bytes.isWhole(), "the findings are whole");
}

} // namespace obrin::fuzz
