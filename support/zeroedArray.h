#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace obrin {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Doubles with one owner, all 0.0 at first.
using ZeroedArray = std::unique_ptr<double[], FreeMemory>;

/// `count` doubles of 0.0; empty when they cannot be had (also for a count of 0). Taken with calloc, so that
/// the pages of a long ring cost memory only once samples reach them.
inline ZeroedArray allocateZeroed(std::size_t count) {
    return ZeroedArray(count == 0 ? nullptr : static_cast<double*>(std::calloc(count, sizeof(double))));
}

} // namespace obrin
