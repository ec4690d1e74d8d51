#include "resources/resourceTokens.h"

#include <algorithm>
#include <array>
#include <utility>

namespace obrin {

namespace {

constexpr std::array<std::pair<std::string_view, KeyCode>, 17> keywords{{
    {BeginResourceDeclarationText, beginDeclarationKey},
    {BeginResourceInputText, beginInputKey},
    {FindObjectText, findObjectKey},
    {FindInstanceText, findInstanceKey},
    {FindCounterText, findCounterKey},
    {WindowSizeText, windowSizeKey},
    {NameIsText, nameIsKey},
    {OpeningCommentText, openingCommentKey},
    {ClosingCommentText, closingCommentKey},
    {EndResourceDeclarationText, endDeclarationKey},
    {EndResourceInputText, endInputKey},
    {AnalyticalMethod, analyticalMethodKey},
    {UpperLimitAbs, upperLimitAbsKey},
    {UpperLimitCalc, upperLimitCalcKey},
    {LowerLimitAbs, lowerLimitAbsKey},
    {LowerLimitCalc, lowerLimitCalcKey},
    {CulpritMarker, culpritMarkerKey},
}};

/// The argument reader ends at this byte as at the end of the file.
constexpr char endByte = '\xFF';

/// The text up to the next `wanted`, which is passed; false when the text ends first.
bool takeUpTo(char wanted, TextScanner& text, std::string_view* taken) {
    const std::string_view rest = text.rest();
    const std::size_t found = std::min(rest.find(wanted), rest.size());
    const std::size_t end = rest.substr(0, found).find(endByte);
    if (found == rest.size() || end != rest.npos) {
        text.moveTo(text.position() + std::min(end, rest.size()));
        return false;
    }
    *taken = rest.substr(0, found);
    text.moveTo(text.position() + found + 1);
    return true;
}

/// Where an input begins in a text, which the end of a declaration ends or does not.
std::optional<std::size_t> inputIn(std::string_view unread, bool endEnds) {
    TextScanner text(unread);
    bool commentsClose = true;
    while (const auto token = text.word()) {
        const int code = ResourceDeclarationPiston(*token);
        if (endEnds && code == endDeclarationKey)
            return std::nullopt;
        if (code == beginInputKey || code == findObjectKey)
            return text.position() - token->size();
        if (code != openingCommentKey || !commentsClose)
            continue;
        const std::size_t inside = text.position();
        commentsClose = CommentFunction(*token, text) == 1;
        if (!commentsClose)
            text.moveTo(inside);
    }
    return std::nullopt;
}

} // namespace

int ResourceDeclarationPiston(std::string_view token) {
    const auto* found = std::find_if(keywords.begin(), keywords.end(),
                                     [token](const auto& keyword) { return keyword.first == token; });
    return found == keywords.end() ? noKey : found->second;
}

std::string_view keywordOf(int code) {
    const auto* found = std::find_if(keywords.begin(), keywords.end(),
                                     [code](const auto& keyword) { return keyword.second == code; });
    return found == keywords.end() ? std::string_view() : found->first;
}

int ScanForKeyCode(int code, TextScanner& text, ParseLosses* losses) {
    while (const auto token = text.word()) {
        const int found = ResourceDeclarationPiston(*token);
        if (found == code)
            return 1;
        if (CommentFunction(*token, text) == -1)
            return -1;
        if (losses == nullptr)
            continue;
        const bool beginsInput = found == findObjectKey || (found == beginInputKey && code != findObjectKey);
        losses->ended = losses->ended || found == endDeclarationKey;
        losses->input = losses->input || (beginsInput && !losses->ended);
    }
    return -1;
}

int CommentFunction(std::string_view token, TextScanner& text) {
    if (token != OpeningCommentText)
        return 1;
    return text.skipPastWord(ClosingCommentText) ? 1 : -1;
}

bool holdsInput(std::string_view unread) {
    return inputIn(unread, true).has_value();
}

std::optional<std::size_t> firstInput(std::string_view text) {
    return inputIn(text, false);
}

std::optional<Argument> takeArgument(TextScanner& text, ParseLosses* losses) {
    Argument argument;
    if (!takeUpTo('(', text, &argument.before) || !takeUpTo(')', text, &argument.whole))
        return std::nullopt;
    argument.kept = argument.whole.substr(0, std::min(argument.whole.find('\0'), longestArgument));
    if (losses != nullptr) {
        losses->argument = losses->argument || argument.kept.size() < argument.whole.size();
        losses->input = losses->input || (!losses->ended && holdsInput(argument.before));
    }
    return argument;
}

int RetrieveArgument(std::string* argument, TextScanner& text, ParseLosses* losses) {
    const auto taken = takeArgument(text, losses);
    if (!taken)
        return -1;
    argument->assign(taken->kept);
    return 1;
}

} // namespace obrin
