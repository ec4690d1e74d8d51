// Prints, as tables in Markdown, how much faster the toolkit is than its textbook forms, both measured in
// this run, and how much longer work takes that is four times as large.

#include "bench/ratios.h"
#include "bench/replayBench.h"

#include <cstdio>
#include <string>

namespace obrin::bench {
std::vector<Ratio> fitRatios();
std::vector<Ratio> selectionRatios();
std::vector<Ratio> medianRatios();
std::vector<Growth> growths();
long allocationsInASecondCall();
} // namespace obrin::bench

int main() {
    using namespace obrin::bench;
    std::printf("| What | Fast, µs | Textbook, µs | Ratio | Wanted |\n|---|---:|---:|---:|---:|\n");
    int missed = 0;
    for (const auto& rows : {fitRatios(), selectionRatios(), medianRatios()})
        for (const Ratio& row : rows) {
            const double ratio = row.slow_ns / row.fast_ns;
            missed += ratio < row.required ? 1 : 0;
            std::printf("| %s | %.2f | %.2f | %.1f | %.0f |\n", row.what, row.fast_ns / 1000,
                        row.slow_ns / 1000, ratio, row.required);
        }
    const long allocations = allocationsInASecondCall();
    std::printf("| allocations in a second call with the same sizes | %ld | | | 0 |\n", allocations);
    constexpr double linear = 4.0;
    constexpr double quadratic = 16.0;
    std::printf("\n| What | n | n, ms | 4 n, ms | Ratio | At most |\n|---|---:|---:|---:|---:|---:|\n");
    for (const Growth& row : growths()) {
        const double ratio = row.four_times_ns / row.once_ns;
        const double most = (linear + quadratic) / 2;
        missed += ratio > most ? 1 : 0;
        std::printf("| %s | %d | %.2f | %.2f | %.1f | %.0f |\n", row.what, row.size, row.once_ns / 1e6,
                    row.four_times_ns / 1e6, ratio, most);
    }
    const ReplayCost replay = replayCost();
    constexpr double mostOverhead = 1.3;
    missed += replay.replayed / replay.bare > mostOverhead ? 1 : 0;
    std::printf("\n| A forecast of 288 samples | Replayed, µs | Bare, µs | Ratio | At most "
                "|\n|---|---:|---:|---:|---:|\n");
    std::printf("| 20 resources, one sample a minute | %.2f | %.2f | %.2f | %.1f |\n", replay.replayed / 1000,
                replay.bare / 1000, replay.replayed / replay.bare, mostOverhead);
    constexpr double aYear = 20 * 365.0 * 24 * 60;
    std::printf("\nA year of them: %.1f million forecasts in %.0f s of processor time.\n", aYear / 1e6,
                aYear * replay.replayed / 1e9);
    std::printf("\n%s\n",
                missed == 0 && allocations == 0 ? "Every row is reached." : "Some rows are not reached.");
    return 0;
}
