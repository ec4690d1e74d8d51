#include "numeric/slidingMedian.h"

#include "numeric/workArrays.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace obrin {
namespace {

constexpr std::int64_t windowsPerStretch = 4; // sorts each sample 4/3 times; more make the ranks too sparse
constexpr std::int64_t leastStretch = 256;

struct SlidingMemory {
    WorkArray<std::uint64_t> keys{"buff"};
    WorkArray<std::uint64_t> bits{"buff"};
    WorkArray<std::int32_t> ranks{"buff"};
};

/// A set of ranks with a pointer at the element that has `place` elements below it.
class RankSet {
public:
    RankSet(std::uint64_t* bits, Count ranks, Count place) : bits_(bits), place_(place) {
        std::fill_n(bits_, ranks / 64 + 1, 0);
    }

    void insert(std::int32_t rank) {
        bits_[rank >> 6] |= bit(rank);
        below_ += rank < at_ ? 1 : 0;
    }

    void erase(std::int32_t rank) {
        bits_[rank >> 6] &= ~bit(rank);
        below_ -= rank < at_ ? 1 : 0;
    }

    /// The element at `place`; the set has more elements than that. below_ counts the elements under at_ at
    /// all times, whether at_ is itself in the set or not.
    std::int32_t median() {
        for (; below_ > place_; --below_)
            at_ = lastUpTo(at_ - 1);
        at_ = firstFrom(at_);
        for (; below_ < place_; ++below_)
            at_ = firstFrom(at_ + 1);
        return at_;
    }

private:
    static std::uint64_t bit(std::int32_t rank) { return std::uint64_t{1} << (rank & 63); }

    std::int32_t firstFrom(std::int32_t rank) const {
        std::int32_t word = rank >> 6;
        std::uint64_t left = bits_[word] & (~std::uint64_t{0} << (rank & 63));
        while (left == 0)
            left = bits_[++word];
        return word * 64 + std::countr_zero(left);
    }

    std::int32_t lastUpTo(std::int32_t rank) const {
        std::int32_t word = rank >> 6;
        std::uint64_t left = bits_[word] & (~std::uint64_t{0} >> (63 - (rank & 63)));
        while (left == 0)
            left = bits_[--word];
        return word * 64 + 63 - std::countl_zero(left);
    }

    std::uint64_t* bits_;
    Count place_;
    Count below_ = 0;
    std::int32_t at_ = 0;
};

/// The sample's value in the upper half, in an order that unsigned integers share with floats, and its index
/// in the lower: equal samples are ranked as they came.
std::uint64_t sortKey(float value, Count index) {
    const auto pattern = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t ordered = (pattern >> 31) != 0 ? ~pattern : pattern | 0x80000000U;
    return (std::uint64_t{ordered} << 32) | static_cast<std::uint32_t>(index);
}

void mediansOfStretch(const float* in, Count samples, Count w, Count s, Count windows, float* out) {
    auto& memory = threadOwn<SlidingMemory>();
    std::uint64_t* const keys = memory.keys.get(samples);
    std::int32_t* const rankOf = memory.ranks.get(samples);
    for (Count i = 0; i < samples; ++i)
        keys[i] = sortKey(in[i], i);
    std::sort(keys, keys + samples);
    for (Count rank = 0; rank < samples; ++rank)
        rankOf[static_cast<std::uint32_t>(keys[rank])] = rank;

    RankSet window(memory.bits.get(samples / 64 + 1), samples, w / 2);
    for (Count i = 0; i < w; ++i)
        window.insert(rankOf[i]);
    out[0] = in[static_cast<std::uint32_t>(keys[window.median()])];
    Count oldest = 0;
    for (Count i = 1; i < windows; ++i) {
        for (const Count end = oldest + s; oldest < end; ++oldest) {
            window.erase(rankOf[oldest]);
            window.insert(rankOf[oldest + w]);
        }
        out[i] = in[static_cast<std::uint32_t>(keys[window.median()])];
    }
}

} // namespace

void slidingMedians(const float* in, Count w, Count s, Count windows, float* out) {
    const std::int64_t stretch = std::max(leastStretch, windowsPerStretch * w);
    const std::int64_t together = (stretch - w) / s + 1;
    for (std::int64_t first = 0; first < windows; first += together) {
        const auto count = static_cast<Count>(std::min<std::int64_t>(together, windows - first));
        const Count samples = (count - 1) * s + w;
        mediansOfStretch(in + first * s, samples, w, s, count, out + first);
    }
}

} // namespace obrin
