#pragma once

#include "resources/linkLogic.h"
#include "resources/resourceRecords.h"

#include <string>
#include <string_view>

namespace obrin {

// The declaration file: read once at the start, rewritten from the chain after every cycle. Its grammar and
// an example are in docs/formats.md.

/// Reads the declaration file clasp->ResourceText once and builds the chain. 1; -1 on a severe failure, which
/// is logged; the links made until then stay in the chain. Sets clasp->declarationsComplete to whether the
/// whole file was understood and every declared link is in the chain; when a parse that succeeds leaves
/// something out, one log line says what and that the file is not rewritten in this run. Makes the scratch
/// pad when it is missing. Start-up only, agent thread.
int validateResourceText(Clasp* clasp);

/// As validateResourceText, with the instances of process and disk declarations from elsewhere.
int validateResourceText(Clasp* clasp, const InstanceEnumeration& instances);

/// What a parse came to. `loss` is null, or why the text must not be replaced by one written from the chain.
struct ParseResult {
    int result = -1;
    const char* loss = nullptr;
};

/// The parse itself, of a text that stands in the file clasp->ResourceText (which is only named in messages).
/// Agent thread.
ParseResult parseResourceText(std::string_view text, Clasp* clasp, ScratchPad& scratchPad,
                              const InstanceEnumeration& instances);

/// The declaration file as it is written from the chain: every link but the instances of processes and disks,
/// with an automatic window. `timeText` is ctime's, its line feed included.
std::string resourceTextFromChain(const Clasp& clasp, std::string_view timeText);

/// Rewrites the declaration file from the chain, whole or not at all, and synchronised to the disk; where
/// nothing but its date is new, that alone is written into it, and not waited for; the old file stays (with a
/// log line that names the file and the reason) when the new one cannot be written, and always when
/// clasp->declarationsComplete is false. Always 1.
int update_autoresource_file(Clasp* clasp);

} // namespace obrin
