#include "agent/checkFeed.h"

#include "acquisition/diskSelection.h"
#include "acquisition/textForms.h"
#include "agent/configFindings.h"
#include "agent/homePlaces.h"
#include "prediction/modelSelection.h"
#include "prediction/trendFileFormat.h"
#include "resources/declarationFindings.h"
#include "resources/declarationReading.h"
#include "resources/windowSizing.h"
#include "support/bytes.h"
#include "support/textScanner.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <unistd.h>

namespace obrin {
namespace {

Bytes& putPlace(Bytes& bytes, Place place) {
    return bytes.number(place.line).number(place.column);
}

void putFindings(Bytes& bytes, const TextFindings& findings) {
    bytes.number(static_cast<std::int32_t>(findings.size()));
    for (const TextFinding& finding : findings) {
        putPlace(bytes.text(finding.kind), finding.place);
        for (const std::string_view text : {finding.text, finding.keyword, finding.read})
            bytes.text(text.substr(0, longestTold));
        bytes.number(finding.item).longNumber(finding.number);
    }
}

void putNames(Bytes& bytes, const ConfigurationReport& report) {
    bytes.number(ConfigurationText::names);
    for (std::size_t i = 0; i < ConfigurationText::names; ++i)
        putPlace(bytes.text(report.read.items[i].text.substr(0, longestName)), report.places[i]);
}

void putNumbers(Bytes& bytes, const ConfigurationReport& report) {
    const std::size_t list = bytes.beginList();
    std::int32_t length = 0;
    for (std::size_t i = ConfigurationText::names; i < ConfigurationText::all; ++i) {
        const auto& number = report.read.items[i].number;
        if (!number)
            break;
        putPlace(bytes.number(clampToInt32(*number)), report.places[i]);
        ++length;
    }
    bytes.endList(list, length);
}

WindowPlan planOf(const std::vector<DeclaredInput>& inputs, std::int32_t millisecondsPerSample,
                  std::int32_t maxForecastHours) {
    std::set<std::tuple<std::string_view, std::string_view, std::string_view>> resources;
    std::vector<double> hours;
    for (const DeclaredInput& input : inputs) {
        const bool isNew = resources.emplace(input.object, input.instance, input.counter).second;
        hours.push_back(isNew ? input.window : 0.0);
    }
    return planWindows(hours, millisecondsPerSample, maxForecastHours);
}

Bytes& putSamples(Bytes& bytes, std::optional<std::uint32_t> samples) {
    return bytes.longNumber(samples ? std::int64_t{*samples} : -1);
}

void putInput(Bytes& bytes, const DeclaredInput& input, const PlannedWindow& window) {
    putPlace(bytes.text(input.object), input.objectPlace);
    putPlace(bytes.text(input.instance), input.instancePlace);
    putPlace(bytes.text(input.counter), input.counterPlace);
    putPlace(bytes.text(input.name), input.namePlace);
    putPlace(bytes.real(input.window), input.windowPlace);
    putPlace(bytes.number(input.method), input.methodPlace);
    putPlace(bytes.real(input.upperLimit), input.upperLimitPlace);
    putSamples(bytes.number(static_cast<std::int32_t>(window.fate)), window.samples);
    const bool isDisk = objectKind(input.object) == ObjectKind::disk;
    bytes.text(trendFileNames("", input.name, isDisk ? "" : cleanfilename(input.instance)).forecast);
}

} // namespace

std::string configurationFeed(std::string_view text, std::size_t limit) {
    const ConfigurationReport report = checkConfiguration(text.substr(0, limit));
    Bytes bytes(1024);
    bytes.number(checkFeedVersion);
    putFindings(bytes, report.findings);
    bytes.flag(report.accepted);
    putNames(bytes, report);
    putNumbers(bytes, report);
    return bytes.take();
}

std::string skipRulesFeed(std::string_view text) {
    TextFindings findings;
    const SkipRules rules = parseSkipRules(text, findings);
    const auto table = MountInfo::read();
    for (const SkipRule& rule : rules) {
        const auto matches = [&rule](const Mount& mount) { return speaksOf(rule, mount); };
        if (table && std::ranges::none_of(table->mounts(), matches))
            findings.push_back({.kind = "skip-matches-nothing", .place = rule.place, .text = rule.text});
    }
    Bytes bytes(256);
    bytes.number(checkFeedVersion);
    putFindings(bytes, findings);
    return bytes.take();
}

std::string placesFeed(const std::string& bin, const std::string& configuration, std::int64_t user) {
    const auto places = foreignPlaces(bin, configuration, user < 0 ? ::geteuid() : static_cast<uid_t>(user));
    TextFindings findings;
    for (const ForeignPlace& place : places)
        findings.push_back({.kind = place.kind, .text = place.path, .number = place.owner});
    Bytes bytes(256);
    bytes.number(checkFeedVersion);
    putFindings(bytes, findings);
    return bytes.take();
}

std::string declarationsFeed(std::string_view text, std::int32_t millisecondsPerSample,
                             std::int32_t maxForecastHours, std::size_t limit) {
    const DeclarationReport report = checkDeclarations(text.substr(0, limit));
    const bool isWhole = text.size() <= limit;
    const WindowPlan plan = planOf(report.inputs, millisecondsPerSample, maxForecastHours);
    Bytes bytes(4096);
    bytes.number(checkFeedVersion);
    putFindings(bytes, report.findings);
    bytes.flag(report.accepted).flag(report.rewritten && isWhole);
    putPlace(bytes, report.comment).number(samplesForForecast);
    putSamples(bytes.number(plan.millisecondsPerSample).real(plan.automaticHours), plan.automaticSamples);
    bytes.number(static_cast<std::int32_t>(report.inputs.size()));
    for (std::size_t i = 0; i < report.inputs.size(); ++i)
        putInput(bytes, report.inputs[i], plan.windows[i]);
    return bytes.take();
}

} // namespace obrin
