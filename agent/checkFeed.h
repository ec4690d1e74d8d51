#pragma once

#include "support/wholeFile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace obrin {

// What the agent makes of a configuration, of declarations and of skip rules, told without a run: by the
// readers that a run has, which log nothing and know of no run here, and open nothing unless it is said. Any
// thread, at any time.
//
// The bytes (support/bytes.h), a place as its line (i32, 0: nowhere) and column (i32, in characters):
//
//   configuration
//     i32 checkFeedVersion, list of findings, flag a run accepts it, list of the five names (text, place),
//     list of the numbers that are read, at most six (i32, place)
//   declarations
//     i32 checkFeedVersion, list of findings, flag a run accepts them, flag nothing in them keeps a run from
//     replacing them, place of the first comment, i32 samples that a forecast needs, i32 period in force in
//     milliseconds, f64 hours of the automatic window, i64 samples that it holds, list of inputs
//   skip rules, places
//     i32 checkFeedVersion, list of findings
//   input
//     texts: object, instance, counter, display name, each with its place; f64 hours of the window, i32
//     analytical method, f64 "UpperLimitAbs", each with its place; i32 what becomes of the window
//     (WindowFate), i64 samples of the one in force; text the name of its file of the forecast, of disks as
//     if they had no instance
//   finding
//     text kind, place, texts: what was found, the keyword, the part that was read; i32 item, i64 number:
//     resources/declarationFindings.h, agent/configFindings.h and
//     acquisition/diskSelection.h say what they are, and of skip rules:
//       skip-matches-nothing  text: a rule that speaks of no mount that this machine has now
//     and of places, as agent/homePlaces.h explains them:
//       place-open-to-others, place-of-another  text: the path; number: its owner's
//
// Samples are -1 where no ring can hold them. An input that repeats another has no window.
//
// A text is cut behind longestTold bytes, a name behind longestName, which is more than any path has.

/// Changes with the layout of the bytes and with the native methods.
inline constexpr std::int32_t checkFeedVersion = 4;

inline constexpr std::size_t longestTold = 1024;
inline constexpr std::size_t longestName = 65536;

/// What a run would make of a file of this content, of which it reads no more than `limit`; of declarations,
/// with this period and this farthest forecast in its configuration.
std::string configurationFeed(std::string_view text, std::size_t limit = wholeFileLimit);
std::string declarationsFeed(std::string_view text, std::int32_t millisecondsPerSample,
                             std::int32_t maxForecastHours, std::size_t limit = wholeFileLimit);

/// What a run would make of skip rules. Opens one file, the machine's table of mounts; without it, no rule is
/// said to match nothing.
std::string skipRulesFeed(std::string_view text);

/// What others could turn against the agent of `user` (-1: that of this process) that runs in `bin` with this
/// configuration file, which is opened.
std::string placesFeed(const std::string& bin, const std::string& configuration, std::int64_t user);

} // namespace obrin
