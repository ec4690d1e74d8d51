#include "resources/resourceInput.h"

#include "agent/debugLog.h"

#include <string>

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
    nullptr,
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

/// Reads the parts in their order; after the first failure, which it logs, it reads nothing more.
class PartReader {
public:
    explicit PartReader(InputReading& input) : input_(input) {}

    bool good() const { return good_; }

    void keyword(int code, const char* failureText) {
        if (good_ && ScanForKeyCode(code, input_.text, &input_.losses) != 1)
            fail(failureText);
    }

    template <std::size_t Size>
    void argument(FixedText<Size>& field, const char* failureText) {
        std::string text;
        if (good_ && RetrieveArgument(&text, input_.text, &input_.losses) != 1)
            fail(failureText);
        if (good_)
            field.assign(text);
    }

    void number(double& field) {
        if (good_)
            field = input_.text.real().value_or(0.0);
    }

    void number(std::int32_t& field) {
        if (good_)
            field = input_.text.integer32().value_or(0);
    }

private:
    void fail(const char* failureText) {
        good_ = false;
        const std::string_view text(failureText);
        const std::size_t name = text.find("%s");
        // The texts are data here, not formats, so that the compiler checks the one format there is.
        DEBUGMSG("%.*s%s%s", static_cast<int>(name), failureText, input_.clasp->ResourceText.c_str(),
                 failureText + name + 2);
    }

    InputReading& input_;
    bool good_ = true;
};

} // namespace

bool readResourceInput(InputReading& input, Link& link, const InputFailureTexts& texts) {
    link.pClasp = input.clasp;
    PartReader part(input);
    part.keyword(findInstanceKey, texts.findInstance);
    part.argument(link.Descriptor1, texts.instanceArgument);
    part.keyword(findCounterKey, texts.findCounter);
    part.argument(link.Descriptor2, texts.counterArgument);
    part.keyword(windowSizeKey, texts.windowSize);
    part.number(link.WindowSize);
    part.keyword(nameIsKey, texts.nameIs);
    part.argument(link.NameIs, texts.nameIsArgument);
    part.keyword(analyticalMethodKey, "\n\nFailure parsing for 'AnalyticalMethod' in resource text %s.\n\n");
    part.number(link.AnalyticalMethod);
    part.keyword(upperLimitAbsKey, "\n\nFailure parsing for 'UpperLimitAbs' in resource text %s.\n\n");
    part.number(link.UpperLimitAbs);
    part.keyword(upperLimitCalcKey, "\n\nFailure parsing for 'UpperLimitCalc' in resource text %s.\n\n");
    part.number(link.UpperLimitCalc);
    part.keyword(lowerLimitAbsKey, "\n\nFailure parsing for 'LowerLimitAbs' in resource text %s.\n\n");
    part.number(link.LowerLimitAbs);
    part.keyword(lowerLimitCalcKey, "\n\nFailure parsing for 'LowerLimitCalc' in resource text %s.\n\n");
    part.number(link.LowerLimitCalc);
    part.keyword(culpritMarkerKey, "\n\nError parsing for 'CulpritMarker' in resource text %s.");
    part.argument(link.CulpritMarker, "\n\nError parsing for CulpritMarker argument in resource text %s.");
    if (part.good() && texts.endResourceInput == nullptr)
        ScanForKeyCode(endInputKey, input.text, &input.losses);
    else
        part.keyword(endInputKey, texts.endResourceInput);
    return part.good();
}

} // namespace obrin
