#include "resources/resourceText.h"

#include "agent/debugLog.h"
#include "resources/declarationReading.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <sys/stat.h>

namespace obrin {

namespace {

/// Hands the input of that object to its engine and says in the log what failed. False when the parse must
/// end.
bool readInput(InputReading& input, const std::string& object, const InstanceEnumeration& instances) {
    int result = 1;
    switch (objectKind(object)) {
    case ObjectKind::process:
        result = ProcessLinkLogicEngine(input, instances);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing this process link.\n\n");
        if (result == -2)
            DEBUGMSG("\n\nProblem processing process link (not severe).\n\n");
        break;
    case ObjectKind::disk:
        result = DiskLinkLogicEngine(input, instances);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing this disk link.\n\n");
        if (result == -2)
            DEBUGMSG("\n\nProblem processing this disk link (not severe).\n\n");
        break;
    case ObjectKind::file:
        break;
    case ObjectKind::ordinary:
        result = Type1ResourceLinkLogic(input, object);
        if (result == -1)
            DEBUGMSG("\n\nSevere err processing link with %s in res.txt %s.\n", object.c_str(),
                     input.clasp->ResourceText.c_str());
    }
    return result != -1;
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
    bool linkMissing = false;
    if (!readBeginning(scanner).isThere()) {
        DEBUGMSG("\n\nStr 'BeginResourceDeclaration' not found res.txt %s.\n\n", file);
        return {};
    }
    const auto take = [&](const InputPart& object) {
        input.linkMissing = false;
        const bool taken = readInput(input, std::string(object.kept()), instances);
        linkMissing = linkMissing || input.linkMissing;
        return taken;
    };
    const DeclarationEnd end = walkInputs(scanner, input.losses, std::cref(take));
    if (end.kind == DeclarationEnd::Kind::complete)
        return {1, linkMissing ? "a resource of it could not be taken up" : end.loss};
    if (end.kind == DeclarationEnd::Kind::noObject && !end.object.hasKeyword())
        DEBUGMSG("\n\nThe string 'FindObject' not found in resource text %s.\n", file);
    if (end.kind == DeclarationEnd::Kind::noObject && end.object.hasKeyword())
        DEBUGMSG("\n\nArgument post 'FindObject' not found resource.txt %s.\n\n", file);
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
    const auto text = readGivenFile(clasp->ResourceText);
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
