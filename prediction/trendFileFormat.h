#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace obrin {

// The three small text files that a resource's forecast leaves in the data home directory: a plot script, the
// forecast curve and the samples. A plotting program draws them as they are, the trend viewer reads them
// back. docs/formats.md shows them. Numbers have a decimal point in every locale.

/// What a plot script says of a resource's last forecast.
struct TrendHeadline {
    double limit = -1.0;             ///< the lower limit if there is one, else the upper; -1.0 for none
    std::int64_t timeStamp = 0;      ///< cycle time, seconds since the epoch
    double hoursToExhaustion = -1.0; ///< not above 0: no exhaustion within the horizon
    std::string model;               ///< name of the chosen model; holds neither comma, quote nor line break
    float notifyLevel = 0.0F; ///< value at which the event fires; written only with a time to exhaustion
};

/// The three names of a resource's trend files: home, display name, cleaned instance and a suffix, joined
/// without separator.
struct TrendFileNames {
    std::string script;   ///< …BM.ini
    std::string forecast; ///< …BMPRD.gnp
    std::string samples;  ///< …BMSMP.gnp
};

/// `home` ends in its separator; `cleanedInstance` is what cleanfilename made of the instance. Any thread.
TrendFileNames trendFileNames(std::string_view home, std::string_view displayName,
                              std::string_view cleanedInstance);

/// Whether files of these names lie in the home directory itself: false for a "/" or a NUL in either part.
/// Such a resource has no trend files; who opens one by a name from outside asks this first. Any thread.
bool trendFilesStayAtHome(std::string_view displayName, std::string_view cleanedInstance);

/// The plot script: four lines, the last without a line end. The paths of the curves stand in single quotes
/// as they are. A path with a single quote or a control character stands in double quotes, every byte but
/// letters, digits, "/", ".", "_", "-", blank and those above 127 as a backslash and three octal digits; one
/// that begins with "<" or "~", which would run a command or name a home directory, has "./" in front. Any
/// thread.
std::string trendScriptText(const TrendHeadline& headline, std::string_view home,
                            std::string_view displayName, std::string_view cleanedInstance);

/// A curve: for each point, time (seconds since the oldest sample) and value, each followed by a blank, and a
/// line end. As many lines as the shorter span has elements. It takes the place of what was in `text`. Any
/// thread.
void trendCurveText(std::span<const float> times, std::span<const float> values, std::string* text);

/// Writes the three files anew, each whole or not at all: under its name a reader always finds one
/// generation. A file that cannot be opened or written is logged and reported as a fatal event, its old
/// generation stays, and the other files are written. The same goes, in every cycle, for all three files of a
/// resource whose name is too long for the file system or would leave the home directory. Not synchronised to
/// the disk: the files are of no use to the next run, which begins by deleting them. Agent thread, under the
/// trend-file lock.
void writeTrendFiles(const TrendHeadline& headline, std::string_view home, std::string_view displayName,
                     std::string_view instance, std::span<const float> forecastTimes,
                     std::span<const float> forecastValues, std::span<const float> sampleTimes,
                     std::span<const float> sampleValues);

/// What the viewer reads of a script. The values here stand where there is no label.
struct TrendLabel {
    std::int64_t timeStamp = -1;                       ///< seconds since the epoch; 0 when it is no number
    std::string text = "Unknown hours to exhaustion."; ///< what the viewer shows
    float level = -2.0F; ///< notification level; -1.0 without exhaustion, -3.0 when it cannot be read
};

/// Reads the headline behind the first word "label" of a script. The defaults stand when there is no such
/// word, when something else than a headline follows it, or when one of its four fields is empty or longer
/// than 511 bytes. Takes any text, in linear time. Any thread.
TrendLabel parseTrendLabel(std::string_view script);

/// Reads the limit, truncated toward zero and kept within 32 bits; 0 for NaN. Nothing when the first word
/// "limit(x)" is missing or no "=" and number follow it. Takes any text, in linear time. Any thread.
std::optional<std::int32_t> parseTrendLimit(std::string_view script);

} // namespace obrin
