#pragma once

#include "agent/debugLog.h"
#include "numeric/sortedSearch.h"
#include "numeric/vectorKernels.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace obrin::test {

// The running median in its textbook form: one buffer kept sorted while samples enter and leave. What
// numeric/medianFilter is compared with, in value and in speed. Samples past the end neither enter nor leave.

class ReferenceBuffer {
public:
    ReferenceBuffer(Count n, const float* in, Count w)
        : n_(n), in_(in), buff_(static_cast<std::size_t>(n < 0 ? 0 : n) + static_cast<std::size_t>(w) + 2) {}

    void insertAt(std::int64_t index) {
        if (index >= n_)
            return;
        const float v = in_[index];
        std::int32_t pos = 0;
        if (FindSMGeq(v, buff_.data(), count_, 1, &pos) == 1) {
            for (Count i = count_; i > pos; --i)
                buff_[static_cast<std::size_t>(i)] = buff_[static_cast<std::size_t>(i - 1)];
            buff_[static_cast<std::size_t>(pos)] = v;
        } else {
            buff_[static_cast<std::size_t>(count_)] = v;
        }
        ++count_;
    }

    void deleteAt(std::int64_t index) {
        if (index >= n_)
            return;
        std::int32_t pos = 0;
        if (BinSearch(in_[index], buff_.data(), count_, 1, &pos) == 1) {
            for (Count i = pos + 1; i < count_; ++i)
                buff_[static_cast<std::size_t>(i - 1)] = buff_[static_cast<std::size_t>(i)];
            --count_;
            return;
        }
        DEBUGMSG("Median filtering, error in binary search BinSearch for\n");
        DEBUGMSG("curr_window_size = %d, buffer = \n", count_);
        for (Count i = 0; i < count_; ++i)
            DEBUGMSG("%f \n", static_cast<double>(buff_[static_cast<std::size_t>(i)]));
        DEBUGMSG("Median filtering, error in binary search BinSearch");
    }

    float median() const { return at(count_ / 2); }
    float at(Count place) const { return buff_[static_cast<std::size_t>(place)]; }

private:
    Count n_;
    const float* in_;
    std::vector<float> buff_;
    Count count_ = 0;
};

/// w >= 2, s >= 1, n >= 1.
inline Count referenceMedianFilter(Count n, const float* in, Count w, Count s, float* out) {
    ReferenceBuffer buff(n, in, w);
    std::int64_t next = 0;
    std::int64_t oldest = 0;
    Count k = 0;
    while (next < w)
        buff.insertAt(next++);
    const std::int64_t limit = ((std::int64_t{n} - w) / s + 1) * s;
    for (;;) {
        out[k++] = buff.median();
        if (next >= limit)
            return k;
        for (Count step = 0; step < s; ++step) {
            buff.deleteAt(oldest++);
            buff.insertAt(next++);
        }
    }
}

/// w >= 2, s >= 1, n >= 1; writes at most `room` medians and returns how many it would write.
inline Count referenceBorderMedianFilter(Count n, const float* in, Count w, Count s, Count room, float* out) {
    ReferenceBuffer buff(n, in, w);
    const Count h = w / 2;
    std::int64_t next = 0;
    std::int64_t oldest = -std::int64_t{w};
    Count k = 0;
    const auto put = [&](float median) {
        if (k < room)
            out[k] = median;
        ++k;
    };
    for (; next <= h; ++next, ++oldest)
        buff.insertAt(next);
    for (;;) {
        put(buff.median());
        if (oldest >= 0)
            break;
        for (Count step = 0; step < s; ++step) {
            if (oldest >= 0)
                buff.deleteAt(oldest);
            ++oldest;
            buff.insertAt(next++);
        }
    }
    while (next < std::int64_t{n} - s) {
        for (Count step = 0; step < s; ++step) {
            buff.deleteAt(oldest++);
            buff.insertAt(next++);
        }
        put(buff.at(h));
    }
    const std::int64_t end = std::int64_t{n} - h + 1;
    while (oldest < end) {
        for (Count step = 0; step < s; ++step) {
            if (oldest < end)
                buff.deleteAt(oldest++);
            if (next < n)
                buff.insertAt(next++);
        }
        put(buff.median());
    }
    return k;
}

} // namespace obrin::test
