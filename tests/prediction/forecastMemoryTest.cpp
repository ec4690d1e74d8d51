// Where forecasts take their memory, and what becomes of them where it is refused.

#include "acquisition/circularBuffers.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "prediction/modelSelection.h"
#include "prediction/predictor.h"
#include "tests/support/countedAllocations.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace obrin {
namespace {

#if LUMETRA_COUNTS_ALLOCATIONS

constexpr long forGood = std::numeric_limits<long>::max();

/// The allocations of this thread while it lives, from `first` to `last` of which are refused.
class Refusing {
public:
    Refusing(long first, long last) {
        allocations = 0;
        firstRefused = first;
        lastRefused = last;
    }
    Refusing(const Refusing&) = delete;
    Refusing& operator=(const Refusing&) = delete;
    ~Refusing() { lastRefused = -1; }
};

struct Curve {
    std::vector<float> x;
    std::vector<float> y;
};

Curve curve(Count n) {
    Curve samples;
    for (Count i = 0; i < n; ++i) {
        const float time = 60.0F * static_cast<float>(i);
        samples.x.push_back(time);
        samples.y.push_back(10.0F + std::sin(time / 5000.0F) + time / 1e4F);
    }
    return samples;
}

/// The same with what sends a fit down each of its roads.
std::vector<Curve> curvesOfEveryKind(Count n) {
    std::vector<Curve> kinds(6, curve(n));
    const auto middle = static_cast<std::size_t>(n / 2);
    kinds[1].y[middle] = std::numeric_limits<float>::infinity();
    kinds[2].y[middle] = std::numeric_limits<float>::quiet_NaN();
    kinds[3].y[middle] = -0.0F;
    std::fill(kinds[4].y.begin(), kinds[4].y.end(), 7.0F);
    std::fill(kinds[5].x.begin(), kinds[5].x.end(), 0.0F); // a clock that stands
    return kinds;
}

/// How often a forecast of the first n samples takes memory.
long allocationsOf(const Curve& samples, Count n, std::string& name) {
    const PredictionParameters parameters;
    std::array<float, 200> times{};
    std::array<float, 200> out{};
    const long before = allocations;
    select_model_and_predict(n, samples.x.data(), samples.y.data(), 200, times.data(), out.data(),
                             &parameters, &name);
    return allocations - before;
}

/// A thread has working arrays of its own, so that what it does first is a first time.
void onAThreadOfItsOwn(const std::function<void()>& what) {
    std::thread(what).join();
}

TEST(ForecastMemory, SecondCallOfTheSameOrASmallerSizeTakesNone) {
    for (const Count n : {300, 1440, 10080})
        onAThreadOfItsOwn([n] {
            const Curve samples = curve(n);
            std::string name;
            EXPECT_GT(allocationsOf(samples, n, name), 0) << "the counter does not count";
            EXPECT_EQ(allocationsOf(samples, n, name), 0) << n;
            EXPECT_EQ(allocationsOf(samples, n - 50, name), 0) << n;
            EXPECT_EQ(allocationsOf(samples, n, name), 0) << n;
            const Curve infinite = curvesOfEveryKind(n)[1];
            allocationsOf(infinite, n, name);
            EXPECT_EQ(allocationsOf(infinite, n, name), 0) << n;
        });
}

TEST(ForecastMemory, OnceTakenItServesEveryForecastOfUpToSoManySamples) {
    const test::CapturedLog log;
    DEBUGMSG("the log is open\n");
    for (const Count n : {5, 199, 200, 203, 300, 1440, 10080})
        onAThreadOfItsOwn([n] {
            std::string name;
            name.reserve(100);
            const std::vector<Curve> all = curvesOfEveryKind(n);
            ASSERT_TRUE(reserveForecastMemory(n));
            for (std::size_t kind = 0; kind < all.size(); ++kind) {
                const Refusing everything(1, forGood);
                const long taken = allocationsOf(all[kind], n, name) + allocationsOf(all[kind], n / 2, name);
                lastRefused = -1;
                EXPECT_EQ(taken, 0) << n << " samples of kind " << kind;
            }
        });
}

TEST(ForecastMemory, OfMoreSamplesThanAForecastCanTakeIsRefusedAndLeavesWhatThereIs) {
    onAThreadOfItsOwn([] {
        ASSERT_TRUE(reserveForecastMemory(300));
        EXPECT_FALSE(reserveForecastMemory(std::numeric_limits<std::uint32_t>::max()));
        EXPECT_FALSE(reserveForecastMemory(std::numeric_limits<std::int32_t>::max() / 6));
        const Curve samples = curve(300);
        std::string name;
        name.reserve(100);
        EXPECT_EQ(allocationsOf(samples, 300, name), 0);
    });
}

/// A chain of one link with a window of so many samples.
struct Chain {
    explicit Chain(int samples) {
        clasp.MillisecondsPerSample = 1000;
        link.WindowSize = samples / 3600.0;
        clasp.DataHomeDirectory = home.path() + "/";
        link.pClasp = &clasp;
        clasp.pFirstLink = clasp.pLastLink = &link;
    }

    void fill() {
        MutexLock lock(chainLock);
        for (std::uint32_t i = 0; i < link.BufferSize; ++i)
            pushSample(link, 1e9 + i, 10.0 + std::sin(i / 80.0));
    }

    test::TemporaryDirectory home;
    Clasp clasp;
    Link link;
};

TEST(ForecastMemory, ThatIsRefusedWhenTheRingIsSizedIsARingThatIsRefused) {
    test::CapturedLog log;
    long refusals = 0;
    for (bool isRefused = true; isRefused; refusals += isRefused ? 1 : 0)
        onAThreadOfItsOwn([&] {
            Chain chain(360);
            int result = 0;
            {
                const Refusing one(refusals + 1, refusals + 1);
                result = allocatecircularbuffers(&chain.clasp);
                isRefused = allocations > refusals;
            }
            EXPECT_EQ(result, isRefused ? -1 : 1) << refusals;
            EXPECT_EQ(chain.link.BufferSize, isRefused ? 0U : 360U) << refusals;
            chain.fill();
            EXPECT_EQ(chain.link.SampleCount, isRefused ? 0U : 360U) << refusals;
        });
    EXPECT_GT(refusals, 20) << "the arrays of a forecast and the two of the ring";
    std::string expected;
    for (long i = 0; i < refusals; ++i)
        expected += "Fatal error in malloc circular buffer\n";
    EXPECT_EQ(log.text(), expected);
}

TEST(ForecastMemory, RefusedToAForecastOfASizedRingCostsTheStepAndNeverTheProcess) {
    test::CapturedLog log;
    const auto forecast = [](Chain& chain) { return bestmodelObrin(&chain.link, nullptr); };
    onAThreadOfItsOwn([&] {
        Chain first(360); // its forecast makes what all threads share
        ASSERT_EQ(allocatecircularbuffers(&first.clasp), 1);
        first.fill();
        EXPECT_EQ(forecast(first), 1);
    });
    onAThreadOfItsOwn([&] {
        Chain chain(360);
        ASSERT_EQ(allocatecircularbuffers(&chain.clasp), 1);
        chain.fill();
        {
            const Refusing everything(1, forGood);
            EXPECT_THROW(forecast(chain), std::bad_alloc);
        }
        EXPECT_EQ(forecast(chain), 1);
    });
}

#else
TEST(ForecastMemory, IsRefusedToNobodyHere) {
    GTEST_SKIP() << "a sanitizer owns the allocation functions";
}
#endif

} // namespace
} // namespace obrin
