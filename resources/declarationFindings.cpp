#include "resources/declarationFindings.h"

#include "resources/declarationReading.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>
#include <optional>
#include <span>
#include <utility>

namespace obrin {
namespace {

/// Of what is passed over at once, so many words are looked at.
constexpr std::size_t mostPassed = 10000;

bool isKeyword(std::string_view word) {
    const int code = ResourceDeclarationPiston(word);
    return code != noKey && code != openingCommentKey && code != closingCommentKey;
}

/// A comment's opening, or closing, mark with something against it.
bool opens(std::string_view word) {
    return word.starts_with(OpeningCommentText) && word != OpeningCommentText;
}
bool closes(std::string_view word) {
    return word.ends_with(ClosingCommentText) && word != ClosingCommentText;
}

bool isSameLetter(char a, char b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
    return lower(a) == lower(b);
}

/// A letter of any script, as far as a single byte tells, or a digit.
bool continuesWord(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= 0x80 || std::isalnum(value) != 0;
}

/// The keyword in other letters, alone or with something against it that is no letter.
bool resembles(std::string_view word, std::string_view keyword) {
    return word.size() >= keyword.size() &&
           std::equal(keyword.begin(), keyword.end(), word.begin(), isSameLetter) &&
           (word.size() == keyword.size() || !continuesWord(word[keyword.size()]));
}

/// The keyword that a word resembles; empty for a keyword itself.
std::string_view meant(std::string_view word) {
    if (isKeyword(word))
        return {};
    for (int code = beginDeclarationKey; code <= culpritMarkerKey; ++code)
        if (isKeyword(keywordOf(code)) && resembles(word, keywordOf(code)))
            return keywordOf(code);
    return {};
}

class DeclarationChecker {
public:
    explicit DeclarationChecker(std::string_view text) : text_(text), places_(text), scanner_(text) {}

    DeclarationReport check() {
        findForeignBytes(text_, places_, report_.findings);
        const InputPart beginning = readBeginning(scanner_);
        tellBeginning(beginning);
        if (beginning.isThere())
            checkInputs();
        if (firstComment_)
            report_.comment = places_.of(*firstComment_);
        return std::move(report_);
    }

private:
    struct Word {
        std::string_view text;
        std::size_t at;
    };

    /// What a search for a keyword passed over.
    struct Passed {
        std::vector<Word> words{};
        std::optional<std::size_t> openComment{}; ///< one that is never closed
    };

    TextFinding& add(std::string_view kind, std::size_t at, std::string_view text = {},
                     std::string_view keyword = {}) {
        return report_.findings.emplace_back(
            TextFinding{.kind = kind, .place = places_.of(at), .text = text, .keyword = keyword});
    }

    std::size_t placeIn(std::string_view part) const {
        return static_cast<std::size_t>(part.data() - text_.data());
    }

    void checkInputs() {
        const auto take = [this](const InputPart& object) { return takeInput(object); };
        const DeclarationEnd end = walkInputs(scanner_, losses_, take);
        report_.accepted = end.kind == DeclarationEnd::Kind::complete;
        report_.rewritten = report_.accepted && end.loss == nullptr;
        if (end.kind == DeclarationEnd::Kind::noObject)
            tellPart(end.object, false);
        if (report_.accepted)
            tellEnd(end);
    }

    bool takeInput(const InputPart& object) {
        tellPart(object, false);
        if (objectKind(object.kept()) == ObjectKind::file)
            return true;
        const InputText input = readInputText(object.kept(), scanner_, losses_);
        for (const InputPart& part : input.parts())
            tellPart(part, input.complete);
        endTold_ = input.complete && !input[endInputKey].hasKeyword();
        if (endTold_)
            add("end-of-input-missing", object.keyword);
        if (input.complete)
            keep(object, input);
        return input.complete;
    }

    void keep(const InputPart& object, const InputText& input) {
        const auto keyword = [&](KeyCode code) { return places_.of(input[code].keyword); };
        const auto number = [&](KeyCode code) {
            const InputPart& part = input[code];
            return places_.of(part.real || part.whole ? part.value : part.keyword);
        };
        report_.inputs.push_back({
            .object = object.kept(),
            .instance = input[findInstanceKey].kept(),
            .counter = input[findCounterKey].kept(),
            .name = input[nameIsKey].kept(),
            .window = input[windowSizeKey].real.value_or(0.0),
            .method = clampToInt32(input[analyticalMethodKey].whole.value_or(0)),
            .upperLimit = input[upperLimitAbsKey].real.value_or(0.0),
            .objectPlace = places_.of(object.keyword),
            .instancePlace = keyword(findInstanceKey),
            .counterPlace = keyword(findCounterKey),
            .namePlace = keyword(nameIsKey),
            .windowPlace = number(windowSizeKey),
            .methodPlace = number(analyticalMethodKey),
            .upperLimitPlace = number(upperLimitAbsKey),
        });
    }

