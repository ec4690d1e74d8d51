#pragma once

#include "support/clockSteps.h"
#include "support/fixedText.h"
#include "support/zeroedArray.h"

#include <cstdint>
#include <string>
#include <unordered_map>

namespace obrin {

struct Clasp;

/// A limit of -1.0 means "none on this side".
inline constexpr double noLimit = -1.0;

/// What the newest readings and forecasts of a link were, for those who look on: nothing in the run goes by
/// it. A copy of a link begins without.
struct LinkFindings {
    bool valueRead = false;          ///< by the newest reading
    bool capacityRead = false;       ///< UpperLimitCalc, by the newest reading
    std::int32_t usableSamples = 0;  ///< samples of the ring that the newest analysis could use
    std::int64_t forecastTime = 0;   ///< TimeStamp of the newest forecast; 0 for none yet
    double hoursToExhaustion = -1.0; ///< as that forecast's headline has it; not above 0: none in sight
    FixedText<40> model;             ///< of that forecast
    float notificationLevel = 0.0F;  ///< NotifyLevel after that forecast
    bool eventDue = false;           ///< with that forecast
    double forecastOrigin = 0.0;     ///< what its times count from, seconds since the epoch
    ZeroedNumbers<float> forecast;   ///< its values on the grid; empty without one or for want of memory
};

/// One monitored counter instance, or the template that stands for all instances of a declaration. Owned by
/// the chain.
struct Link {
    /// 1: a single resource; 2: a process or disk declaration, its template or one of its instances.
    std::int32_t ResourceType = 0;
    FixedText<128> Descriptor0; ///< object name ("FindObject")
    FixedText<512> Descriptor1; ///< instance name; of a disk: device, one blank, mount point
    FixedText<128> Descriptor2; ///< counter name ("FindCounter")
    /// Instance identifier as decimal text: "-1" a template, "-2" a single resource or a disk, else a process
    /// identifier.
    FixedText<128> Descriptor3;
    FixedText<768> NameIs;            ///< display name
    std::int32_t SampleStatus = 0;    ///< written to the archive beside each sample; no room sets it
    double DataArray[2] = {};         ///< [0]: newest value, per cent
    std::int32_t sampleWords[2] = {}; ///< reserved words of the sample record; copied with the link
    std::int32_t RID = 0;             ///< identifier that stays the same across runs; positive
    double WindowSize = 0.0;          ///< hours; negative asks for automatic sizing
    std::int32_t AnalyticalMethod = 0;
    double predictionWords[4] = {}; ///< reserved for sampling and prediction; copied with the link
    double UpperLimitAbs = 0.0;     ///< configured capacity; above 0 it replaces the measured one
    double UpperLimitCalc = 0.0;    ///< capacity measured at the last reading
    double LowerLimitAbs = 0.0;
    double LowerLimitCalc = 0.0;
    std::int32_t NotifyPending = 0;   ///< 1 while a notification is intended; a copy starts idle
    float NotifyLevel = 0.0F;         ///< value that the newest sample must reach before the event
    std::int32_t HysteresisCount = 0; ///< cycles without a positive forecast before the intent is dropped
    FixedText<128> CulpritMarker;
    /// Its number is one that the scratch pad had, and its ring has not been filled from the archive yet.
    bool awaitsHistory = false;
    std::uint32_t resumedSamples = 0; ///< that its ring took over from the archive; a copy begins without
    LinkFindings findings;

    // The ring of (time, value) samples; see acquisition/circularBuffers.h for its order.
    // Changed under chainLock.
    std::uint32_t NextSlot = 0;
    std::uint32_t SampleCount = 0;
    std::uint32_t BufferSize = 0; ///< slots in each buffer; 0 only when the buffers could not be had
    ZeroedArray ValueBuffer;      ///< BufferSize values
    ZeroedArray TimeBuffer;       ///< BufferSize times, seconds since the epoch

    Link* pPrevLink = nullptr; ///< toward the lowest RID
    Link* pNextLink = nullptr; ///< toward the highest RID
    Clasp* pClasp = nullptr;   ///< the chain's record
};

/// A template stands for the instances of its declaration and is never sampled itself.
inline bool isTemplate(const Link& link) {
    return link.ResourceType == 2 && link.Descriptor3 == "-1";
}

/// The one control record of a run: the ends of the chain, the file names, the run's parameters.
struct Clasp {
    Link* pFirstLink = nullptr;    ///< lowest RID; null for an empty chain
    Link* pLastLink = nullptr;     ///< highest RID
    Link* lastInserted = nullptr;  ///< where the search for a link's place begins; null: at the first
    std::string SolidStateMemory;  ///< reserved
    std::string DataHomeDirectory; ///< data home directory; a plain prefix, so it ends in "/"
    std::string HardDriveArchive;  ///< path of the archive file
    std::string ScratchPad;        ///< path of the scratch pad
    std::string AnalysisLog;       ///< name of the analysis log
    std::string ResourceText;      ///< path of the declaration file
    std::string IniFile;           ///< path of the configuration file
    std::int32_t reservedWords[3] = {};
    std::int32_t MaximumRIDValue = 0;       ///< highest RID handed out so far
    std::int32_t MillisecondsPerSample = 0; ///< sample period; -1 asks for an automatic choice
    std::int32_t MinForecastHours = 0;
    std::int32_t MaxForecastHours = 0;

    ClockSteps clockSteps; ///< one look a cycle

    /// Whether the rings of this run take over what the archive has of earlier ones; not unless the host
    /// asks.
    bool resumes = false;

    /// Set when the declaration file was read whole; only then may it be rewritten.
    bool declarationsComplete = false;
    /// What was not taken up of the declaration file, for a person; null for nothing.
    const char* declarationLoss = nullptr;
    /// Every link of the chain by its identity (see linkIdentity), so that a search does not walk thousands
    /// of links.
    std::unordered_multimap<std::string, Link*> linksByIdentity;
};

} // namespace obrin
