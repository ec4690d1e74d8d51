#pragma once

#include "resources/resourceTokens.h"
#include "support/textScanner.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace obrin {

// The grammar of the declaration file, for all who read it: what stands in a text, and where. Nothing here
// logs, remembers or touches anything but its arguments. Any thread. Places are bytes of the text; texts are
// parts of it.

/// What follows a keyword.
enum class PartValue { none, argument, real, whole };

/// A keyword and what follows it.
struct InputPart {
    static constexpr std::size_t nowhere = std::string_view::npos;

    KeyCode code = noKey;
    PartValue shape = PartValue::none;
    std::size_t sought = 0;        ///< where the search for the keyword began
    std::size_t keyword = nowhere; ///< where it stands; nowhere when it is missing
    std::optional<Argument> argument{};
    std::optional<double> real{};
    std::optional<std::int64_t> whole{}; ///< of any size that 64 bits hold, else the nearest
    std::size_t value = 0;               ///< where the number stands, or what is in its place
    std::size_t end = 0;                 ///< where the reading of this part ended

    bool hasKeyword() const { return keyword != nowhere; }
    bool isThere() const { return hasKeyword() && (shape != PartValue::argument || argument); }
    /// What counts of the argument; empty without one.
    std::string_view kept() const { return argument ? argument->kept : std::string_view(); }
};

/// What an object asks of its input.
enum class ObjectKind { ordinary, process, disk, file };
ObjectKind objectKind(std::string_view object);

/// An input from behind its object's argument on.
struct InputText {
    static constexpr std::size_t mostParts = 11;

    std::array<InputPart, mostParts> read{};
    std::size_t count = 0;
    bool complete = false; ///< false: the last part that was read is missing, or its argument is

    std::span<const InputPart> parts() const { return {read.data(), count}; }
    /// The part of that keyword; one without anything when the reading did not come to it.
    const InputPart& operator[](KeyCode code) const;
};

/// Reads the keywords of an input in their order, up to and including "EndResourceInput", which an ordinary
/// object's input may lack at the end of the text. A number that is none is not there; everything else that
/// is missing ends the reading. Notes in `losses` what was passed over and dropped.
InputText readInputText(std::string_view object, TextScanner& text, ParseLosses& losses);

/// Moves behind "BeginResourceDeclaration"; what stands before it declares nothing.
InputPart readBeginning(TextScanner& text);

/// How the walk over the inputs ended.
struct DeclarationEnd {
    enum class Kind {
        noObject, ///< an input should follow, and its object or the object's argument is not there
        refused,  ///< whoever took the inputs wanted no more
        complete,
    };
    Kind kind = Kind::noObject;
    InputPart object{};                     ///< of the last input
    std::string_view unread{};              ///< the text behind it
    std::optional<std::string_view> next{}; ///< its first word; nothing at the end of the text
    /// Of a complete walk: null, or why the text must not be replaced by one that is written from its inputs.
    const char* loss = nullptr;
};

/// Walks over the inputs from behind the beginning and hands the object of each to `take`, which reads the
/// rest of the input from `text` (nothing of one whose object is a file) and says whether to go on.
DeclarationEnd walkInputs(TextScanner& text, ParseLosses& losses,
                          const std::function<bool(const InputPart& object)>& take);

} // namespace obrin