    // --- one part

    void tellPart(const InputPart& part, bool mayBeMissing) {
        const Passed passed = passedOver(part);
        for (const Word& word : passed.words)
            tellOddWord(word);
        if (part.hasKeyword())
            lastKeyword_ = part.keyword;
        if (part.hasKeyword() || mayBeMissing)
            tellPassed(passed.words, part.code);
        else
            tellMissing(passed, part.code);
        if (part.hasKeyword() && part.shape == PartValue::argument)
            tellArgument(part);
        else if (part.hasKeyword() && part.shape != PartValue::none)
            tellNumber(part);
    }

    void tellMissing(const Passed& passed, KeyCode code) {
        if (passed.openComment)
            add("comment-not-closed", *passed.openComment, OpeningCommentText);
        else
            add("keyword-missing", lastKeyword_, {}, keywordOf(code));
    }

    void tellArgument(const InputPart& part) {
        const std::string_view keyword = keywordOf(part.code);
        if (!part.argument) {
            if (part.end < text_.size())
                add("byte-255", part.end, text_.substr(part.end, 1), keyword);
            else
                add("argument-missing", part.keyword, {}, keyword);
            return;
        }
        const auto& [before, whole, kept] = *part.argument;
        const std::size_t at = placeIn(whole);
        if (!stripped(before).empty())
            add("words-before-argument", part.keyword, stripped(before), keyword);
        const std::size_t nul = whole.find('\0');
        if (nul != std::string_view::npos)
            add("argument-cut-at-nul", at, whole.substr(0, nul), keyword);
        else if (kept.size() < whole.size())
            add("argument-too-long", at, whole.substr(kept.size()), keyword).number =
                static_cast<std::int64_t>(whole.size());
        if (whole.find('\n') != std::string_view::npos)
            add("argument-spans-lines", at, whole, keyword);
        else if (stripped(whole).size() < whole.size())
            add("argument-with-outer-blank", at, whole, keyword);
    }

    void tellNumber(const InputPart& part) {
        const std::string_view keyword = keywordOf(part.code);
        const std::string_view spelled = text_.substr(part.value, part.end - part.value);
        const std::string_view rest = leadingWord(text_.substr(part.end));
        if (!part.real && !part.whole) {
            add("value-malformed", rest.empty() ? part.keyword : part.end, rest, keyword);
            told_ = part.end;
        } else if (!rest.empty() && !isKeyword(rest)) {
            add("value-with-rest", part.end, rest, keyword).read = spelled;
            told_ = part.end;
        }
        if (part.real && !std::isfinite(*part.real))
            add("value-not-finite", part.value, spelled, keyword);
        if (part.whole && clampToInt32(*part.whole) != *part.whole)
            add("number-out-of-range", part.value, spelled, keyword).number = clampToInt32(*part.whole);
    }

    // --- what is passed over on the way to a keyword

    /// Tells of closing marks in comments that close nothing.
    Passed passedOver(const InputPart& part) {
        Passed passed;
        TextScanner walk(text_.substr(0, part.hasKeyword() ? part.keyword : text_.size()));
        walk.moveTo(part.sought);
        while (const auto word = walk.word()) {
            if (*word != OpeningCommentText) {
                if (passed.words.size() < mostPassed)
                    passed.words.push_back({*word, placeIn(*word)});
                continue;
            }
            noteComment(placeIn(*word));
            const std::size_t inside = walk.position();
            const bool isClosed = CommentFunction(*word, walk) == 1;
            tellGluedEnd(text_.substr(inside, walk.position() - inside));
            if (!isClosed)
                passed.openComment = placeIn(*word);
        }
        return passed;
    }

    void noteComment(std::size_t at) {
        if (!firstComment_)
            firstComment_ = at;
    }

    void tellGluedEnd(std::string_view comment) {
        TextScanner walk(comment);
        while (const auto word = walk.word())
            if (closes(*word)) {
                add("comment-mark-glued", placeIn(*word), *word).number = 1;
                return;
            }
    }

    /// Anything may stand before the beginning; only inputs do not belong there, and a comment that is none.
    void tellBeginning(const InputPart& beginning) {
        const Passed passed = passedOver(beginning);
        if (!beginning.isThere()) {
            for (const Word& word : passed.words)
                if (resembles(word.text, BeginResourceDeclarationText))
                    tellHint(word);
            tellMissing(passed, beginning.code);
            return;
        }
        lastKeyword_ = beginning.keyword;
        tellInputs(passed.words, beginning.code);
        const Word* open = nullptr;
        for (const Word& word : passed.words) {
            if (opens(word.text))
                open = &word;
            if (word.text.ends_with(ClosingCommentText))
                open = nullptr;
        }
        if (open != nullptr) {
            add("comment-mark-glued", open->at, open->text);
            inGluedComment_ = true;
        }
    }

