#include "agent/debugLog.h"
#include "resources/resourceText.h"
#include "support/clock.h"
#include "support/numericLocale.h"
#include "support/wholeFile.h"

#include <cerrno>
#include <cfloat>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace obrin {

namespace {

std::string withSixDecimals(double value) {
    char digits[DBL_MAX_10_EXP + 20]; // the longest double, a sign, the point and six decimals
    std::snprintf(digits, sizeof digits, "%f", value);
    return digits;
}

void argumentLine(std::string& text, std::string_view keyword, std::string_view argument) {
    text.append("\t").append(keyword).append(" (").append(argument).append(")\n");
}

void valueLine(std::string& text, std::string_view keyword, std::string_view value) {
    text.append("\t").append(keyword).append(" ").append(value).append("\n");
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
    const NumericLocale decimalPoint;
    std::string text = "/** Updated on ";
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
    if (!replaceWholeFile(clasp->ResourceText, resourceTextFromChain(*clasp, timeText)))
        DEBUGMSG("Cannot rewrite %s, the old file stays: %s\n", clasp->ResourceText.c_str(),
                 std::strerror(errno));
    return 1;
}

} // namespace obrin
