#pragma once

#include "tests/support/temporaryDirectory.h"

#include <regex>
#include <string>

namespace obrin::test {

/// A source file of the project with its neighbouring string literals joined: where a text stands that
/// nothing can bring about in a run.
inline std::string sourceText(const std::string& file) {
    return std::regex_replace(readFile(std::string(LUMETRA_SOURCES) + "/" + file),
                              std::regex("\"\\s*\n\\s*\""), "");
}

} // namespace obrin::test
