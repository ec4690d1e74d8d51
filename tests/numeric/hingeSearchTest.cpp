#include "numeric/hingeSearch.h"

#include "numeric/piecewiseFit.h"
#include "tests/numeric/exhaustiveFit.h"
#include "tests/support/often.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace obrin {
namespace {

using test::count;

using Hinges = std::vector<std::int32_t>;

struct Points {
    std::vector<float> x, y;
    Hinges positions;
    std::size_t k = 1;
};

bool findBest(const Points& s, Hinges& hinges) {
    hinges.assign(s.k, std::int32_t{-7});
    return findBestHinges(count(s.x.size()), s.x.data(), s.y.data(), count(s.positions.size()),
                          s.positions.data(), count(s.k), hinges.data());
}

/// The truth about a series as far as double can tell it: one QR solution a set on values without their
/// offset.
struct Judge {
    std::vector<Hinges> sets;
    std::vector<double> errors;
    double least = 0.0, total = 0.0, band = 0.0;

    explicit Judge(const Points& s) {
        long double sum = 0.0L;
        for (const float y : s.y)
            sum += y;
        const long double mean = sum / static_cast<long double>(s.y.size());
        std::vector<double> centred;
        long double squares = 0.0L;
        for (const float y : s.y) {
            centred.push_back(static_cast<double>(static_cast<long double>(y) - mean));
            squares += (static_cast<long double>(y) - mean) * (static_cast<long double>(y) - mean);
        }
        total = static_cast<double>(squares);
        test::fitExhaustively(s.x, centred, s.positions, s.k, &errors);
        test::forEachHingeSet(s.positions, s.k, [this](const Hinges& hinges) { sets.push_back(hinges); });
        least = *std::min_element(errors.begin(), errors.end());
        band = hingeTieBand * total;
    }

    double errorOf(const Hinges& hinges) const {
        return errors[static_cast<std::size_t>(std::find(sets.begin(), sets.end(), hinges) - sets.begin())];
    }

    /// Within the band and nothing before it is. The judge's own last digits blur the band's edge by a
    /// hundredth.
    bool accepts(const Hinges& hinges) const {
        for (std::size_t i = 0; i < sets.size(); ++i) {
            if (sets[i] == hinges)
                return errors[i] <= least + 1.01 * band;
            if (errors[i] < least + 0.99 * band)
                return false;
        }
        return false;
    }
};

// ---- series
// ---------------------------------------------------------------------------------------------------------

using Random = std::mt19937_64;

double normal(Random& random) {
    return std::normal_distribution<double>(0.0, 1.0)(random);
}

double uniform(Random& random, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
}

std::size_t between(Random& random, std::size_t low, std::size_t high) {
    return std::uniform_int_distribution<std::size_t>(low, high)(random);
}

/// Times with an even or an uneven step, from 0 or of epoch size (where neighbouring floats lie 128 s apart).
std::vector<float> makeTimes(Random& random, std::size_t samples) {
    const double base = between(random, 0, 3) == 0 ? 1.7e9 : 0.0;
    const bool even = between(random, 0, 1) == 0;
    std::vector<float> x;
    double time = base;
    for (std::size_t i = 0; i < samples; ++i) {
        x.push_back(static_cast<float>(time));
        time += even ? 300.0 : uniform(random, 150.0, 900.0);
    }
    return x;
}

Hinges makePositions(Random& random, std::size_t samples, std::size_t candidates) {
    Hinges all;
    for (std::size_t i = 1; i + 1 < samples; ++i)
        all.push_back(count(i));
    if (2 * candidates > all.size() || between(random, 0, 1) == 0) {
        std::shuffle(all.begin(), all.end(), random);
        all.resize(candidates);
        std::sort(all.begin(), all.end());
        return all;
    }
    Hinges even;
    for (std::size_t p = 1; p <= candidates; ++p)
        even.push_back(all[p * (all.size() - 1) / (candidates + 1)]);
    return even;
}

/// The broken line with the given hinges at x, slopes chosen at random, as a function of the sample's number.
std::vector<double> brokenLine(Random& random, const std::vector<float>& x, const Hinges& hinges) {
    std::vector<double> y;
    double slope = normal(random), value = uniform(random, -50.0, 50.0);
    const double length = static_cast<double>(x.back()) - static_cast<double>(x.front());
    std::size_t next = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (i > 0)
            value += slope * 30.0 * (static_cast<double>(x[i]) - static_cast<double>(x[i - 1])) / length;
        y.push_back(value);
        if (next < hinges.size() && count(i) == hinges[next]) {
            slope = 2.0 * normal(random);
            ++next;
        }
    }
    return y;
}

