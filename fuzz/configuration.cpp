// The configuration file: what a run takes of it, what the check says of it.

#include "agent/agentConfig.h"
#include "agent/agentState.h"
#include "agent/configFindings.h"
#include "fuzz/feedFindings.h"
#include "support/textScanner.h"

#include <array>
#include <cerrno>
#include <sys/stat.h>

// The first item names a directory that is made as soon as it is read: not here.
extern "C" int mkdir(const char* /*path*/, mode_t /*mode*/) noexcept {
    errno = EROFS;
    return -1;
}

namespace obrin::fuzz::configuration {
namespace {

constexpr std::int32_t untouched = -77;

void checkPlaces(const ConfigurationText& read) {
    std::size_t behind = 0;
    for (const ConfigurationItem& item : read.items) {
        require(item.at >= behind && item.at + item.text.size() <= read.end,
                "the items stand in their order");
        behind = item.at + item.text.size();
    }
}

std::int32_t expected(const ConfigurationItem& item) {
    return item.number ? clampToInt32(*item.number) : untouched;
}

void checkRun(const ConfigurationText& read, const Clasp& clasp, std::int32_t megabytes) {
    const auto& items = read.items;
    require(clasp.DataHomeDirectory == items[0].text && clasp.ScratchPad == items[2].text &&
                clasp.AnalysisLog == items[3].text && clasp.ResourceText == items[4].text,
            "a run has the names of the text");
    require(clasp.HardDriveArchive == std::string(items[0].text) + std::string(items[1].text),
            "the archive lies at home");
    require(clasp.MillisecondsPerSample == expected(items[5]) &&
                clasp.MinForecastHours == expected(items[6]) &&
                clasp.MaxForecastHours == expected(items[7]) && megabytes == expected(items[8]),
            "a run has the numbers of the text, and no other");
    require(enablepooltaggingflag == (items[9].missing ? 0 : expected(items[9])) &&
                grace_period == (items[10].missing ? 0 : expected(items[10])),
            "the last two items are 0 when they are missing");
}

/// The items as far as they are there, spelt anew.
std::string written(const ConfigurationText& read, std::size_t* count) {
    std::string text;
    for (*count = 0; *count < ConfigurationText::all; ++*count) {
        const ConfigurationItem& item = read.items[*count];
        const bool isName = *count < ConfigurationText::names;
        if (item.missing || (!isName && !item.number))
            break;
        text += (isName ? std::string(item.text) : std::to_string(*item.number)) + "\n";
    }
    return text;
}

void checkWritten(const ConfigurationText& read) {
    std::size_t count = 0;
    const std::string text = written(read, &count);
    const ConfigurationText again = readConfigurationText(text);
    for (std::size_t i = 0; i < count; ++i) {
        const bool isSame = i < ConfigurationText::names ? again.items[i].text == read.items[i].text
                                                         : again.items[i].number == read.items[i].number;
        require(isSame, "what is written reads back the same");
    }
}

void checkFeed(std::string_view input, bool isAccepted) {
    const std::string feed = configurationFeed(input);
    BytesReader bytes(feed);
    passFindings(bytes);
    require(bytes.flag() == isAccepted, "the host is told what a run does");
    require(bytes.number() == ConfigurationText::names, "there are five names");
    for (std::size_t i = 0; i < ConfigurationText::names; ++i) {
        bytes.text();
        bytes.longNumber(); // its place
    }
    const std::int32_t numbers = bytes.number();
    for (std::int32_t i = 0; i < numbers * 3 && bytes.isWhole(); ++i)
        bytes.number();
    require(bytes.isWhole() && bytes.atEnd(), "the bytes for the host are whole");
}

void check(std::string_view input) {
    const ConfigurationText read = readConfigurationText(input);
    checkPlaces(read);
    Clasp clasp;
    std::int32_t megabytes = untouched;
    clasp.MillisecondsPerSample = clasp.MinForecastHours = clasp.MaxForecastHours = untouched;
    enablepooltaggingflag = grace_period = untouched;
    const bool isAccepted = readConfiguration(input, "AutoConfig.ini", &clasp, &megabytes);
    require(checkConfiguration(input).accepted == isAccepted, "the check accepts what a run accepts");
    if (isAccepted)
        checkRun(read, clasp, megabytes);
    checkWritten(read);
    checkFeed(input, isAccepted);
}

const Target target("configuration", check);

} // namespace
} // namespace obrin::fuzz::configuration
