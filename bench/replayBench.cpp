#include "bench/replayBench.h"

#include "bench/stopwatch.h"
#include "replay/replay.h"
#include "resources/scratchPadRecord.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <unistd.h>

namespace obrin::bench {
namespace {

constexpr std::int32_t resources = 20;
constexpr int cycles = 1500;
constexpr std::int32_t window = 288; // samples: 4.8 hours, one a minute

/// A daily wave with noise, as a disk has it.
double value(std::int32_t resource, int cycle, double noise) {
    return 45.0 + 30.0 * std::sin(cycle * 0.0044 + resource) + noise;
}

/// A file that goes when its owner goes.
class ArchiveFile {
public:
    ArchiveFile() {
        const int file = ::mkstemp(path_);
        std::mt19937 random(7);
        std::normal_distribution<double> noise(0.0, 0.3);
        std::string text;
        char triple[64];
        for (int cycle = 0; cycle < cycles; ++cycle) {
            text += std::to_string(1'700'000'000 + 60 * cycle) + " ";
            for (std::int32_t i = 1; i <= resources; ++i) {
                std::snprintf(triple, sizeof triple, "%d 0 %.2f ", i, value(i, cycle, noise(random)));
                text += triple;
            }
            text += "\n";
        }
        isWritten_ = file >= 0 && writeAll(file, text.data(), text.size());
        ::close(file);
    }
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;
    ~ArchiveFile() { ::unlink(path_); }

    std::string path() const { return isWritten_ ? path_ : ""; }

private:
    char path_[32] = "/tmp/lumetra-bench-XXXXXX";
    bool isWritten_ = false;
};

class Nobody : public ReplaySink {
    void happened(std::int64_t, std::int32_t, Happening, std::int64_t) override {}
    void episodeEnded(std::int32_t, std::int32_t, const Episode&) override {}
    void damaged(const std::string&, std::int64_t, std::string_view) override {}
    void sampled(std::int32_t, std::int64_t, double, std::int64_t) override {}
};

ReplayRequest makeRequest(const std::string& path) {
    ReplayRequest request;
    request.archives = {path};
    request.settings = {60'000, 0, 48, 1};
    request.declarations =
        "BeginResourceDeclaration BeginResourceInput FindObject (LogicalDisk) FindInstance (*) "
        "FindCounter (PercentFreeSpaceUsed) WindowSize -1. NameIs (Space) AnalyticalMethod 1 UpperLimitAbs 0 "
        "UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 CulpritMarker (none) EndResourceInput "
        "EndResourceDeclaration ";
    for (std::int32_t i = 1; i <= resources; ++i) {
        Link link;
        link.ResourceType = 2;
        link.RID = i;
        link.Descriptor0 = "LogicalDisk";
        link.Descriptor1.assign("/dev/" + std::to_string(i) + " /" + std::to_string(i));
        link.Descriptor2 = "PercentFreeSpaceUsed";
        link.Descriptor3 = "-2";
        request.scratchPad += scratchPadRecordText(link);
    }
    return request;
}

/// Nanoseconds for one bare forecast of a full window: smoothing, models, choice, 200 points.
double bareForecast() {
    std::mt19937 random(7);
    std::normal_distribution<double> noise(0.0, 0.3);
    std::vector<std::vector<float>> series(resources);
    for (int cycle = 0; cycle < cycles; ++cycle)
        for (std::int32_t i = 0; i < resources; ++i)
            series[static_cast<std::size_t>(i)].push_back(
                static_cast<float>(value(i + 1, cycle, noise(random))));
    std::vector<float> times;
    for (std::int32_t i = 0; i < window; ++i)
        times.push_back(static_cast<float>(60 * i));
    std::vector<float> grid(forecastPoints);
    std::vector<float> forecast(forecastPoints);
    forecastGrid(0.0F, 0.0F, 48 * 3600.0F, grid);
    const PredictionParameters parameters;
    std::string model;
    std::size_t forecasts = 0;
    return nanosecondsPerCall([&] { // of all in turn, window after window: the cost depends on the curve
        const std::vector<float>& one = series[forecasts % series.size()];
        const std::size_t from = forecasts++ / series.size() % (one.size() - window);
        benchmark::DoNotOptimize(select_model_and_predict(window, times.data(), &one[from], forecastPoints,
                                                          grid.data(), forecast.data(), &parameters, &model));
    });
}

} // namespace

ReplayCost replayCost() {
    const ArchiveFile archive;
    Nobody nobody;
    std::int64_t forecasts = 1;
    const double all = nanosecondsPerCall([&] {
        Replay replay(makeRequest(archive.path()));
        while (!replay.progress().isOver)
            replay.run(100'000, nobody);
        forecasts = std::max<std::int64_t>(replay.progress().forecasts, 1);
    });
    return {all / static_cast<double>(forecasts), bareForecast()};
}

} // namespace obrin::bench
