#include "agent/serviceStatus.h"

#include "agent/agentState.h"
#include "agent/hostFeed.h"
#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "support/durationWords.h"
#include "support/javaText.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace obrin {
namespace {

/// How many bytes a character at the start of a text has that steers a terminal, ends a line or turns the
/// reading order; 0 for any other.
std::size_t lengthOfSteering(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    if (byte(0) < ' ' || byte(0) == 0x7f)
        return 1;
    const bool isC1 = byte(0) == 0xc2 && byte(1) < 0xa0;             // U+0080 to U+009F
    const bool isArabicMark = byte(0) == 0xd8 && byte(1) == 0x9c;    // U+061C
    const bool isPunctuation = byte(0) == 0xe2 && byte(1) == 0x80 && // U+200B to U+200F, U+2028 to U+202E
                               ((byte(2) >= 0x8b && byte(2) <= 0x8f) || (byte(2) >= 0xa8 && byte(2) <= 0xae));
    const bool isInvisible =
        byte(0) == 0xe2 && byte(1) == 0x81 && byte(2) >= 0xa0 && byte(2) <= 0xaf; // U+206x
    const bool isOrderMark = text.starts_with("\xef\xbb\xbf");
    return isC1 || isArabicMark ? 2 : isPunctuation || isInvisible || isOrderMark ? 3 : 0;
}

/// Nobody may put lines of his own into what is told, and what is no text is not taken.
std::string asOneLine(std::string_view name) {
    std::string line(name);
    for (std::size_t at = firstForeignByte(line); at != std::string::npos; at = firstForeignByte(line))
        line[at] = '?';
    for (std::size_t at = 0; at < line.size(); ++at)
        if (const std::size_t length = lengthOfSteering(std::string_view(line).substr(at)))
            line.replace(at, length, "?");
    return line;
}

std::string nameOf(const Link& link) {
    const std::int32_t mountPoint = placeOfMountPoint(link);
    if (mountPoint < 0)
        return asOneLine(link.NameIs.view());
    return asOneLine(link.Descriptor1.view().substr(static_cast<std::size_t>(mountPoint)));
}

/// The agent's resources as a whole.
struct Prospects {
    std::int32_t resources = 0;
    std::int32_t mostSamples = 0;
    bool isForecast = false;
    const Link* atLimit = nullptr; ///< one of them
    const Link* nearest = nullptr; ///< that runs out first
    double nearestMoment = 0.0;    ///< seconds since the epoch
};

bool isAtLimit(const Link& link) {
    const ToleranceLimits limits = limitsOfMethod(link.AnalyticalMethod);
    return link.findings.valueRead &&
           static_cast<std::int32_t>(reachedLimit(static_cast<float>(link.DataArray[0]), limits)) != 0;
}

Prospects lookAt(const Clasp& clasp) {
    Prospects prospects;
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
        if (isTemplate(*link))
            continue;
        const LinkFindings& findings = link->findings;
        ++prospects.resources;
        prospects.mostSamples = std::max(prospects.mostSamples, usableSamples(*link));
        prospects.isForecast |= findings.forecastTime != 0;
        if (prospects.atLimit == nullptr && isAtLimit(*link))
            prospects.atLimit = link;
        const double moment =
            static_cast<double>(findings.forecastTime) + findings.hoursToExhaustion * 3600.0;
        const bool isInSight = findings.forecastTime != 0 && findings.hoursToExhaustion > 0.0;
        if (isInSight && (prospects.nearest == nullptr || moment < prospects.nearestMoment)) {
            prospects.nearest = link;
            prospects.nearestMoment = moment;
        }
    }
    return prospects;
}

std::string exhaustionWords(const Prospects& prospects, std::int32_t horizonHours) {
    if (prospects.atLimit != nullptr)
        return nameOf(*prospects.atLimit) + " is at its limit";
    if (prospects.nearest != nullptr) {
        const auto left = static_cast<std::int64_t>(prospects.nearestMoment) - TimeStamp;
        return nameOf(*prospects.nearest) + " runs out " + (left > 0 ? "in " + durationWords(left) : "now");
    }
    if (prospects.isForecast)
        return "nothing runs out within " + std::to_string(horizonHours) + " h";
    if (prospects.mostSamples < samplesForForecast)
        return "collecting: " + std::to_string(prospects.mostSamples) + " of " +
               std::to_string(samplesForForecast) + " samples";
    return "no forecast";
}

} // namespace

std::string describeService(const Clasp& clasp) {
    const Prospects prospects = lookAt(clasp);
    const std::string count = std::to_string(prospects.resources);
    return count + (prospects.resources == 1 ? " resource; " : " resources; ") +
           exhaustionWords(prospects, clasp.MaxForecastHours);
}

std::string describeReadingArchive(std::int64_t read, std::int64_t all) {
    const double share = all > 0 ? static_cast<double>(read) / static_cast<double>(all) : 0.0;
    return "reading the archive: " + std::to_string(static_cast<int>(100.0 * share)) + " %";
}

} // namespace obrin