    /// Tells of a word that looks like a comment mark or a keyword and is none.
    void tellOddWord(const Word& word) {
        if (!opens(word.text) && !closes(word.text)) {
            inGluedComment_ = inGluedComment_ && word.text != ClosingCommentText;
            tellHint(word);
            return;
        }
        const bool isEnd = word.text.ends_with(ClosingCommentText);
        if (!inGluedComment_ || !isEnd)
            add("comment-mark-glued", word.at, word.text);
        inGluedComment_ = !isEnd;
    }

    void tellHint(const Word& word) {
        const std::string_view keyword = meant(word.text);
        if (!keyword.empty())
            add(word.text.size() == keyword.size() ? "keyword-in-other-case" : "keyword-glued", word.at,
                word.text, keyword);
    }

    static bool beginsInput(const Word& word, KeyCode sought) {
        return word.text == FindObjectText ||
               (word.text == BeginResourceInputText && sought != findObjectKey);
    }

    void tellPassed(const std::vector<Word>& words, KeyCode sought) {
        const auto input = std::find_if(words.begin(), words.end(),
                                        [&](const Word& word) { return beginsInput(word, sought); });
        const std::span<const Word> before(words.begin(), input);
        if (std::none_of(before.begin(), before.end(),
                         [](const Word& word) { return !meant(word.text).empty(); }))
            tellFirst(before, sought);
        tellInputs(words, sought);
    }

    /// The first keyword that is passed over stands for all words; without one, the first word does.
    void tellFirst(std::span<const Word> words, KeyCode sought) {
        const auto known = std::find_if(words.begin(), words.end(), [](const Word& word) {
            return isKeyword(word.text) && word.text != BeginResourceInputText;
        });
        if (known != words.end())
            add("keyword-out-of-place", known->at, known->text, keywordOf(sought));
        else
            tellIgnored(words, sought);
    }

    void tellIgnored(std::span<const Word> words, KeyCode sought) {
        bool inComment = false;
        for (const Word& word : words) {
            inComment = inComment || opens(word.text);
            const bool isTold = inComment || word.at == told_ || closes(word.text);
            if (!isTold && word.text != BeginResourceInputText) {
                add("word-ignored", word.at, word.text, keywordOf(sought));
                return;
            }
            inComment = inComment && !word.text.ends_with(ClosingCommentText);
        }
    }

    /// An input begins with the one keyword or, without it, with the other.
    void tellInputs(const std::vector<Word>& words, KeyCode sought) {
        bool isBegun = false;
        for (const Word& word : words) {
            const bool isObject = word.text == FindObjectText;
            const bool isBegin = !isObject && beginsInput(word, sought);
            if (isBegin || (isObject && !isBegun))
                add("input-skipped", word.at, word.text, keywordOf(sought));
            isBegun = (isBegun || isBegin) && !isObject;
        }
    }

    // --- behind the last input

    void tellEnd(const DeclarationEnd& end) {
        const auto inputBehind = firstInput(end.unread);
        const std::size_t left = placeIn(end.unread) + inputBehind.value_or(0);
        const std::int64_t line = inputBehind ? places_.of(left).line : 0;
        const std::size_t at = placeIn(end.next.value_or(end.unread));
        if (objectKind(end.object.kept()) == ObjectKind::file) {
            add("object-file", lastKeyword_, end.object.kept()).number = line;
        } else if (!end.next && !endTold_) {
            add("end-of-declarations-missing", lastKeyword_);
        } else if (end.next == OpeningCommentText) {
            if (inputBehind)
                add("comment-between-inputs", at).number = line;
            else
                noteComment(at);
        } else if (end.next && *end.next != EndResourceDeclarationText) {
            tellOddWord({*end.next, at});
            add("declarations-end-early", at, *end.next).number = line;
        } else if (inputBehind) {
            add("input-after-end", left);
        }
    }

    std::string_view text_;
    TextPlaces places_;
    TextScanner scanner_;
    ParseLosses losses_{};
    DeclarationReport report_{};
    std::size_t lastKeyword_ = 0;
    std::size_t told_ = InputPart::nowhere; ///< the place of a word of which something was told
    std::optional<std::size_t> firstComment_{};
    bool inGluedComment_ = false;
    bool endTold_ = false;
};

} // namespace

DeclarationReport checkDeclarations(std::string_view text) {
    return DeclarationChecker(text).check();
}

} // namespace obrin