Hinges someHinges(Random& random, const Hinges& positions, std::size_t hinges) {
    Hinges chosen = positions;
    std::shuffle(chosen.begin(), chosen.end(), random);
    chosen.resize(std::min(hinges, chosen.size()));
    std::sort(chosen.begin(), chosen.end());
    return chosen;
}

enum class Family {
    randomWalk,
    noisyLine,
    noisyHinge,
    noisyTwoHinges,
    exactLine,
    exactHinge,
    exactTwoHinges,
    constant,
    offset1e6,
    offset1e12,
    heavyTails
};

std::vector<double> makeValues(Random& random, Family family, const std::vector<float>& x,
                               const Hinges& positions) {
    const auto line = [&](std::size_t hinges) {
        return brokenLine(random, x, someHinges(random, positions, hinges));
    };
    const auto noisy = [&](std::vector<double> y, double size) {
        for (double& value : y)
            value += size * normal(random);
        return y;
    };
    const auto shifted = [](std::vector<double> y, double factor, double offset) {
        for (double& value : y)
            value = offset + factor * value;
        return y;
    };
    switch (family) {
    case Family::randomWalk: {
        std::vector<double> y(x.size());
        for (std::size_t i = 1; i < y.size(); ++i)
            y[i] = y[i - 1] + normal(random);
        return y;
    }
    case Family::noisyLine:
        return noisy(line(0), uniform(random, 0.01, 5.0));
    case Family::noisyHinge:
        return noisy(line(1), uniform(random, 0.01, 5.0));
    case Family::noisyTwoHinges:
        return noisy(line(2), uniform(random, 0.01, 5.0));
    case Family::exactLine:
        return line(0);
    case Family::exactHinge:
        return line(1);
    case Family::exactTwoHinges:
        return line(2);
    case Family::constant:
        return std::vector<double>(x.size(), std::pow(10.0, uniform(random, -3.0, 12.0)));
    case Family::offset1e6:
        return shifted(noisy(line(2), 1.0), 1.0, 1e6);
    case Family::offset1e12:
        return shifted(noisy(line(2), 1.0), 1e6, 1e12);
    case Family::heavyTails: {
        std::vector<double> y = line(1);
        for (double& value : y)
            value += std::cauchy_distribution<double>(0.0, 1.0)(random);
        return y;
    }
    }
    return {};
}

Points makeSeries(Random& random, Family family, std::size_t samples, std::size_t candidates, std::size_t k) {
    Points s;
    s.k = k;
    s.x = makeTimes(random, samples);
    s.positions = makePositions(random, samples, candidates);
    for (const double y : makeValues(random, family, s.x, s.positions))
        s.y.push_back(static_cast<float>(y));
    return s;
}

// ---- fast against exhaustive
// ----------------------------------------------------------------------------------------

/// Empty when the fast search holds for this series, else what is wrong.
std::string complaint(const Points& s) {
    Hinges hinges;
    if (!findBest(s, hinges))
        return "declined";
    const Judge judge(s);
    if (!judge.accepts(hinges))
        return "not the first within the band of the least";
    const test::ExhaustiveFit written = test::fitExhaustively(s.x, s.y, s.positions, s.k);
    if (hinges != written.hinges && judge.errorOf(hinges) - judge.errorOf(written.hinges) > 1.01 * judge.band)
        return "neither the exhaustive search's set nor a tie with it";
    const test::ExhaustiveFit fit = test::fitForHinges(s.x, s.y, hinges);
    std::vector<float> ex(s.k + 2), ey(s.k + 2);
    best_piecewise_fit(count(s.x.size()), s.x.data(), s.y.data(), count(s.positions.size()),
                       s.positions.data(), count(s.k), ex.data(), ey.data());
    for (std::size_t e = 0; e < ex.size(); ++e) {
        const float largest = std::max(std::fabs(fit.y.front()), std::fabs(fit.y[e]));
        if (ex[e] != fit.x[e] || std::fabs(ey[e] - fit.y[e]) > 2.5e-7F * largest)
            return "endpoints differ by more than float precision";
    }
    return {};
}

