#pragma once

#include "resources/linkLogic.h"

namespace obrin {

/// What is logged, with the declaration file's name, when a part of an input cannot be found.
struct InputFailureTexts {
    const char* findInstance;
    const char* instanceArgument;
    const char* findCounter;
    const char* counterArgument;
    const char* windowSize;
    const char* nameIs;
    const char* nameIsArgument;
    const char* endResourceInput; ///< null: the input may end with the file
};

/// The two families of engines word their messages differently; each keeps its own.
extern const InputFailureTexts type1FailureTexts;
extern const InputFailureTexts type2FailureTexts;

/// Reads an input from behind its object argument up to and including "EndResourceInput" into the link, and
/// makes the input's clasp its owner. A number that is none leaves its field at 0. False, logged, when a part
/// is missing.
bool readResourceInput(InputReading& input, Link& link, const InputFailureTexts& texts);

} // namespace obrin
