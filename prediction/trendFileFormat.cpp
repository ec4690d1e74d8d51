#include "prediction/trendFileFormat.h"

#include "acquisition/textForms.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
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

/// "<hours> hours to exhaustion, <model>, notif level=<level>" or its counterpart without exhaustion.
std::string horizonText(const TrendHeadline& headline) {
    if (!(headline.hoursToExhaustion > 0.0))
        return "no exhaustion within horizon, " + headline.model + ", notif level=-1.00";
    char hours[512]; // a double has at most 309 digits before its point
    std::snprintf(hours, sizeof hours, "%.2f hours to exhaustion, ", headline.hoursToExhaustion);
    char level[128];
    std::snprintf(level, sizeof level, ", notif level=%.2f", static_cast<double>(headline.notifyLevel));
    return hours + headline.model + level;
}

} // namespace

std::string trendScriptText(const TrendHeadline& headline, std::string_view home,
                            std::string_view displayName, std::string_view cleanedInstance) {
    const NumericLocale decimalPoint;
    const TrendFileNames names = trendFileNames(home, displayName, cleanedInstance);
    char head[128];
    std::snprintf(head, sizeof head, "limit(x) = %e\n set label '@ %d, ", headline.limit, headline.timeStamp);
    return head + horizonText(headline) + "' at graph .1,.5\nshow label\nplot " + quotedPath(names.forecast) +
           " with lines, " + quotedPath(names.samples) + " with linespoints, limit(x)";
}

std::string trendCurveText(std::span<const float> times, std::span<const float> values) {
    const NumericLocale decimalPoint;
    const std::size_t points = std::min(times.size(), values.size());
    std::string text;
    text.reserve(points * 32);
    for (std::size_t i = 0; i < points; ++i) {
        char line[128]; // a float has at most 39 digits before its point
        std::snprintf(line, sizeof line, "%f %f \n", static_cast<double>(times[i]),
                      static_cast<double>(values[i]));
        text += line;
    }
    return text;
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
    writeTrendFile(atHome, names.forecast, trendCurveText(forecastTimes, forecastValues),
                   "Cannot Open BMPRD.gnp File for Writing");
    writeTrendFile(atHome, names.samples, trendCurveText(sampleTimes, sampleValues),
                   "Cannot Open BMSMP.gnp File for Writing");
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
