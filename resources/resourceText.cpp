#include "resources/resourceText.h"

#include "agent/debugLog.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <optional>
#include <sys/stat.h>

namespace obrin {

namespace {

/// Hands the input of that object to its engine and says in the log what failed. False when the parse must
/// end.
bool readInput(InputReading& input, const std::string& object, const InstanceEnumeration& instances) {
    int result = 1;
    if (object == "Process") {
        result = ProcessLinkLogicEngine(input, instances);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing this process link.\n\n");
        if (result == -2)
            DEBUGMSG("\n\nProblem processing process link (not severe).\n\n");
    } else if (object == "LogicalDisk") {
        result = DiskLinkLogicEngine(input, instances);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing this disk link.\n\n");
        if (result == -2)
            DEBUGMSG("\n\nProblem processing this disk link (not severe).\n\n");
    } else if (object != "File") {
        result = Type1ResourceLinkLogic(input, object);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing link with %s in res.txt %s.\n", object.c_str(),
                     input.clasp->ResourceText.c_str());
    }
    return result != -1;
}

const char* lossOf(const InputReading& input, bool sawFile, std::string_view unread) {
    if (sawFile)
        return "an input of object File has no place in it";
    if (input.losses.input || (!input.losses.ended && holdsInput(unread)))
        return "it holds an input that was not read";
    if (input.losses.argument)
        return "an argument in it was cut";
    return nullptr;
}

/// Whether the text is not the whole file: it is longer than a text may be, or reading it failed on the way.
bool readShort(const std::string& path, std::string_view text) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           static_cast<std::uintmax_t>(status.st_size) != text.size();
}

int finish(Clasp* clasp, const ParseResult& parsed, bool wholeText) {
    const char* loss = parsed.loss == nullptr && !wholeText ? "it was not read to its end" : parsed.loss;
    clasp->declarationsComplete = parsed.result == 1 && loss == nullptr;
    clasp->declarationLoss = loss;
    if (parsed.result != 1)
        return parsed.result;
    if (loss != nullptr)
        DEBUGMSG("%s is not rewritten in this run: %s\n", clasp->ResourceText.c_str(), loss);
    DEBUGMSG("Leaving validateResourceText\n");
    return 1;
}

} // namespace

ParseResult parseResourceText(std::string_view text, Clasp* clasp, ScratchPad& scratchPad,
                              const InstanceEnumeration& instances) {
    const char* file = clasp->ResourceText.c_str();
    TextScanner scanner(text);
    InputReading input{scanner, scratchPad, clasp};
    bool sawFile = false;
    bool linkMissing = false;
    if (ScanForKeyCode(beginDeclarationKey, scanner) != 1) { // what stands before it declares nothing
        DEBUGMSG("\n\nStr 'BeginResourceDeclaration' not found res.txt %s.\n\n", file);
        return {};
    }
    while (ScanForKeyCode(findObjectKey, scanner, &input.losses) == 1) {
        std::string token;
        if (RetrieveArgument(&token, scanner, &input.losses) != 1) {
            DEBUGMSG("\n\nArgument post 'FindObject' not found resource.txt %s.\n\n", file);
            return {};
        }
        input.linkMissing = false;
        input.losses.ended = false; // an end before this input was none
        sawFile = sawFile || token == "File";
        if (!readInput(input, token, instances))
            return {};
        linkMissing = linkMissing || input.linkMissing;
        const std::string_view unread = scanner.rest();
        // At the end of the text the object's name stays in the place of the token, as it always did.
        if (const auto next = scanner.word())
            token = *next;
        CommentFunction(token, scanner);
        if (token != BeginResourceInputText)
            return {1,
                    linkMissing ? "a resource of it could not be taken up" : lossOf(input, sawFile, unread)};
    }
    DEBUGMSG("\n\nThe string 'FindObject' not found in resource text %s.\n", file);
    return {};
}

int validateResourceText(Clasp* clasp) {
    return validateResourceText(clasp, InstanceEnumeration{});
}

int validateResourceText(Clasp* clasp, const InstanceEnumeration& instances) {
    clasp->declarationsComplete = false;
    DEBUGMSG("Entering validateResourceText\n");
    ScratchPad& scratchPad = scratchPadOf(*clasp);
    const bool appendable = scratchPad.ensureExists();
    const bool readable = scratchPad.refresh();
    // The places of two stream handles: what matters to a reader of the log is whether they are 0.
    DEBUGMSG(" after aScratchPad=0x%08x\n", appendable ? 1U : 0U);
    DEBUGMSG(" after rScratchPad=0x%08x\n", readable ? 1U : 0U);
    if (readable)
        clasp->MaximumRIDValue =
            std::max(clasp->MaximumRIDValue, RetrieveMaximumRIDFromScratchPadFile(scratchPad));
    const auto text = readWholeFile(clasp->ResourceText);
    DEBUGMSG(" after ResourceText=0x%08x\n", text ? 1U : 0U);
    if (!text) {
        DEBUGMSG("Error opening Resource text file %s\n", clasp->ResourceText.c_str());
        return -1;
    }
    const ParseResult parsed = parseResourceText(*text, clasp, scratchPad, instances);
    scratchPad.settle();
    return finish(clasp, parsed, !readShort(clasp->ResourceText, *text));
}

} // namespace obrin
