#include "numeric/medianFilter.h"

#include "agent/debugLog.h"
#include "numeric/slidingMedian.h"
#include "numeric/sortedWindow.h"
#include "numeric/sortingNetworks.h"
#include "numeric/workArrays.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

namespace obrin {
namespace {

/// From this many shared samples for each new one, keeping the window between two places pays.
constexpr std::int64_t worthSliding = 4;

struct FilterMemory {
    WorkArray<float> buffer{"buff"};
};

bool argumentsAreSound(Count w, Count s) {
    if (w < 1) {
        DEBUGMSG("median_filter: the window size should be >=1");
        reportWorkCount("buff", w);
        return false;
    }
    if (s < 1) {
        DEBUGMSG("median_filter: the window stride should be >=1");
        return false;
    }
    return true;
}

Count everySample(Count n, const float* in, Count s, float* out) {
    if (in != out)
        scopy(n / s, in, s, out, 1);
    return n / s;
}

/// The result where no window need be sorted: for arguments out of range, windows of one sample, no samples.
std::optional<Count> withoutWindows(Count n, const float* in, Count w, Count s, float* out) {
    if (!argumentsAreSound(w, s))
        return 0;
    if (w == 1)
        return everySample(n, in, s, out);
    return n < 1 ? std::optional<Count>(0) : std::nullopt;
}

bool isNegativeZero(float sample) {
    return std::bit_cast<std::uint32_t>(sample) == 0x80000000U;
}

/// Whether any sample is NaN or a negative zero: the values for which the outcome hangs on how the sorted
/// buffer is searched.
bool hasUnordered(Count n, const float* in) {
    // Blocks of a fixed length and without a way out run in vectors; one comparison finds a NaN in either
    // half.
    constexpr Count half = 32;
    unsigned found = 0;
    Count i = 0;
    for (; n - i >= 2 * half; i += 2 * half)
        for (Count j = i; j < i + half; ++j)
            found |= static_cast<unsigned>(std::isunordered(in[j], in[j + half])) |
                     static_cast<unsigned>(isNegativeZero(in[j])) |
                     static_cast<unsigned>(isNegativeZero(in[j + half]));
    return found != 0 || std::any_of(in + i, in + n, [](float sample) {
               return std::isnan(sample) || isNegativeZero(sample);
           });
}

/// The filter's own rule, which counts whole strides from the first sample and not from the first window's
/// end.
Count windowCount(std::int64_t n, std::int64_t w, std::int64_t s) {
    const std::int64_t limit = ((n - w) / s + 1) * s;
    return static_cast<Count>(limit <= w ? 1 : 1 + (limit - w + s - 1) / s);
}

Count completeWindows(Count n, Count w, Count s, Count windows) {
    return n < w ? 0 : std::min(windows, (n - w) / s + 1);
}

/// Partitions the buffer; the definition of the median for ordered values.
float medianOf(const float* samples, Count count) {
    float* const buff = threadOwn<FilterMemory>().buffer.get(count);
    std::copy_n(samples, count, buff);
    std::nth_element(buff, buff + count / 2, buff + count);
    return buff[count / 2];
}

void completeMedians(const float* in, Count w, Count s, Count windows, float* out) {
    if (w <= largestNetwork)
        smallWindowMedians(in, w, s, windows, out);
    else if (s * worthSliding < w)
        slidingMedians(in, w, s, windows, out);
    else
        for (std::int64_t i = 0; i < windows; ++i)
            out[i] = medianOf(in + i * s, w);
}

/// The median of the window at `from`, which reaches past the last sample. Of a window that has emptied, the
/// sample that left it last is still where the median is read.
float incompleteMedian(Count n, const float* in, std::int64_t from) {
    return from < n ? medianOf(in + from, static_cast<Count>(n - from)) : in[n - 1];
}

void searchedMedians(Count n, const float* in, Count w, Count s, Count windows, float* out) {
    SortedWindow window(n, in, threadOwn<FilterMemory>().buffer.get(std::max(n, w)), 0);
    while (window.next() < w)
        window.enter();
    for (Count i = 0; i < windows; ++i) {
        if (i > 0)
            window.slide(s, std::numeric_limits<std::int64_t>::max());
        out[i] = window.median();
    }
}

} // namespace

Count median_filter(Count n, const float* in, Count w, Count s, float* out) {
    if (const std::optional<Count> done = withoutWindows(n, in, w, s, out))
        return *done;
    threadOwn<FilterMemory>().buffer.get(w);
    const Count windows = windowCount(n, w, s);
    if (hasUnordered(n, in)) {
        searchedMedians(n, in, w, s, windows, out);
        return windows;
    }
    const Count complete = completeWindows(n, w, s, windows);
    if (complete > 0)
        completeMedians(in, w, s, complete, out);
    for (std::int64_t i = complete; i < windows; ++i)
        out[i] = incompleteMedian(n, in, i * s);
    return windows;
}

bool reserveMedianFilter(std::int64_t n) noexcept {
    auto* const memory = tryThreadOwn<FilterMemory>();
    return memory != nullptr && memory->buffer.reserve(n); // all of them, where one is NaN
}

Count median_filter_with_border_effects(Count n, const float* in, Count w, Count s, float* out) {
    if (const std::optional<Count> done = withoutWindows(n, in, w, s, out))
        return *done;
    const Count h = w / 2;
    const std::int64_t last = std::numeric_limits<std::int64_t>::max();
    SortedWindow window(n, in, threadOwn<FilterMemory>().buffer.get(hasUnordered(n, in) ? std::max(n, w) : w),
                        -std::int64_t{w} + h + 1);
    while (window.next() <= h)
        window.enter();

    std::int64_t k = 0;
    const auto put = [&](float median) { out[k++] = median; };
    put(window.median());
    while (window.oldest() < 0 && k < std::int64_t{n} + 2) {
        window.slide(s, last);
        put(window.median());
    }
    while (window.next() < std::int64_t{n} - s) {
        window.slide(s, last);
        put(window.at(h));
    }
    const std::int64_t end = std::int64_t{n} - h + 1;
    while (window.oldest() < end) {
        window.slide(s, end);
        put(window.median());
    }
    return static_cast<Count>(k);
}

} // namespace obrin
