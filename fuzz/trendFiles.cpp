// The trend files: what is written is what the viewer reads, and any text is read in peace.

#include "fuzz/target.h"
#include "prediction/modelSelection.h"
#include "prediction/trendFileFormat.h"
#include "support/textScanner.h"
#include "trendviewer/trendViewer.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace obrin::fuzz::trendFiles {
namespace {

template <class... Values>
std::string printed(const char* format, Values... values) {
    char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text, sizeof text, format, values...);
#pragma GCC diagnostic pop
    return text;
}

bool isSame(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

void checkHeadline(Input bytes) {
    constexpr std::array<const char*, 7> models{model0, model1, model2, model3, model4, model5, no_model};
    TrendHeadline headline;
    headline.limit = bytes.take<double>();
    headline.timeStamp = bytes.take<std::int32_t>();
    headline.hoursToExhaustion = bytes.take<double>();
    headline.notifyLevel = bytes.take<float>();
    headline.model = models[bytes.take<std::uint8_t>() % models.size()];
    const std::string name(bytes.rest().substr(0, bytes.rest().size() / 2));
    const std::string instance(bytes.rest().substr(name.size()));
    const std::string script = trendScriptText(headline, "/home/", name, instance);

    const bool isExhausted = headline.hoursToExhaustion > 0.0;
    const TrendLabel label = parseTrendLabel(script);
    require(label.timeStamp == headline.timeStamp, "the time is read as it was written");
    require(label.text == "Algorithm: " + headline.model + ".      " +
                              (isExhausted ? printed("%.2f hours to exhaustion", headline.hoursToExhaustion)
                                           : "no exhaustion within horizon") +
                              ".",
            "the headline is read as it was written");
    const std::string level = printed("%.2f", static_cast<double>(headline.notifyLevel));
    require(isSame(static_cast<double>(label.level),
                   isExhausted ? static_cast<double>(std::strtof(level.c_str(), nullptr)) : -1.0),
            "the level is read as it was written");
    const double limit = std::strtod(printed("%e", headline.limit).c_str(), nullptr);
    require(parseTrendLimit(script) == truncateToInt32(limit), "the limit is read as it was written");
}

void checkCurve(Input bytes) {
    static const std::string path = workFile("trendPRD.gnp");
    const std::vector<float> all = bytes.series<float>(200);
    const std::span<const float> times(all.data(), all.size() / 2);
    const std::span<const float> values(all.data() + times.size(), times.size());
    std::string text = "of an earlier one";
    trendCurveText(times, values, &text);
    require(std::ranges::count(text, '\n') == std::ssize(times), "a curve has a line for each point");
    writeWorkFile(path, text);
    std::size_t at = 0;
    const auto take = [&](const char* word) {
        const float number = at % 2 == 0 ? times[at / 2] : values[at / 2];
        require(word == printed("%f", static_cast<double>(number)), "a curve is read as it was written");
        return ++at <= all.size();
    };
    require(slirpXYPairs(path, take) == 2 * std::ssize(times) && at == 2 * times.size(), "it is read whole");
}

void checkAnyText(std::string_view input) {
    static const std::string path = workFile("trend.ini");
    const TrendLabel label = parseTrendLabel(input);
    require(label.text.size() < 1200, "what is shown is bounded");
    parseTrendLimit(input);
    writeWorkFile(path, input);
    std::size_t words = 0;
    slirpXYPairs(path, [&](const char* word) {
        require(word[0] != '\0' || input.find('\0') != std::string_view::npos, "a word is not empty");
        return ++words <= 1000;
    });
}

void check(std::string_view input) {
    checkAnyText(input);
    checkHeadline(Input(input));
    checkCurve(Input(input));
}

const Target target("trendFiles", check);

} // namespace
} // namespace obrin::fuzz::trendFiles
