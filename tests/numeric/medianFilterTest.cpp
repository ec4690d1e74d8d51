#include "numeric/medianFilter.h"

#include "tests/numeric/referenceMedian.h"
#include "tests/numeric/specialFloats.h"
#include "tests/support/often.h"
#include "tests/support/sanitizers.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace obrin {
namespace {

using test::CapturedLog;
using test::infinity;
using test::referenceBorderMedianFilter;
using test::referenceMedianFilter;

using Series = std::vector<float>;

constexpr float untouched = -12345.0F;
const char* const windowLine = "median_filter: the window size should be >=1";
const char* const strideLine = "median_filter: the window stride should be >=1";

Count sizeOf(const Series& series) {
    return static_cast<Count>(series.size());
}

Series upTo(Count n) {
    Series series;
    for (Count i = 0; i < n; ++i)
        series.push_back(static_cast<float>(i));
    return series;
}

/// The filter on a copy that ends where the samples end, so that a sanitizer sees any read behind them.
Series filtered(const Series& in, Count w, Count s) {
    const auto samples = std::make_unique<float[]>(in.size());
    std::copy(in.begin(), in.end(), samples.get());
    Series out(in.size() / static_cast<std::size_t>(std::max(s, 1)) + 2, untouched);
    const Count k = median_filter(sizeOf(in), samples.get(), w, s, out.data());
    EXPECT_LE(k, sizeOf(out));
    out.resize(static_cast<std::size_t>(k));
    return out;
}

Series borderFiltered(const Series& in, Count w, Count s) {
    const auto samples = std::make_unique<float[]>(in.size());
    std::copy(in.begin(), in.end(), samples.get());
    Series out(in.size() + 2, untouched);
    const Count k = median_filter_with_border_effects(sizeOf(in), samples.get(), w, s, out.data());
    EXPECT_LE(k, sizeOf(out));
    out.resize(static_cast<std::size_t>(k));
    return out;
}

Series reference(const Series& in, Count w, Count s) {
    Series out(in.size() / static_cast<std::size_t>(s) + 2);
    out.resize(static_cast<std::size_t>(referenceMedianFilter(sizeOf(in), in.data(), w, s, out.data())));
    return out;
}

/// As much of the textbook form's output as the promised n + 2 elements hold.
Series borderReference(const Series& in, Count w, Count s) {
    Series out(in.size() + 2);
    const Count k = referenceBorderMedianFilter(sizeOf(in), in.data(), w, s, sizeOf(out), out.data());
    out.resize(std::min(out.size(), static_cast<std::size_t>(k)));
    return out;
}

std::vector<std::uint32_t> patterns(const Series& series) {
    std::vector<std::uint32_t> result;
    for (const float value : series)
        result.push_back(std::bit_cast<std::uint32_t>(value));
    return result;
}

float sortedMedian(const Series& in, std::int64_t first, std::int64_t end) {
    Series window(in.begin() + std::max<std::int64_t>(first, 0),
                  in.begin() + std::min(end, std::int64_t{sizeOf(in)}));
    std::sort(window.begin(), window.end());
    return window[window.size() / 2];
}

/// The rule of the limit, followed literally, and a sort of each window.
Series sortedWindows(const Series& in, Count w, Count s) {
    Series out;
    const Count n = sizeOf(in);
    const Count limit = ((n - w) / s + 1) * s;
    for (Count next = w;; next += s) {
        out.push_back(next - w < n ? sortedMedian(in, next - w, next) : in.back());
        if (next >= limit)
            return out;
    }
}

/// Windows oldest .. next - 1 in the three phases of the border filter, each sorted; n >= w.
Series sortedBorderWindows(const Series& in, Count w, Count s) {
    Series out;
    const Count n = sizeOf(in);
    const Count h = w / 2;
    Count oldest = h + 1 - w;
    Count next = h + 1;
    // An emptied window is read where the newest sample was the last to leave.
    const auto put = [&] { out.push_back(oldest < n ? sortedMedian(in, oldest, next) : in.back()); };
    put();
    while (oldest < 0 || next < n - s) {
        oldest += s;
        next += s;
        put();
    }
    while (oldest < n - h + 1) {
        oldest = std::min(oldest + s, n - h + 1);
        next += s;
        put();
    }
    return out;
}

Series randomSeries(std::mt19937& random, Count n, std::uint_fast32_t levels) {
    Series series;
    for (Count i = 0; i < n; ++i)
        series.push_back(static_cast<float>(random() % levels) - static_cast<float>(levels / 2));
    for (float& value : series)
        value += 0.0F; // no negative zero
    return series;
}

/// Same values to the bit; the first that differs is named.
void expectSame(const Series& actual, const Series& expected, const std::string& where) {
    ASSERT_EQ(actual.size(), expected.size()) << where;
    EXPECT_EQ(patterns(actual), patterns(expected)) << where;
}

std::string sizes(Count n, Count w, Count s) {
    return "n = " + std::to_string(n) + ", w = " + std::to_string(w) + ", s = " + std::to_string(s);
}

TEST(MedianFilter, WindowOfOneAtAStrideOfOneCopiesTheInput) {
    EXPECT_EQ(filtered({3, 1, 2}, 1, 1), (Series{3, 1, 2}));
    EXPECT_EQ(borderFiltered({3, 1, 2}, 1, 1), (Series{3, 1, 2}));
}

TEST(MedianFilter, WindowOfOneWithTheSameArrayForInputAndOutputCopiesNothingAndReturnsTheCount) {
    Series series = upTo(10);
    EXPECT_EQ(median_filter(10, series.data(), 1, 1, series.data()), 10);
    EXPECT_EQ(median_filter(10, series.data(), 1, 3, series.data()), 3);
    EXPECT_EQ(median_filter_with_border_effects(10, series.data(), 1, 3, series.data()), 3);
    EXPECT_EQ(series, upTo(10));
}

TEST(MedianFilter, WindowOfOneAtAStrideOfThreeLeavesOutTheTenthSampleThoughItStartsAWindow) {
    EXPECT_EQ(filtered(upTo(10), 1, 3), (Series{0, 3, 6}));
    EXPECT_EQ(borderFiltered(upTo(10), 1, 3), (Series{0, 3, 6}));
}

TEST(MedianFilter, WindowOfOneOfANegativeCountEndsTheProcess) {
    float sample = 0;
    float out = 0;
    EXPECT_EXIT(median_filter(-1, &sample, 1, 1, &out), testing::ExitedWithCode(1), "");
}

TEST(MedianFilter, AsManySamplesAsTheWindowGiveOneOutputAtSortedPlaceHalfTheWindow) {
    std::mt19937 random(11);
    for (Count n = 2; n <= 40; ++n) {
        Series series = upTo(n);
        std::shuffle(series.begin(), series.end(), random);
        EXPECT_EQ(filtered(series, n, 1), (Series{static_cast<float>(n / 2)})) << n;
        EXPECT_EQ(filtered(series, n, n), (Series{static_cast<float>(n / 2)})) << n;
    }
}

TEST(MedianFilter, EvenWindowYieldsTheUpperOfTheTwoMiddleSamplesAndNoAverage) {
    EXPECT_EQ(filtered({1, 2, 3, 4}, 4, 1), (Series{3}));
    EXPECT_EQ(filtered({4, 3, 2, 1}, 4, 4), (Series{3}));
}

TEST(MedianFilter, RepeatedEqualValuesLeaveTheWindowOneAtATime) {
    const Series series{2, 2, 2, 1, 1, 3, 3, 3, 3, 1, 2, 2};
    EXPECT_EQ(filtered(series, 3, 1), (Series{2, 2, 1, 1, 3, 3, 3, 3}));
    expectSame(filtered(series, 4, 1), sortedWindows(series, 4, 1), "w = 4");
}

TEST(MedianFilter, TenSamplesInWindowsOfThreeGiveSixOutputsAndTwelveWithBorders) {
    EXPECT_EQ(filtered(upTo(10), 3, 1), (Series{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(borderFiltered(upTo(10), 3, 1), (Series{1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 9}));
}

TEST(MedianFilter, StopsByWholeStridesFromTheFirstSample) {
    EXPECT_EQ(filtered(upTo(10), 4, 1), (Series{2, 3, 4, 5}));
    EXPECT_EQ(filtered(upTo(10), 3, 2), (Series{1, 3, 5, 7}));
    EXPECT_EQ(filtered(upTo(12), 5, 1), (Series{2, 3, 4, 5}));
}

TEST(MedianFilter, AStrideOfOneGivesTwiceTheWindowLessThanTheSamplesPlusTwo) {
    for (Count w = 2; w <= 15; ++w)
        for (Count n = w; n <= 60; ++n)
            EXPECT_EQ(sizeOf(filtered(upTo(n), w, 1)), n >= 2 * w - 1 ? n - 2 * w + 2 : 1) << sizes(n, w, 1);
}

TEST(MedianFilter, WindowOfNoneIsLoggedAndGivesNoOutput) {
    CapturedLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(filtered(upTo(10), 0, 1), Series{});
    EXPECT_EQ(log.text(), windowLine);
    EXPECT_EQ(borderFiltered(upTo(10), 0, 0), Series{});
    EXPECT_EQ(log.text(), std::string(windowLine) + windowLine);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "trying to allocate buff with size 0 \ntrying to allocate buff with size 0 \n");
}

TEST(MedianFilter, NegativeWindowIsLoggedAndGivesNoOutput) {
    CapturedLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(filtered(upTo(10), -4, 1), Series{});
    EXPECT_EQ(log.text(), windowLine);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trying to allocate buff with size -4 \n");
}

TEST(MedianFilter, StrideBelowOneIsLoggedAndGivesNoOutput) {
    CapturedLog log;
    EXPECT_EQ(filtered(upTo(10), 3, 0), Series{});
    EXPECT_EQ(borderFiltered(upTo(10), 1, -1), Series{});
    EXPECT_EQ(log.text(), std::string(strideLine) + strideLine);
}

TEST(MedianFilter, FewerSamplesThanTheWindowGiveTheirOwnMedian) {
    EXPECT_EQ(filtered({7, 5, 6}, 5, 5), (Series{6}));
    EXPECT_EQ(filtered({7, 5}, 500, 1), (Series{7}));
    EXPECT_EQ(filtered({7}, 5, 5), (Series{7}));
    EXPECT_EQ(filtered({}, 5, 5), Series{});
    EXPECT_EQ(filtered({}, 1, 1), Series{});
    EXPECT_EQ(borderFiltered({}, 5, 5), Series{});
}

TEST(MedianFilter, AStrideAboveTheWindowEndsWithAWindowPastTheEnd) {
    EXPECT_EQ(filtered(upTo(10), 2, 5),
              (Series{1, 6, 9})); // samples 0-1, 5-6, and 10-11, which are not there
    EXPECT_EQ(filtered(upTo(11), 2, 5), (Series{1, 6, 10}));
    EXPECT_EQ(filtered(upTo(13), 4, 5), (Series{2, 7, 11})); // the third has 10, 11 and 12
}

TEST(MedianFilter, LargestCountsNeitherOverflowNorLinger) {
    const Count most = std::numeric_limits<Count>::max();
    EXPECT_EQ(filtered(upTo(10), 5, most), (Series{2, 9}));
    EXPECT_EQ(borderFiltered(upTo(10), 4, most), borderFiltered(upTo(10), 4, 100));
    const Series broken{1, NAN, 3, 2};
    CapturedLog log;
    EXPECT_EQ(sizeOf(filtered(broken, 2, most)), 2);
}

constexpr Count everySize = LUMETRA_UNDER_ASAN ? 7 : 1;

TEST(MedianFilter, EverySmallSizeIsASortOfEachWindow) {
    std::mt19937 random(1);
    for (Count n = 1; n <= 60; n += everySize)
        for (const std::uint_fast32_t levels : {3U, 1000000U}) {
            const Series series = randomSeries(random, n, levels);
            for (Count w = 2; w <= 12; ++w)
                for (Count s = 1; s <= 12; ++s) {
                    expectSame(filtered(series, w, s), sortedWindows(series, w, s), sizes(n, w, s));
                    expectSame(filtered(series, w, s), reference(series, w, s), sizes(n, w, s));
                }
        }
}

TEST(MedianFilter, EverySmallSizeWithBordersIsASortOfEachWindow) {
    std::mt19937 random(2);
    for (Count n = 1; n <= 60; n += everySize)
        for (const std::uint_fast32_t levels : {3U, 1000000U}) {
            const Series series = randomSeries(random, n, levels);
            for (Count w = 2; w <= 12; ++w)
                for (Count s = 1; s <= 12; ++s) {
                    expectSame(borderFiltered(series, w, s), borderReference(series, w, s), sizes(n, w, s));
                    if (n >= w)
                        expectSame(borderFiltered(series, w, s), sortedBorderWindows(series, w, s),
                                   sizes(n, w, s));
                }
        }
}

TEST(MedianFilter, BordersNeverWriteMoreThanTwoElementsPastTheCount) {
    for (Count n = 1; n <= 40; ++n)
        for (Count w = 2; w <= 100; ++w)
            for (Count s = 1; s <= 7; ++s) {
                Series out(static_cast<std::size_t>(n) + 3, untouched);
                const Series series = upTo(n);
                EXPECT_LE(median_filter_with_border_effects(n, series.data(), w, s, out.data()), n + 2);
                EXPECT_EQ(out.back(), untouched) << sizes(n, w, s);
                if (n >= w / 2 - 1) {
                    EXPECT_LE(referenceBorderMedianFilter(n, series.data(), w, s, n + 2, out.data()), n + 2)
                        << sizes(n, w, s);
                }
            }
}

struct Shape {
    const char* name;
    std::function<float(Count, std::mt19937&)> sample;
};

const Shape families[] = {
    {"noise", [](Count, std::mt19937& random) { return static_cast<float>(random()); }},
    {"duplicates", [](Count, std::mt19937& random) { return static_cast<float>(random() % 4); }},
    {"sorted", [](Count i, std::mt19937&) { return static_cast<float>(i); }},
    {"reversed", [](Count i, std::mt19937&) { return static_cast<float>(-i - 1); }},
    {"constant", [](Count, std::mt19937&) { return 42.5F; }},
    {"alternating", [](Count i, std::mt19937&) { return i % 2 == 0 ? -1.0F : 1e9F; }},
    {"square wave", [](Count i, std::mt19937&) { return i / 97 % 2 == 0 ? 0.0F : 1.0F; }},
    {"trend with noise",
     [](Count i, std::mt19937& random) {
         return static_cast<float>(i) + static_cast<float>(random() % 100);
     }},
    {"infinities",
     [](Count, std::mt19937& random) {
         const auto kind = random() % 4;
         return kind == 0 ? infinity : kind == 1 ? -infinity : static_cast<float>(random() % 10);
     }},
    {"denormals",
     [](Count, std::mt19937& random) {
         return static_cast<float>(random() % 1000) * std::numeric_limits<float>::denorm_min();
     }},
    {"zeros of both signs", [](Count, std::mt19937& random) {
         const auto kind = random() % 5;
         return kind < 2 ? 0.0F : kind < 4 ? -0.0F : kind == 4 && random() % 2 == 0 ? 1.0F : -1.0F;
     }}};

TEST(MedianFilter, EveryFamilyOfSeriesIsTheTextbooksToTheBit) {
    std::mt19937 random(3);
    std::size_t seen = 0;
    for (const Shape& family : families)
        for (const auto& [n, w, s] : {std::tuple{3000, 5, 5},
                                      {3001, 5, 1},
                                      {999, 9, 2},
                                      {3000, 10, 1},
                                      {3000, 16, 3},
                                      {2000, 33, 1},
                                      {4003, 64, 15},
                                      {4003, 64, 16},
                                      {3000, 501, 1},
                                      {3000, 500, 7},
                                      {5000, 1000, 1},
                                      {5000, 999, 400},
                                      {2500, 70, 90},
                                      {130, 128, 1}}) {
            if (LUMETRA_UNDER_ASAN && seen++ % 5 != 0)
                continue;
            Series series;
            for (Count i = 0; i < n; ++i)
                series.push_back(family.sample(i, random));
            expectSame(filtered(series, w, s), reference(series, w, s),
                       family.name + (", " + sizes(n, w, s)));
            expectSame(borderFiltered(series, w, s), borderReference(series, w, s),
                       family.name + (", borders, " + sizes(n, w, s)));
        }
}

TEST(MedianFilter, RandomSizesAreTheTextbooksToTheBit) {
    std::mt19937 random(4);
    for (std::size_t trial = 0; trial < test::sample(3000); ++trial) {
        const Series series = randomSeries(random, 1 + static_cast<Count>(random() % 700), 1 + random() % 50);
        const Count w = 2 + static_cast<Count>(random() % 150);
        const Count s = 1 + static_cast<Count>(random() % (trial % 2 == 0 ? 6 : 200));
        expectSame(filtered(series, w, s), reference(series, w, s), sizes(sizeOf(series), w, s));
    }
}

TEST(MedianFilter, NetworksOfEverySizeFindTheMedianOfEveryArrangement) {
    for (Count w = 2; w <= 7; ++w) {
        Series window = upTo(w);
        do
            ASSERT_EQ(filtered(window, w, w), (Series{static_cast<float>(w / 2)}));
        while (std::next_permutation(window.begin(), window.end()));
    }
    // A network that sorts every window of zeros and ones sorts every window.
    for (const Count w : {5, 8, 9})
        for (std::uint32_t pattern = 0; pattern < 1U << w; ++pattern) {
            Series windows;
            for (Count i = 0; i < 5 * w; ++i)
                windows.push_back(static_cast<float>(pattern >> (i % w) & 1U));
            const float expected = std::popcount(pattern) >= w - w / 2 ? 1.0F : 0.0F;
            ASSERT_EQ(filtered(windows, w, w), Series(5, expected)) << w << ' ' << pattern;
        }
}

TEST(MedianFilter, ANotANumberGivesWhatTheSearchesMakeOfItAndTheSameLines) {
    std::mt19937 random(5);
    for (int trial = 0; trial < 150; ++trial) {
        Series series = randomSeries(random, 1 + static_cast<Count>(random() % 50), 20);
        for (std::size_t nans = 1 + random() % 6; nans > 0; --nans)
            series[random() % series.size()] = random() % 2 == 0 ? NAN : -NAN;
        const Count w = 2 + static_cast<Count>(random() % 12);
        const Count s = 1 + static_cast<Count>(random() % 6);
        CapturedLog log;
        const Series fast = filtered(series, w, s);
        const Series fastBorder = borderFiltered(series, w, s);
        const std::string lines = log.text();
        expectSame(fast, reference(series, w, s), sizes(sizeOf(series), w, s));
        expectSame(fastBorder, borderReference(series, w, s), sizes(sizeOf(series), w, s));
        EXPECT_EQ(log.text(), lines + lines);
    }
}

TEST(MedianFilter, ASampleThatIsNotFoundInTheBufferIsToldAndStays) {
    CapturedLog log;
    EXPECT_EQ(sizeOf(filtered({NAN, 1, 2, 3}, 2, 2)), 2);
    EXPECT_EQ(log.text().find("Median filtering, error in binary search BinSearch for\n"
                              "curr_window_size = 2, buffer = \n"),
              0U);
    EXPECT_NE(log.text().find("nan \n"), std::string::npos);
    EXPECT_TRUE(log.text().ends_with(" \nMedian filtering, error in binary search BinSearch")) << log.text();
}

TEST(MedianFilter, OneNotANumberOrNegativeZeroAnywhereInALongSeriesIsNoticed) {
    CapturedLog log;
    for (std::size_t at = 0; at < 200; ++at) {
        Series series = upTo(200);
        series[at] = NAN;
        expectSame(filtered(series, 5, 5), reference(series, 5, 5), "NaN at " + std::to_string(at));
        Series zeros(200, 0.0F);
        zeros[at] = -0.0F;
        expectSame(filtered(zeros, 5, 5), reference(zeros, 5, 5), "-0 at " + std::to_string(at));
    }
}

TEST(MedianFilter, ANotANumberInEverySampleKeepsTheBufferInsideItsRoom) {
    CapturedLog log;
    const Series series(60, NAN);
    // In threads of their own, whose buffers have not grown yet.
    std::thread([&] { expectSame(filtered(series, 5, 1), reference(series, 5, 1), "all NaN"); }).join();
    std::thread([&] {
        expectSame(borderFiltered(series, 5, 1), borderReference(series, 5, 1), "all NaN, borders");
    }).join();
}

/// Takes what the C library has to give, down to the smallest piece, and lets it have no more.
void useUpMemory() {
    const rlimit none{1, 1};
    setrlimit(RLIMIT_AS, &none);
    void* volatile piece = nullptr;
    for (std::size_t size = 1UL << 20; size >= 16; size = size > 2048 ? size / 2 : size - 16)
        do
            piece = std::malloc(size);
        while (piece != nullptr);
}

TEST(MedianFilter, ASecondCallOfTheSameSizeTakesNoMemory) {
#if LUMETRA_UNDER_ASAN
    GTEST_SKIP() << "the sanitizer has memory of its own, which cannot be used up";
#endif
    std::mt19937 random(6);
    const Series series = randomSeries(random, 5000, 1000);
    Series out(series.size() + 2);
    for (const auto& [w, s] : {std::pair{5, 5}, {501, 1}, {100, 90}, {12, 40}}) {
        const auto filterTwice = [&, window = w, stride = s] {
            median_filter(sizeOf(series), series.data(), window, stride, out.data());
            useUpMemory();
            median_filter(sizeOf(series), series.data(), window, stride, out.data());
            _exit(77);
        };
        EXPECT_EXIT(filterTwice(), testing::ExitedWithCode(77), "^$") << w << ' ' << s;
    }
    const Series longer(50000, 1.0F);
    Series medians(longer.size() + 2);
    const auto filterMoreThanBefore = [&] {
        useUpMemory();
        median_filter(sizeOf(longer), longer.data(), 10001, 1, medians.data());
    };
    EXPECT_EXIT(filterMoreThanBefore(), testing::ExitedWithCode(1), "^Error allocating array buff\n");
}

TEST(MedianFilter, AWindowThatFindsNoMemoryEndsTheProcessWithTwoLines) {
#if LUMETRA_UNDER_ASAN
    GTEST_SKIP() << "the sanitizer needs the address space that this test takes away";
#endif
    const auto starve = [] {
        const rlimit limit{1UL << 30, 1UL << 30};
        setrlimit(RLIMIT_AS, &limit);
        const Series series = upTo(10);
        float out[12];
        median_filter(10, series.data(), 1000000000, 1, out);
    };
    EXPECT_EXIT(starve(), testing::ExitedWithCode(1),
                "^Error allocating array buff\nSizeof 4, n_elements 1000000000\n$");
}

} // namespace
} // namespace obrin
