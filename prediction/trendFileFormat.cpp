#include "prediction/trendFileFormat.h"

#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "support/immortal.h"
#include "support/numberText.h"
#include "support/numericLocale.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace obrin {

TrendFileNames trendFileNames(std::string_view home, std::string_view displayName,
                              std::string_view cleanedInstance) {
    const std::string stem =
        std::string(home) + std::string(displayName) + std::string(cleanedInstance) + "BM";
    return {stem + ".ini", stem + "PRD.gnp", stem + "SMP.gnp"};
}

bool trendFilesStayAtHome(std::string_view displayName, std::string_view cleanedInstance) {
    constexpr std::string_view separators("/\0", 2);
    return displayName.find_first_of(separators) == std::string_view::npos &&
           cleanedInstance.find_first_of(separators) == std::string_view::npos;
}

namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

bool isPlain(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           std::string_view("/._- ").find(byte) != std::string_view::npos ||
           static_cast<unsigned char>(byte) > 127;
}

/// A path as a text of the plotting program. Doubling a quote inside single quotes would be shorter, but the
/// program reads neither two quotes in a row nor a leading one so; octal digits it reads everywhere, and they
/// keep backquotes, which run commands inside double quotes, from being seen.
std::string quotedPath(std::string path) {
    if (path.starts_with('<') || path.starts_with('~'))
        path.insert(0, "./");
    if (std::none_of(path.begin(), path.end(), [](char byte) { return byte == '\'' || isControl(byte); }))
        return "'" + path + "'";
    std::string quoted = "\"";
    for (char byte : path) {
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        quoted += isPlain(byte) ? std::string(1, byte) : octal;
    }
    return quoted + "\"";
}

std::string fixedText(double value) {
    char text[longestNumberText];
    return {text, putFixed(text, value, 2)};
}

/// "<hours> hours to exhaustion, <model>, notif level=<level>" or its counterpart without exhaustion.
std::string horizonText(const TrendHeadline& headline) {
    if (!(headline.hoursToExhaustion > 0.0))
        return "no exhaustion within horizon, " + headline.model + ", notif level=-1.00";
    return fixedText(headline.hoursToExhaustion) + " hours to exhaustion, " + headline.model +
           ", notif level=" + fixedText(static_cast<double>(headline.notifyLevel));
}

} // namespace

std::string trendScriptText(const TrendHeadline& headline, std::string_view home,
                            std::string_view displayName, std::string_view cleanedInstance) {
    const TrendFileNames names = trendFileNames(home, displayName, cleanedInstance);
    char limit[longestNumberText];
    return "limit(x) = " + std::string(limit, putScientific(limit, headline.limit)) + "\n set label '@ " +
           std::to_string(headline.timeStamp) + ", " + horizonText(headline) +
           "' at graph .1,.5\nshow label\nplot " + quotedPath(names.forecast) + " with lines, " +
           quotedPath(names.samples) + " with linespoints, limit(x)";
}

void trendCurveText(std::span<const float> times, std::span<const float> values, std::string* text) {
    text->clear();
    for (std::size_t i = 0; i < std::min(times.size(), values.size()); ++i) {
        char line[2 * longestNumberText + 4];
        char* end = putSixDecimals(line, times[i]);
        *end++ = ' ';
        end = putSixDecimals(end, values[i]);
        *end++ = ' ';
        *end++ = '\n';
        text->append(line, end);
    }
}

namespace {

void writeTrendFile(bool mayWrite, const std::string& path, const std::string& text, const char* failure) {
    if (mayWrite && replaceWholeFile(path, text, Synchronise::no))
        return;
    DEBUGMSG("Error opening result file %s.\n", path.c_str());
    error_exit("fatal", failure);
}

} // namespace

void writeTrendFiles(const TrendHeadline& headline, std::string_view home, std::string_view displayName,
                     std::string_view instance, std::span<const float> forecastTimes,
                     std::span<const float> forecastValues, std::span<const float> sampleTimes,
                     std::span<const float> sampleValues) {
    const std::string cleaned = cleanfilename(instance);
    const TrendFileNames names = trendFileNames(home, displayName, cleaned);
    const bool atHome = trendFilesStayAtHome(displayName, cleaned);
    writeTrendFile(atHome, names.script, trendScriptText(headline, home, displayName, cleaned),
                   "Cannot Open BM.ini File for Writing");
    static Immortal<std::string> curve; // the room for it stays
    trendCurveText(forecastTimes, forecastValues, &*curve);
    writeTrendFile(atHome, names.forecast, *curve, "Cannot Open BMPRD.gnp File for Writing");
    trendCurveText(sampleTimes, sampleValues, &*curve);
    writeTrendFile(atHome, names.samples, *curve, "Cannot Open BMSMP.gnp File for Writing");
}

TrendLabel parseTrendLabel(std::string_view script) {
    TrendLabel label;
    TextScanner scanner(script);
    if (!scanner.skipPastWord("label"))
        return label;
    scanner.skipWhiteSpace();
    const std::string headline(scanner.rest().substr(0, 4096));
    const NumericLocale decimalPoint;
    char time[512];
    char horizon[512];
    char model[512];
    char level[512];
    if (std::sscanf(headline.c_str(), "'@ %511[^,], %511[^,], %511[^,], %511[^']", time, horizon, model,
                    level) != 4)
        return label;
    label.timeStamp = std::strtol(time, nullptr, 10);
    label.text = std::string("Algorithm: ") + model + ".      " + horizon + ".";
    if (std::sscanf(level, "notif level=%f", &label.level) != 1) // NOLINT(cert-err34-c): our own text
        label.level = -3.0F;
    return label;
}

std::optional<std::int32_t> parseTrendLimit(std::string_view script) {
    TextScanner scanner(script);
    if (!scanner.skipPastWord("limit(x)") || scanner.word() != "=")
        return std::nullopt;
    const auto limit = scanner.real();
    return limit ? std::optional(truncateToInt32(*limit)) : std::nullopt;
}

} // namespace obrin
