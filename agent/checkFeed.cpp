#include "agent/checkFeed.h"

#include "agent/configFindings.h"
#include "prediction/modelSelection.h"
#include "resources/declarationFindings.h"
#include "support/bytes.h"
#include "support/textScanner.h"

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

void putInput(Bytes& bytes, const DeclaredInput& input) {
    putPlace(bytes.text(input.object), input.objectPlace);
    putPlace(bytes.text(input.instance), input.instancePlace);
    putPlace(bytes.text(input.counter), input.counterPlace);
    putPlace(bytes.text(input.name), input.namePlace);
    putPlace(bytes.real(input.window), input.windowPlace);
    putPlace(bytes.number(input.method), input.methodPlace);
    putPlace(bytes.real(input.upperLimit), input.upperLimitPlace);
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

std::string declarationsFeed(std::string_view text, std::size_t limit) {
    const DeclarationReport report = checkDeclarations(text.substr(0, limit));
    const bool isWhole = text.size() <= limit;
    Bytes bytes(4096);
    bytes.number(checkFeedVersion);
    putFindings(bytes, report.findings);
    bytes.flag(report.accepted).flag(report.rewritten && isWhole);
    putPlace(bytes, report.comment).number(samplesForForecast);
    bytes.number(static_cast<std::int32_t>(report.inputs.size()));
    for (const DeclaredInput& input : report.inputs)
        putInput(bytes, input);
    return bytes.take();
}

} // namespace obrin