void expectNoException(Family family, std::size_t series, std::uint64_t seed,
                       const std::function<Points(Random&, Family, std::size_t)>& make) {
    Random random(seed);
    std::size_t exceptions = 0;
    for (std::size_t i = 0; i < series; ++i) {
        const std::string wrong = complaint(make(random, family, i));
        exceptions += wrong.empty() ? 0U : 1U;
        if (!wrong.empty() && exceptions <= 3)
            ADD_FAILURE() << "series " << i << ": " << wrong;
    }
    EXPECT_EQ(exceptions, 0U) << "of " << series;
}

class HingeSearchFamily : public testing::TestWithParam<Family> {};

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesOnShortSeries) {
    expectNoException(GetParam(), test::sample(static_cast<std::size_t>(test::often(500, 1900))), 1,
                      [](Random& random, Family family, std::size_t i) {
                          return makeSeries(random, family, between(random, 40, 80), between(random, 4, 8),
                                            1 + i % 2);
                      });
}

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesOnVeryShortSeries) {
    expectNoException(GetParam(), test::sample(100), 2, [](Random& random, Family family, std::size_t i) {
        const std::size_t k = 1 + i % 3;
        const std::size_t samples = between(random, k + 3, 12);
        return makeSeries(random, family, samples, between(random, k, samples - 2), k);
    });
}

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesWithThreeAndFourHinges) {
    expectNoException(GetParam(), test::sample(30), 3, [](Random& random, Family family, std::size_t i) {
        return makeSeries(random, family, between(random, 40, 120), between(random, 5, 9), 3 + i % 2);
    });
}

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesOnLongSeries) {
    expectNoException(GetParam(), test::sample(4), 4, [](Random& random, Family family, std::size_t i) {
        return makeSeries(random, family, i % 2 == 0 ? 2016 : 5000, 12, 1 + i % 2);
    });
}

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesOnTwentyThousandSamples) {
    expectNoException(GetParam(), 1, 5, [](Random& random, Family family, std::size_t) {
        return makeSeries(random, family, 20000, 30, 1);
    });
}

TEST_P(HingeSearchFamily, ChoosesAsTheExhaustiveSearchDoesAmongAHundredPositions) {
    expectNoException(GetParam(), test::sample(3), 6, [](Random& random, Family family, std::size_t i) {
        return i == 0 ? makeSeries(random, family, 120, 100, 2) : makeSeries(random, family, 286, 100, 1);
    });
}

std::string familyName(const testing::TestParamInfo<Family>& info) {
    static const char* const names[] = {
        "RandomWalk",     "NoisyLine", "NoisyHinge",       "NoisyTwoHinges", "ExactLine", "ExactHinge",
        "ExactTwoHinges", "Constant",  "OffsetOfAMillion", "OffsetOf1e12",   "HeavyTails"};
    return names[static_cast<std::size_t>(info.param)];
}

/// A sanitizer sees the accesses and not the values: the first three are enough for it.
constexpr std::array hingeFamilies{Family::noisyTwoHinges, Family::constant,   Family::offset1e12,
                                   Family::randomWalk,     Family::noisyLine,  Family::noisyHinge,
                                   Family::exactLine,      Family::exactHinge, Family::exactTwoHinges,
                                   Family::offset1e6,      Family::heavyTails};

INSTANTIATE_TEST_SUITE_P(Points, HingeSearchFamily,
                         testing::ValuesIn(hingeFamilies.begin(),
                                           hingeFamilies.begin() +
                                               (LUMETRA_UNDER_ASAN ? 3 : hingeFamilies.size())),
                         familyName);

// ---- ties
// -----------------------------------------------------------------------------------------------------------

/// 21 samples a second apart with a valley at 6 and its mirror image at 14: a hinge at 7 and one at 13 fit
/// alike.
Points symmetricSeries() {
    Points s;
    for (int i = 0; i <= 20; ++i) {
        s.x.push_back(static_cast<float>(i));
        s.y.push_back(static_cast<float>(i <= 10 ? std::abs(i - 6) : std::abs(14 - i)));
    }
    s.positions = {7, 13};
    return s;
}

TEST(HingeSearchTies, TheFirstOfTwoMirroredSetsWins) {
    Hinges hinges;
    ASSERT_TRUE(findBest(symmetricSeries(), hinges));
    EXPECT_EQ(hinges, Hinges{7});
}

