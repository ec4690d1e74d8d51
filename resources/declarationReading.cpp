#include "resources/declarationReading.h"

#include <algorithm>

namespace obrin {
namespace {

struct PartShape {
    KeyCode code;
    PartValue value;
};

constexpr std::array<PartShape, InputText::mostParts> inputShape{{
    {findInstanceKey, PartValue::argument},
    {findCounterKey, PartValue::argument},
    {windowSizeKey, PartValue::real},
    {nameIsKey, PartValue::argument},
    {analyticalMethodKey, PartValue::whole},
    {upperLimitAbsKey, PartValue::real},
    {upperLimitCalcKey, PartValue::real},
    {lowerLimitAbsKey, PartValue::real},
    {lowerLimitCalcKey, PartValue::real},
    {culpritMarkerKey, PartValue::argument},
    {endInputKey, PartValue::none},
}};

InputPart readPart(PartShape shape, TextScanner& text, ParseLosses* losses) {
    InputPart part{.code = shape.code, .shape = shape.value, .sought = text.position()};
    if (ScanForKeyCode(shape.code, text, losses) == 1) {
        part.keyword = text.position() - keywordOf(shape.code).size();
        if (shape.value == PartValue::argument)
            part.argument = takeArgument(text, losses);
        else if (shape.value != PartValue::none)
            text.skipWhiteSpace();
        part.value = text.position();
        if (shape.value == PartValue::real)
            part.real = text.real();
        if (shape.value == PartValue::whole)
            part.whole = text.integer();
    }
    part.end = text.position();
    return part;
}

const char* lossOf(const ParseLosses& losses, bool sawFile, std::string_view unread) {
    if (sawFile)
        return "an input of object File has no place in it";
    if (losses.input || (!losses.ended && holdsInput(unread)))
        return "it holds an input that was not read";
    if (losses.argument)
        return "an argument in it was cut";
    return nullptr;
}

} // namespace

ObjectKind objectKind(std::string_view object) {
    if (object == "Process")
        return ObjectKind::process;
    if (object == "LogicalDisk")
        return ObjectKind::disk;
    return object == "File" ? ObjectKind::file : ObjectKind::ordinary;
}

const InputPart& InputText::operator[](KeyCode code) const {
    static constexpr InputPart none{};
    const auto there = parts();
    const auto found =
        std::find_if(there.begin(), there.end(), [code](const InputPart& part) { return part.code == code; });
    return found == there.end() ? none : *found;
}

InputText readInputText(std::string_view object, TextScanner& text, ParseLosses& losses) {
    const bool mayEndWithTheText = objectKind(object) == ObjectKind::ordinary;
    InputText input;
    for (const PartShape& shape : inputShape) {
        const InputPart& part = input.read[input.count++] = readPart(shape, text, &losses);
        if (!part.isThere() && !(part.code == endInputKey && mayEndWithTheText))
            return input;
    }
    input.complete = true;
    return input;
}

InputPart readBeginning(TextScanner& text) {
    return readPart({beginDeclarationKey, PartValue::none}, text, nullptr);
}

DeclarationEnd walkInputs(TextScanner& text, ParseLosses& losses,
                          const std::function<bool(const InputPart& object)>& take) {
    DeclarationEnd end;
    bool sawFile = false;
    // At the end of the text the object's name stays in the place of the next word, as it always did.
    for (std::string_view word = BeginResourceInputText; word == BeginResourceInputText;
         word = end.next.value_or(end.object.kept())) {
        end.object = readPart({findObjectKey, PartValue::argument}, text, &losses);
        end.kind = DeclarationEnd::Kind::noObject;
        if (!end.object.isThere())
            return end;
        losses.ended = false; // an end before this input was none
        end.kind = DeclarationEnd::Kind::refused;
        if (!take(end.object))
            return end;
        sawFile = sawFile || objectKind(end.object.kept()) == ObjectKind::file;
        end.unread = text.rest();
        end.next = text.word();
    }
    end.kind = DeclarationEnd::Kind::complete;
    end.loss = lossOf(losses, sawFile, end.unread);
    return end;
}

} // namespace obrin
