#pragma once

#include "replay/replay.h"
#include "support/bytes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace obrin {

// Replays for the host, any number at a time, each under a number of its own. Any thread.
//
// The bytes (support/bytes.h), times in seconds since the epoch as i64, 0 for none:
//
//   request   i32 replayFeedVersion, i32 milliseconds between two cycles (-1: as a run would choose), nearest
//   and
//             farthest forecast in hours, cycles of the archive to each that is taken, flag other rules are
//             judged too, flag every sample is told, texts declarations and scratch pad, list of archives
//             (text path, oldest first), list of starts of runs (time, flag its rings were filled; oldest
//             first)
//   step      i32 replayFeedVersion, i64 bytes read, bytes in all, time of the first cycle, time of the
//             newest, cycles, forecasts, damaged lines, samples of unknown numbers, flag it is over, list of
//             happenings (time, i32 RID, i32 Happening, time announced), list of ended episodes (i32 RID,
//             episode), list of damages (text file, i64 line, text what), list of samples (i32 RID, time,
//             f64 value, time announced)
//   episode   i32 rule, times of onset, first event and end, i32 Outcome, times announced at the onset and at
//             the event, f64 value at the onset, f64 highest, list of errors (f64)
//   summary   i32 replayFeedVersion, i32 milliseconds between two cycles, list of resources (i32 RID, texts
//             display name and instance, i64 samples, i64 seconds observed, list of how often each model was
//             chosen (i64), list of times at which the limit was reached, list of open episodes)

/// Puts an episode as it is laid out above.
void putEpisode(Bytes& bytes, std::int32_t rule, const Episode& episode);

/// Changes with the layout of the bytes and with the native methods.
inline constexpr std::int32_t replayFeedVersion = 1;

/// So many damages are told in one step; all are counted.
inline constexpr std::int32_t damagesTold = 1000;

/// Begins a replay of a request laid out as above. Its number, 1 or more; 0 when it is not understood.
std::int32_t openReplay(std::string_view request);

/// Goes on with it, for about so many forecasts; nothing when there is no such replay.
std::string stepReplay(std::int32_t number, std::int64_t forecasts);

/// What it has come to so far; nothing when there is no such replay.
std::string summariseReplay(std::int32_t number);

/// Ends it, wherever it is.
void closeReplay(std::int32_t number);

} // namespace obrin
