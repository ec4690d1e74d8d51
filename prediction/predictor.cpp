#include "prediction/predictor.h"

#include "acquisition/circularBuffers.h"
#include "agent/debugLog.h"
#include "prediction/exhaustion.h"
#include "support/clock.h"
#include "support/immortal.h"
#include "support/textScanner.h"

#include <vector>

namespace obrin {

double InnerTolerance = 0.0;
double OuterTolerance = 0.0;
std::int32_t NumOfSamples = 0;
std::int32_t NumberOfValidDataPoints = 0;
std::int32_t NumOfSlopes = 0;
std::int32_t Index1 = 0;

namespace {

Immortal<std::vector<SampleRecord>> gathered;

} // namespace

std::vector<SampleRecord>& FirstPoint = *gathered;

namespace {

/// Gathers the resource in hand.
void gatherFirstPoint(const Link& link) {
    gatherSamples(link, &FirstPoint);
    const std::uint32_t held = samplesHeld(link);
    Index1 = held == 0 ? Index1 : clampToInt32(slotOfSample(link, held - 1));
    NumOfSamples = clampToInt32(link.SampleCount);
    NumOfSlopes = clampToInt32(std::int64_t{NumOfSamples} * (NumOfSamples - 1) / 2);
    NumberOfValidDataPoints = clampToInt32(static_cast<std::int64_t>(FirstPoint.size()));
}

/// Rounds times, less the first, and values to float. Whether all of them are valid samples. Without a branch
/// in it, so that the compiler makes vector instructions of it.
bool convert(std::span<const double> times, std::span<const double> values, double first, float* x,
             float* y) {
    bool isValid = true;
    for (std::size_t i = 0; i < times.size(); ++i) {
        x[i] = static_cast<float>(times[i] - first);
        y[i] = static_cast<float>(values[i]);
        isValid &= values[i] != noSample;
    }
    return isValid;
}

bool isAnalysed(const Link& link) {
    return link.AnalyticalMethod != 0 && !(link.Descriptor3 == "-1");
}

} // namespace

void gatherSamples(const Link& link, std::vector<SampleRecord>* samples) {
    samples->clear();
    for (std::uint32_t i = 0; i < samplesHeld(link); ++i) {
        const std::uint32_t slot = slotOfSample(link, i);
        if (link.ValueBuffer[slot] != noSample)
            samples->push_back({link.TimeBuffer[slot], link.ValueBuffer[slot]});
    }
}

void makeSeries(std::span<const SampleRecord> samples, Series* series) {
    series->times.clear();
    series->values.clear();
    series->times.reserve(samples.size());
    series->values.reserve(samples.size());
    for (const SampleRecord& sample : samples) {
        series->times.push_back(static_cast<float>(sample.time - samples.front().time));
        series->values.push_back(static_cast<float>(sample.value));
    }
}

void makeSeries(const Link& link, Series* series) {
    const std::uint32_t held = samplesHeld(link);
    series->times.resize(held);
    series->values.resize(held);
    if (held == 0)
        return;
    const std::uint32_t oldest = slotOfSample(link, 0);
    const double first = link.TimeBuffer[oldest];
    bool isWhole =
        convert({&link.TimeBuffer[oldest], held - oldest}, {&link.ValueBuffer[oldest], held - oldest}, first,
                series->times.data(), series->values.data());
    isWhole &= convert({&link.TimeBuffer[0], oldest}, {&link.ValueBuffer[0], oldest}, first,
                       series->times.data() + (held - oldest), series->values.data() + (held - oldest));
    if (isWhole)
        return;
    std::vector<SampleRecord> samples;
    gatherSamples(link, &samples);
    makeSeries(samples, series);
}

std::int32_t predictor(Clasp* clasp) {
    OuterTolerance = clasp->MaxForecastHours * secondsPerHour;
    InnerTolerance = clasp->MinForecastHours * secondsPerHour;
    DEBUGMSG("Alert if exhaustion between %d and %d hours (%.2f and %.2f days):\n", clasp->MinForecastHours,
             clasp->MaxForecastHours, clasp->MinForecastHours / 24.0, clasp->MaxForecastHours / 24.0);
    const std::int32_t tested = TestforImpendingOutage(clasp);
    if (tested == 1)
        return 1;
    DEBUGMSG("TestforImpendingOutage call failed. Error Code %d\n", tested);
    return -1;
}

std::int32_t TestforImpendingOutage(Clasp* clasp) {
    char text[culpritTextSize] = "";
    CulpritText culprits{text}; // one for the whole cycle: entries of several resources gather in it
    const SharedCensus census;
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        if (!isAnalysed(*link))
            continue;
        DEBUGMSG("\n%s %s %s: ", link->Descriptor0.c_str(), link->Descriptor1.c_str(),
                 link->Descriptor2.c_str());
        DEBUGMSG("%d/%d points ", static_cast<int>(link->SampleCount), static_cast<int>(link->BufferSize));
        DEBUGMSG("Last Sample = %.2f\n", link->DataArray[0]);
        diagnose(link, &culprits);
        if (bestmodelObrin(link, &culprits) != 1) {
            DEBUGMSG("bestmodelObrin call failed.\n");
            return -1;
        }
    }
    return 1;
}

std::int32_t bestmodelObrin(Link* link, CulpritText* culpritText) {
    gatherFirstPoint(*link);
    link->findings.usableSamples = NumberOfValidDataPoints;
    const ToleranceLimits limits = limitsOfMethod(link->AnalyticalMethod);
    if (NumberOfValidDataPoints > 0)
        bestmodel(link, NumberOfValidDataPoints, FirstPoint.data(), limits.upper, limits.lower,
                  static_cast<float>(OuterTolerance), static_cast<float>(InnerTolerance), culpritText);
    return 1;
}

std::int32_t bestmodel(Link* link, std::int32_t n, const SampleRecord* samples, float upper, float lower,
                       float outer, float inner, CulpritText* culpritText) {
    static Immortal<Series> series; // the room for it stays
    makeSeries({samples, static_cast<std::size_t>(n)}, &*series);
    const PredictionParameters parameters;
    std::int32_t predictionValid = 0;
    predict_exhaustion(link, n, series->times.data(), series->values.data(), lower, upper, inner, outer,
                       &parameters, &predictionValid, culpritText);
    return 0;
}

std::int32_t PDisplayChain(Clasp* clasp) {
    DEBUGMSG("Chain: \n");
    for (const Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink)
        PPrintLink(link);
    return 1;
}

std::int32_t PPrintLink(const Link* link) {
    for (const char* text : {link->Descriptor0.c_str(), link->Descriptor1.c_str(), link->Descriptor2.c_str()})
        DEBUGMSG("%s ", text);
    DEBUGMSG("%s ", link->NameIs.c_str());
    DEBUGMSG("%d ", link->RID);
    DEBUGMSG("%.2f\n", link->DataArray[0]);
    return 1;
}

} // namespace obrin
