#pragma once

#include "support/textFindings.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace obrin {

/// An input of declarations as a run takes it. Texts are parts of the text; a number that is none is 0. The
/// place of an argument is that of its keyword, so is the place of a number that is none.
struct DeclaredInput {
    std::string_view object{};
    std::string_view instance{};
    std::string_view counter{};
    std::string_view name{};
    double window = 0.0; ///< hours; negative: automatic
    std::int32_t method = 0;
    double upperLimit = 0.0; ///< "UpperLimitAbs"
    Place objectPlace{};
    Place instancePlace{};
    Place counterPlace{};
    Place namePlace{};
    Place windowPlace{};
    Place methodPlace{};
    Place upperLimitPlace{};
};

/// What a run makes of declarations, and what is to be said of them. The findings, those of
/// findForeignBytes among them, are errors when a run refuses the text for them:
///   keyword-missing              (error) at the last keyword before; keyword: the one that is missing
///   argument-missing             (error) at its keyword; keyword
///   byte-255                     (error) the byte that ends the text in the search for an argument; text,
///   keyword comment-not-closed           (error) text: its mark; the missing keyword may stand in it
///   words-before-argument        at the keyword; text, keyword
///   argument-cut-at-nul          text: what is left; keyword
///   argument-too-long            text: what is cut off; keyword; number: bytes of the whole
///   argument-spans-lines         text: the whole; keyword
///   argument-with-outer-blank    text: the whole; keyword
///   value-malformed              text: what stands in its place, empty at the end of the text; keyword
///   value-with-rest              text: the rest; read: the number before it; keyword
///   value-not-finite             text; keyword
///   number-out-of-range          text; keyword; number: what is taken
///   input-skipped                text: its first keyword; keyword: the one that was sought
///   keyword-out-of-place         text: the keyword; keyword: the one that was sought
///   keyword-glued                text: a word that begins like a keyword; keyword: that
///   keyword-in-other-case        text; keyword: what it should be
///   word-ignored                 text; keyword: the one that was sought
///   comment-mark-glued           text: the word; number: 1 in a comment, which goes on
///   end-of-input-missing         at the input's object
///   end-of-declarations-missing  at the last keyword
///   object-file                  at the object; text: it; number: line of the first input that is ignored, 0
///   none declarations-end-early       text: the word that ends them; number: as before
///   comment-between-inputs       number: as before
///   input-after-end              at the input
struct DeclarationReport {
    TextFindings findings{};
    std::vector<DeclaredInput> inputs{}; ///< those that were read whole, in their order
    bool accepted = false;               ///< false: a run refuses the text
    bool rewritten = false; ///< nothing in the text keeps it from being replaced after the first cycle
    Place comment{}; ///< the first comment, which such a replacement does not keep; nowhere without one
};

/// Reads declarations by the grammar of a run. Touches nothing but the text, of which the report holds parts.
/// Any thread.
DeclarationReport checkDeclarations(std::string_view text);

} // namespace obrin
