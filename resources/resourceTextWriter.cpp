#include "agent/debugLog.h"
#include "resources/resourceText.h"
#include "support/clock.h"
#include "support/handles.h"
#include "support/numberText.h"
#include "support/wholeFile.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {

namespace {

std::string withSixDecimals(double value) {
    char digits[longestNumberText];
    return {digits, putFixed(digits, value, 6)};
}

void argumentLine(std::string& text, std::string_view keyword, std::string_view argument) {
    text.append("\t").append(keyword).append(" (").append(argument).append(")\n");
}

void valueLine(std::string& text, std::string_view keyword, std::string_view value) {
    text.append("\t").append(keyword).append(" ").append(value).append("\n");
}

constexpr std::string_view beforeDate = "/** Updated on ";
constexpr std::string_view behindDate = " **/";

/// Writes the date of `text` into the file if that has the same text but for its date: in place, since
/// neither the file's name nor anything that was synchronised is then at stake. False when it has another
/// text, or cannot be written.
bool renewDate(const std::string& path, std::string_view text) {
    const Descriptor file = openGiven(path, O_RDWR);
    struct stat state;
    if (!file || ::fstat(file.get(), &state) != 0 || state.st_nlink != 1)
        return false;
    std::string there;
    readRest(file, wholeFileLimit, &there);
    const std::size_t end = text.find(behindDate);
    if (there.size() != text.size() || !there.starts_with(beforeDate) ||
        text.substr(end) != there.substr(end))
        return false;
    const auto place = static_cast<off_t>(beforeDate.size());
    const std::string_view date = text.substr(beforeDate.size(), end - beforeDate.size());
    return ::lseek(file.get(), place, SEEK_SET) == place && writeAll(file.get(), date.data(), date.size());
}

/// Instances come anew from their template at every start, so only the template is written.
bool isWritten(const Link& link) {
    const bool hasInstances = link.Descriptor0 == "LogicalDisk" || link.Descriptor0 == "Process";
    return !hasInstances || link.Descriptor3 == "-1";
}

void inputBlock(std::string& text, const Link& link) {
    text.append(BeginResourceInputText).append("\n");
    argumentLine(text, FindObjectText, link.Descriptor0.view());
    argumentLine(text, FindInstanceText, link.Descriptor1.view());
    argumentLine(text, FindCounterText, link.Descriptor2.view());
    // A window given by hand holds for one run, by intent.
    valueLine(text, WindowSizeText, "-1.");
    argumentLine(text, NameIsText, link.NameIs.view());
    valueLine(text, AnalyticalMethod, std::to_string(link.AnalyticalMethod));
    valueLine(text, UpperLimitAbs, withSixDecimals(link.UpperLimitAbs));
    valueLine(text, UpperLimitCalc, withSixDecimals(link.UpperLimitCalc));
    valueLine(text, LowerLimitAbs, withSixDecimals(link.LowerLimitAbs));
    valueLine(text, LowerLimitCalc, withSixDecimals(link.LowerLimitCalc));
    argumentLine(text, CulpritMarker, link.CulpritMarker.view());
    text.append(EndResourceInputText).append("\n\n");
}

} // namespace

std::string resourceTextFromChain(const Clasp& clasp, std::string_view timeText) {
    std::string text(beforeDate);
    text.append(timeText).append(" **/\n").append(BeginResourceDeclarationText).append("\n\n");
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        if (isWritten(*link))
            inputBlock(text, *link);
    return text.append(EndResourceDeclarationText).append("\n");
}

int update_autoresource_file(Clasp* clasp) {
    if (!clasp->declarationsComplete)
        return 1;
    const std::time_t now = systemClock().wallTime();
    char timeText[64] = "";
    ::ctime_r(&now, timeText);
    const std::string text = resourceTextFromChain(*clasp, timeText);
    if (!renewDate(clasp->ResourceText, text) && !replaceGivenFile(clasp->ResourceText, text))
        DEBUGMSG("Cannot rewrite %s, the old file stays: %s\n", clasp->ResourceText.c_str(),
                 whyNotOpened(errno));
    return 1;
}

} // namespace obrin
