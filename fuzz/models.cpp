// The choice of a model and its forecast, on any series and with any parameters.

#include "fuzz/target.h"
#include "prediction/modelSelection.h"

#include <array>
#include <cmath>

namespace obrin::fuzz::models {
namespace {

using Floats = std::vector<float>;

constexpr float untouched = -12345.0F;
constexpr std::array<const char*, 3> methods{"penalty", "mallows", "neither"};

PredictionParameters readParameters(Input& bytes) {
    PredictionParameters parameters;
    if (bytes.take<std::uint8_t>() % 2 == 0)
        return parameters;
    parameters.medianWindow = bytes.within(-1, 12);
    parameters.medianStride = bytes.within(-1, 12);
    parameters.hingeCandidates = bytes.within(-1, 12);
    parameters.tailExclusion = bytes.take<std::int32_t>();
    parameters.weightDecay = bytes.take<float>();
    parameters.selectionMethod = methods[bytes.take<std::uint8_t>() % methods.size()];
    return parameters;
}

/// A byte a sample makes long series of short inputs; a few of the values are any floats.
void readSeries(Input& bytes, Floats* x, Floats* y) {
    const auto step = static_cast<float>(bytes.within(0, 600));
    std::array<float, 4> odd{};
    for (float& value : odd)
        value = bytes.take<float>();
    const bool timesAreOdd = bytes.take<std::uint8_t>() == 1;
    float time = 0;
    for (const std::uint8_t sample : bytes.series<std::uint8_t>(900)) {
        const bool isOdd = sample >= 252;
        time += step;
        x->push_back(isOdd && timesAreOdd ? odd[sample - 252] : time);
        y->push_back(isOdd && !timesAreOdd ? odd[sample - 252] : static_cast<float>(sample) / 2.5F);
    }
}

bool isModel(const std::string& name) {
    constexpr std::array<const char*, 6> all{model0, model1, model2, model3, model4, model5};
    return std::ranges::find(all, name) != all.end();
}

void check(std::string_view input) {
    Input bytes(input);
    const PredictionParameters parameters = readParameters(bytes);
    Floats x, y;
    readSeries(bytes, &x, &y);
    const float last = x.empty() ? 0 : x.back();
    const Floats times{0, last / 2, last, last * 1.5F, last * 10};
    Floats forecast(times.size(), untouched);
    std::string name = "unset";
    const std::int32_t result = select_model_and_predict(static_cast<Count>(x.size()), x.data(), y.data(),
                                                         static_cast<Count>(times.size()), times.data(),
                                                         forecast.data(), &parameters, &name);
    const bool isUntouched = std::ranges::all_of(forecast, [](float value) { return value == untouched; });
    if (result == 0) {
        require(name == no_model && isUntouched, "without a model there is no forecast");
        return;
    }
    require(result == 1, "a result is 0 or 1");
    if (parameters.selectionMethod == methods[2]) {
        require(name == "unset" && isUntouched, "without a rule no model is chosen");
        return;
    }
    require(isModel(name) && !isUntouched, "a model is chosen and evaluated");
}

const Target target("models", check);

} // namespace
} // namespace obrin::fuzz::models