TEST(HingeSearchTies, AConstantSeriesTakesTheFirstSetAtAnyOffset) {
    for (const float level : {0.0F, 1.0F, -3.3F, 1e-30F, 1e6F + 0.0625F, 1e12F, 3e38F}) {
        Points s;
        for (int i = 0; i < 200; ++i) {
            s.x.push_back(static_cast<float>(i) * 300.0F);
            s.y.push_back(level);
        }
        s.positions = {10, 40, 90, 150};
        s.k = 2;
        Hinges hinges;
        ASSERT_TRUE(findBest(s, hinges));
        EXPECT_EQ(hinges, (Hinges{10, 40})) << level;
    }
}

TEST(HingeSearchTies, AnExactLineTakesTheFirstSet) {
    Points s;
    for (int i = 0; i < 2000; ++i) {
        s.x.push_back(static_cast<float>(i));
        s.y.push_back(static_cast<float>(3 * i - 700));
    }
    s.positions = {5, 400, 401, 1000, 1900, 1998};
    for (std::size_t k = 1; k <= 5; ++k) {
        s.k = k;
        Hinges hinges;
        ASSERT_TRUE(findBest(s, hinges));
        EXPECT_EQ(hinges, Hinges(s.positions.begin(), s.positions.begin() + static_cast<std::ptrdiff_t>(k)));
    }
}

TEST(HingeSearchTies, EverySetThatHoldsTheTrueHingeIsEqualAndTheFirstOfThemWins) {
    Points s;
    for (int i = 0; i <= 100; ++i) {
        s.x.push_back(static_cast<float>(i));
        s.y.push_back(i <= 60 ? 5.0F : static_cast<float>(5 + 2 * (i - 60)));
    }
    s.positions = {10, 20, 30, 60, 80};
    s.k = 2;
    Hinges hinges;
    ASSERT_TRUE(findBest(s, hinges));
    EXPECT_EQ(hinges, (Hinges{10, 60}));
}

TEST(HingeSearchTies, ALeadThatGrowsInStepsBelowTheBandKeepsTheFirstWithinTheBandOfTheLast) {
    // A line with a bend so slight that neighbouring hinges differ by less than the band, but the outer ones
    // by more: whichever set is first within the band of the least is to be found although the lead changed
    // hands many times.
    std::size_t crowded = 0;
    for (int bend = 1; bend <= 40; ++bend) {
        Points s;
        for (int i = 0; i <= 400; ++i) {
            s.x.push_back(static_cast<float>(i));
            s.y.push_back(static_cast<float>(i * 16) +
                          (i > 200 ? std::ldexp(static_cast<float>(i - 200), bend - 24) : 0));
            if (i > 0 && i < 400)
                s.positions.push_back(i);
        }
        Hinges hinges;
        ASSERT_TRUE(findBest(s, hinges));
        const Judge judge(s);
        EXPECT_TRUE(judge.accepts(hinges)) << "bend " << bend << " hinge " << hinges[0];
        const auto least = std::min_element(judge.errors.begin(), judge.errors.end()) - judge.errors.begin();
        crowded += hinges[0] > 1 && hinges != judge.sets[static_cast<std::size_t>(least)] ? 1U : 0U;
    }
    EXPECT_GT(crowded, 0U) << "no series made the lead change hands within the band";
}

TEST(HingeSearchTies, SetsWithinATrillionthOfTheTotalSumOfSquaresAreEqualAndNoOthers) {
    // A line that bends at 200 ever more, and a hinge beside the bend that would be the first of equals.
    double lastTie = 0.0, firstDifference = 1.0;
    for (int bend = 1; bend <= 200; ++bend) {
        Points s;
        for (int i = 0; i <= 400; ++i) {
            s.x.push_back(static_cast<float>(i));
            s.y.push_back(static_cast<float>(i * 16) +
                          (i > 200 ? std::ldexp(static_cast<float>(bend * (i - 200)), -14) : 0.0F));
        }
        s.positions = {199, 200};
        const Judge judge(s);
        const double apart = (judge.errors[0] - judge.errors[1]) / judge.total;
        Hinges hinges;
        ASSERT_TRUE(findBest(s, hinges));
        if (hinges[0] == 199)
            lastTie = std::max(lastTie, apart);
        else
            firstDifference = std::min(firstDifference, apart);
    }
    EXPECT_NEAR(lastTie, 1e-12, 0.05e-12);
    EXPECT_NEAR(firstDifference, 1e-12, 0.05e-12);
}

