#pragma once

#include "diagnosis/LX_DAQ_Subs.h"
#include "resources/resourceRecords.h"

#include <cstdint>
#include <span>
#include <vector>

namespace obrin {

/// A buffered value that stands for none.
inline constexpr double noSample = -1.0;

/// One valid sample of the resource in hand.
struct SampleRecord {
    double time;  ///< seconds since the epoch
    double value; ///< per cent
};

/// The alert window in seconds, set anew each cycle from the forecast hours.
extern double InnerTolerance;
extern double OuterTolerance;

/// Puts the samples of the link's ring that are valid (any but exactly -1.0) into `samples`, oldest first.
void gatherSamples(const Link& link, std::vector<SampleRecord>* samples);

/// The samples as a forecast takes them: seconds since the first and values, both rounded to float.
struct Series {
    std::vector<float> times;
    std::vector<float> values;
};
void makeSeries(std::span<const SampleRecord> samples, Series* series);

/// The same of the samples that gatherSamples() would gather.
void makeSeries(const Link& link, Series* series);

/// The resource in hand: its valid samples, oldest first, replaced for each resource.
extern std::vector<SampleRecord>& FirstPoint;
extern std::int32_t NumOfSamples;            ///< samples in its ring
extern std::int32_t NumberOfValidDataPoints; ///< those of them that are valid
extern std::int32_t NumOfSlopes;             ///< pairs of samples; nothing uses it
extern std::int32_t Index1;                  ///< ring slot gathered last

/// Analyses every resource of the chain. 1; -1 when a resource's analysis failed (logged). Once per cycle,
/// after the samples are taken, by the agent thread.
std::int32_t predictor(Clasp* clasp);

/// The walk over the chain: every link but templates and those with AnalyticalMethod 0 is diagnosed and
/// forecast. 1 or -1.
std::int32_t TestforImpendingOutage(Clasp* clasp);

/// Gathers the valid samples of the link's ring, oldest first (a value of exactly -1.0 is none), and
/// forecasts them. Always 1; a link without samples is passed over.
std::int32_t bestmodelObrin(Link* link, CulpritText* culpritText);

/// Forecasts n records: times relative to the first, both rounded to float. Always 0.
std::int32_t bestmodel(Link* link, std::int32_t n, const SampleRecord* samples, float upper, float lower,
                       float outer, float inner, CulpritText* culpritText);

/// Log the chain, one line a link. Always 1.
std::int32_t PDisplayChain(Clasp* clasp);
std::int32_t PPrintLink(const Link* link);

} // namespace obrin
