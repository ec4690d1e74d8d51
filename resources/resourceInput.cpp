#include "resources/resourceInput.h"

#include "agent/debugLog.h"
#include "resources/declarationReading.h"

#include <string_view>

namespace obrin {

// Each text holds one %s for the name of the declaration file.
const InputFailureTexts type1FailureTexts = {
    "\n\nError parsing for 'FindInstance' in resource text %s.",
    "\n\nError retrieving Instance argument in resource text %s.",
    "\n\nError parsing for 'FindCounter' in resource test %s.",
    "\n\nError retrieving Counter argument in resource text %s.",
    "\n\nError parsing for 'WindowSize' in resource text %s.",
    "\n\nError parsing for 'NameIs' in resource text %s.",
    "\n\nError parsing for NameIs argument in resource text %s.",
    nullptr, // such an input may end with the file
};

const InputFailureTexts type2FailureTexts = {
    "\n\nFailure parsing for 'FindInstance' from resource text %s.\n",
    "\n\nFailure retrieving Instance argument from resource text %s.\n",
    "\n\nFailure parsing for 'FindCounter' in resource text %s.\n",
    "\n\nFailure retrieving Counter argument from resource text %s.\n",
    "\n\nFailure parsing for 'WindowSize' in resource text %s.\n\n",
    "\n\nFailure parsing for 'NameIs' in resource text %s.\n\n",
    "\n\nFailure retrieving NameIs argument from resource text %s.\n",
    "\n\nFailure parsing for 'EndResourceInput' in resource.txt %s.\n",
};

namespace {

const char* failureText(const InputPart& missing, const InputFailureTexts& texts) {
    const bool keyword = !missing.hasKeyword();
    switch (missing.code) {
    case findInstanceKey:
        return keyword ? texts.findInstance : texts.instanceArgument;
    case findCounterKey:
        return keyword ? texts.findCounter : texts.counterArgument;
    case windowSizeKey:
        return texts.windowSize;
    case nameIsKey:
        return keyword ? texts.nameIs : texts.nameIsArgument;
    case analyticalMethodKey:
        return "\n\nFailure parsing for 'AnalyticalMethod' in resource text %s.\n\n";
    case upperLimitAbsKey:
        return "\n\nFailure parsing for 'UpperLimitAbs' in resource text %s.\n\n";
    case upperLimitCalcKey:
        return "\n\nFailure parsing for 'UpperLimitCalc' in resource text %s.\n\n";
    case lowerLimitAbsKey:
        return "\n\nFailure parsing for 'LowerLimitAbs' in resource text %s.\n\n";
    case lowerLimitCalcKey:
        return "\n\nFailure parsing for 'LowerLimitCalc' in resource text %s.\n\n";
    case culpritMarkerKey:
        return keyword ? "\n\nError parsing for 'CulpritMarker' in resource text %s."
                       : "\n\nError parsing for CulpritMarker argument in resource text %s.";
    default:
        return texts.endResourceInput;
    }
}

void tellFailure(const char* failure, const char* file) {
    const std::size_t name = std::string_view(failure).find("%s");
    // The texts are data here, not formats, so that the compiler checks the one format there is.
    DEBUGMSG("%.*s%s%s", static_cast<int>(name), failure, file, failure + name + 2);
}

} // namespace

bool readResourceInput(InputReading& input, Link& link, const InputFailureTexts& texts) {
    link.pClasp = input.clasp;
    const InputText read = readInputText(link.Descriptor0.view(), input.text, input.losses);
    if (!read.complete) {
        tellFailure(failureText(read.parts().back(), texts), input.clasp->ResourceText.c_str());
        return false;
    }
    link.Descriptor1.assign(read[findInstanceKey].kept());
    link.Descriptor2.assign(read[findCounterKey].kept());
    link.NameIs.assign(read[nameIsKey].kept());
    link.CulpritMarker.assign(read[culpritMarkerKey].kept());
    link.WindowSize = read[windowSizeKey].real.value_or(0.0);
    link.AnalyticalMethod = clampToInt32(read[analyticalMethodKey].whole.value_or(0));
    link.UpperLimitAbs = read[upperLimitAbsKey].real.value_or(0.0);
    link.UpperLimitCalc = read[upperLimitCalcKey].real.value_or(0.0);
    link.LowerLimitAbs = read[lowerLimitAbsKey].real.value_or(0.0);
    link.LowerLimitCalc = read[lowerLimitCalcKey].real.value_or(0.0);
    return true;
}

} // namespace obrin