// ---- what is declined
// -----------------------------------------------------------------------------------------------

Points tenSamples() {
    Points s;
    for (int i = 0; i < 10; ++i) {
        s.x.push_back(static_cast<float>(i));
        s.y.push_back(static_cast<float>(i * i % 7));
    }
    s.positions = {2, 4, 6};
    return s;
}

void expectDeclined(const Points& s, const char* what) {
    Hinges hinges;
    EXPECT_FALSE(findBest(s, hinges)) << what;
    EXPECT_EQ(hinges, Hinges(s.k, std::int32_t{-7})) << what;
}

TEST(HingeSearch, AcceptsTheOrdinarySeriesThatTheRefusalsStartFrom) {
    Hinges hinges;
    EXPECT_TRUE(findBest(tenSamples(), hinges));
}

TEST(HingeSearch, DeclinesValuesAndTimesThatAreNotFinite) {
    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()}) {
        for (std::size_t i = 0; i < 10; ++i) {
            Points s = tenSamples();
            s.y[i] = bad;
            expectDeclined(s, "value");
            s = tenSamples();
            s.x[i] = bad;
            expectDeclined(s, "time");
        }
    }
}

TEST(HingeSearch, DeclinesTimesThatStepBackAndNodesWithEqualTimes) {
    Points s = tenSamples();
    s.x[5] = 2.5F;
    expectDeclined(s, "a time between nodes steps back");
    s = tenSamples();
    s.x[3] = s.x[4] = s.x[2];
    expectDeclined(s, "two positions with one time");
    s = tenSamples();
    s.x[1] = s.x[2] = s.x[0];
    expectDeclined(s, "the first position and the first sample");
    s = tenSamples();
    s.x[7] = s.x[8] = s.x[9] = s.x[6];
    expectDeclined(s, "the last position and the last sample");
}

TEST(HingeSearch, AcceptsEqualTimesBetweenTheNodes) {
    Points s = tenSamples();
    s.x[3] = s.x[2];
    EXPECT_EQ(complaint(s), "");
}

TEST(HingeSearch, DeclinesPositionsOutOfPlace) {
    for (const Hinges& positions : {Hinges{0, 4, 6}, Hinges{2, 4, 9}, Hinges{2, 6, 4}, Hinges{2, 2, 4},
                                    Hinges{-1, 4, 6}, Hinges{2, 4, 10}, Hinges{}}) {
        Points s = tenSamples();
        s.positions = positions;
        expectDeclined(s, "positions");
    }
}

TEST(HingeSearch, DeclinesCountsThatLeaveNothingToSearch) {
    Points s = tenSamples();
    s.k = 0;
    expectDeclined(s, "no hinge");
    s.k = 4;
    expectDeclined(s, "more hinges than positions");
    s = tenSamples();
    s.x.resize(4);
    s.y.resize(4);
    s.positions = {1, 2};
    s.k = 2;
    expectDeclined(s, "as many unknowns as samples");
}

TEST(HingeSearch, LargestAndSmallestFloatsNeitherOverflowNorVanish) {
    for (const float scale : {3e36F, 1e-38F}) {
        Points s;
        for (int i = 0; i < 60; ++i) {
            s.x.push_back(static_cast<float>(i) * scale);
            s.y.push_back(static_cast<float>(std::max(0, i - 30)) * scale);
        }
        s.positions = {10, 20, 30, 40};
        Hinges hinges;
        ASSERT_TRUE(findBest(s, hinges));
        EXPECT_EQ(hinges, Hinges{30}) << scale;
    }
}

TEST(HingeSearch, ManyHingesNeedNoDeepStack) {
    Points s;
    Random random(9);
    for (int i = 0; i < 6000; ++i) {
        s.x.push_back(static_cast<float>(i));
        s.y.push_back(static_cast<float>(normal(random)));
        if (i > 0 && i < 5000)
            s.positions.push_back(i);
    }
    s.k = s.positions.size() - 1;
    Hinges hinges;
    ASSERT_TRUE(findBest(s, hinges));
    EXPECT_TRUE(std::is_sorted(hinges.begin(), hinges.end()));
}

} // namespace
} // namespace obrin
