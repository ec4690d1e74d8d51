#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace obrin {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Numbers with one owner, all 0.0 at first.
template <class Number>
using ZeroedNumbers = std::unique_ptr<Number[], FreeMemory>;
using ZeroedArray = ZeroedNumbers<double>;

/// `count` numbers of 0.0; empty when they cannot be had (also for a count of 0). Taken with calloc, so that
/// the pages of a long ring cost memory only once samples reach them.
template <class Number = double>
ZeroedNumbers<Number> allocateZeroed(std::size_t count) {
    return ZeroedNumbers<Number>(count == 0 ? nullptr
                                            : static_cast<Number*>(std::calloc(count, sizeof(Number))));
}

} // namespace obrin
