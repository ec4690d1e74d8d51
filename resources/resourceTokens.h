#pragma once

#include "support/textScanner.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace obrin {

// The words of the declaration file. A keyword is a word of its own between white space, case-sensitive; some
// are followed by an argument in parentheses, some by a number. Each function works on a scanner over the
// whole file's text.

inline constexpr std::string_view BeginResourceDeclarationText = "BeginResourceDeclaration";
inline constexpr std::string_view BeginResourceInputText = "BeginResourceInput";
inline constexpr std::string_view FindObjectText = "FindObject";
inline constexpr std::string_view FindInstanceText = "FindInstance";
inline constexpr std::string_view FindCounterText = "FindCounter";
inline constexpr std::string_view WindowSizeText = "WindowSize";
inline constexpr std::string_view NameIsText = "NameIs";
inline constexpr std::string_view OpeningCommentText = "/*";
inline constexpr std::string_view ClosingCommentText = "*/";
inline constexpr std::string_view EndResourceDeclarationText = "EndResourceDeclaration";
inline constexpr std::string_view EndResourceInputText = "EndResourceInput";
inline constexpr std::string_view AnalyticalMethod = "AnalyticalMethod";
inline constexpr std::string_view UpperLimitAbs = "UpperLimitAbs";
inline constexpr std::string_view UpperLimitCalc = "UpperLimitCalc";
inline constexpr std::string_view LowerLimitAbs = "LowerLimitAbs";
inline constexpr std::string_view LowerLimitCalc = "LowerLimitCalc";
inline constexpr std::string_view CulpritMarker = "CulpritMarker";

/// Key codes of the keywords.
enum KeyCode : int {
    noKey = 0,
    beginDeclarationKey = 1,
    beginInputKey = 2,
    findObjectKey = 3,
    findInstanceKey = 4,
    findCounterKey = 5,
    windowSizeKey = 6,
    nameIsKey = 7,
    openingCommentKey = 8,
    closingCommentKey = 9,
    endDeclarationKey = 10,
    endInputKey = 11,
    analyticalMethodKey = 12,
    upperLimitAbsKey = 13,
    upperLimitCalcKey = 14,
    lowerLimitAbsKey = 15,
    lowerLimitCalcKey = 16,
    culpritMarkerKey = 17,
};

/// Longest argument in bytes; the rest of a longer one is read and dropped.
inline constexpr std::size_t longestArgument = 127;

/// What a reading passed over or dropped although a user may have meant it.
struct ParseLosses {
    bool ended = false; ///< the end of the declaration was passed: words behind it declare nothing
    bool input = false; ///< the beginning of a resource input was skipped in the search for another keyword
    bool argument = false; ///< an argument was cut
};

/// The key code of a word; 0 for any other word.
int ResourceDeclarationPiston(std::string_view token);

/// The word of a key code; empty for 0.
std::string_view keywordOf(int code);

/// Moves behind the next keyword of that code, skipping all other words and whole comments. 1; -1 at the end
/// of the text or in a comment that is not closed. Notes in `losses`, when given, that an input's beginning
/// was skipped before the end of the declaration.
int ScanForKeyCode(int code, TextScanner& text, ParseLosses* losses = nullptr);

/// When `token` is "/*", moves behind the next "*/". 1; -1 when there is none, at the end of the text then.
int CommentFunction(std::string_view token, TextScanner& text);

/// Whether a resource input begins in a part of the declaration that nothing else took: one of its first two
/// keywords stands there, before the end of the declaration and outside of comments. An open comment may have
/// swallowed one: its words count.
bool holdsInput(std::string_view unread);

/// Where the first of an input's first two keywords stands in a text, the end of a declaration or not,
/// outside of comments as above; nothing when there is none.
std::optional<std::size_t> firstInput(std::string_view text);

/// An argument as it stands in the text.
struct Argument {
    std::string_view before; ///< what stood between its keyword and the "("
    std::string_view whole;  ///< what stands between the parentheses
    std::string_view kept;   ///< as much of it as counts: up to a NUL, at most longestArgument bytes
};

/// The argument between the next "(" and the ")" after it; moves behind the ")". Nothing when the text ends
/// first; a byte of value 255 ends the text here, and the text then stands at it. Notes in `losses`, when
/// given, that bytes were dropped or that an input began before the "(".
std::optional<Argument> takeArgument(TextScanner& text, ParseLosses* losses = nullptr);

/// As takeArgument, what is kept put into `argument`. 1; -1 when there is none, `argument` is then as it was.
int RetrieveArgument(std::string* argument, TextScanner& text, ParseLosses* losses = nullptr);

} // namespace obrin
