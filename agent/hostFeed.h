#pragma once

#include "resources/resourceRecords.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace obrin {

// What the host is told of the agent: its state after each cycle, whole, as bytes that are ready to be handed
// over. The agent thread publishes; readers on any thread take the newest publication and hold up nobody.
//
// The bytes, numbers little-endian, a text as its length (i32) and its bytes, a list as its length (i32) and
// its elements, a flag as one byte:
//
//   publication  i32 hostFeedVersion, i64 serial, i32 kind (PublicationKind), i64 cycles that the run has
//                completed (0: started, nothing is sampled yet), then, of a run that is on: i64 TimeStamp,
//                i64 seconds by which the clock has stepped during the run, all steps together, f64 seconds
//                of sampling, of the forecasts, of writing, and of all cycles of the run together, i64 bytes
//                of the archive (-1: unknown), i64 samples that the present resources took over from it, i32
//                resources that took over any, configuration, flag the newest attempt to list the disks gave
//                nothing, list of left out, list of resources, list of episodes that have ended, the newest
//                64
//   configuration  texts: data home directory, archive, scratch pad, declarations, configuration file;
//                i32 milliseconds between two samples, MinForecastHours, MaxForecastHours, megabytes of the
//                archive, samples that a forecast needs
//   left out     text what, text why, i32 kind (LeftOutKind of acquisition/diskSelection.h), text rule: of
//                the kinds type and pattern as it is written, of nature the type; else empty
//   resource     i32 RID, texts: object, instance, counter, display name; i32 place of the mount point in the
//                instance (-1: no disk), f64 value (per cent), flag it was read in this cycle,
//                f64 measured capacity, flag it was read in this cycle, f64 configured capacity (0: none),
//                i32 analytical method, f64 lower and upper limit (per cent, -1: none),
//                i32 limit that the value has reached (0 none, 1 lower, 2 upper), f64 hours of the window,
//                i32 slots of the ring, i32 usable samples in it,
//                i64 time of the newest forecast (0: none), text its model, f64 hours to exhaustion (not
//                above 0: none in sight), flag notification pending, f64 notification level, i32 cycles left
//                before it is dropped, i64 onset of the episode that is on (0: none), i32 why it is watched
//                (WatchReason)
//   ended        i64 number (1 for the first of the process), i32 RID, texts display name and instance,
//                episode (replay/replayFeed.h)
//   curves       i32 hostFeedVersion, list of samples (f64 seconds since the epoch, f64 per cent),
//                i64 time of the forecast (0: none), text its model, f64 hours to exhaustion, f64
//                notification level, list of its points (the same), list of the announcements of the last day
//                (i64 when, i64 the moment that was announced)
//   counters     i32 hostFeedVersion, list of counters: texts object, counter (empty: any), words, unit
//                (empty: bytes), f64 bytes in a unit, flag limits of one's own count whole, texts what 100
//                per cent are, what a capacity of 0 means, flag such a resource is absent; list of reports:
//                texts display name, measure, words
//   reading      i32 hostFeedVersion, i64 bytes of the archive that a start has read, i64 of how many (0: it
//                reads none)

/// Changes with the layout of the bytes and with the native methods.
inline constexpr std::int32_t hostFeedVersion = 5;

/// Why a resource is watched.
enum class WatchReason : std::int32_t {
    declared = 0, ///< a declaration is about it: a counter of the whole system
    mounted = 1,  ///< it is mounted, and a declaration stands for every disk
    named = 2,    ///< a declaration names this disk
};

enum class PublicationKind : std::int32_t { running = 1, over = 2 };

/// What is published with the chain. Times in seconds.
struct CycleReport {
    std::int64_t cycles = 0;
    double sampling = 0.0;
    double forecast = 0.0;
    double writing = 0.0;
    std::int32_t archiveMegabytes = 0;
    double total = 0.0; ///< all cycles of the run
};

/// Whether states are published: only once somebody reads them. Any thread.
void openHostFeed(bool open = true) noexcept;

/// Publishes the state of the run, if somebody reads. When memory is refused (std::bad_alloc) the publication
/// before stays. Agent thread.
void publishCycle(const Clasp& clasp, const CycleReport& report);

/// Publishes that the run is over, with the cycles of the report before, if somebody reads. Agent thread.
void publishEnd() noexcept;

using Publication = std::shared_ptr<const std::string>;

/// Waits for a publication with a serial above `after`, at most so long (not at all for 0), and gives the
/// newest; but that a run is over only to who has read the state before it, which says what came of the last
/// cycle, or has read nothing (0). Null when none came. Serials grow as long as the process lives; 0 is
/// before the first. Any thread.
Publication awaitPublication(std::int64_t after, std::chrono::milliseconds patience);

/// The samples of a link's ring without those that stand for none, oldest first, and its newest forecast;
/// with a forecast, the samples end with those that it was made from. Nothing when there is no such link. Any
/// thread.
std::optional<std::string> curvesOf(std::int32_t rid);

/// Where a disk's mount point begins in its instance name; -1 for what is no disk.
std::int32_t placeOfMountPoint(const Link& link);

/// Samples that the newest analysis counted, or, of a link that none has looked at, all that it holds.
std::int32_t usableSamples(const Link& link);

/// What the agent can count, and whose users it names. Any thread.
std::string describeCounters();

} // namespace obrin
