#pragma once

#include "acquisition/instances.h"
#include "resources/resourceRecords.h"
#include "resources/resourceTokens.h"
#include "resources/scratchPad.h"
#include "support/textScanner.h"

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace obrin {

// The engines that turn one resource input of the declaration file into links of the chain. Each is called
// behind the input's object argument, reads the rest of the input and registers what it stands for. Agent
// thread.
//
// Results: 1 the input was taken, also when its resource was in the chain before; -1 a failure that ends the
// whole parse, logged with clasp->ResourceText as the file's name; -2 a failure that concerns this input
// only.

/// Where the instances of a declaration come from; the machine's own enumeration by default.
struct InstanceEnumeration {
    std::function<int()> numberOfDisks = GetNumberOfdisks;
    std::function<int(int, std::vector<DiskName>*)> disks = Retrievedisks;
    std::function<int(const char*, const char*)> numberOfProcesses = GetNumberOfPIDsPerProcess;
    std::function<int(const char*, const char*, int, std::int32_t*)> processes = RetrievePIDsGivenProcess;
};

/// What an input is read into, and what of it could not be kept.
struct InputReading {
    TextScanner& text;
    ScratchPad& scratchPad;
    Clasp* clasp;
    ParseLosses losses{};
    /// Set when the input's own link (for a process or disk input its template) is not in the chain
    /// afterwards.
    bool linkMissing = false;
};

/// What became of a link that was to be registered.
enum class Registration { alreadyInChain, inserted, failed };

/// Gives the link its stored RID, or a new one that is recorded in the scratch pad, and inserts a copy of it
/// into its owner's chain; nothing when the chain has it. A record that cannot be written does not stop the
/// insertion.
Registration registerLink(ScratchPad& scratchPad, Link* link);

/// One link of type 1 for any object without an engine of its own.
int Type1ResourceLinkLogic(InputReading& input, std::string_view objectName);

/// The template of a process declaration, and a link for each process that the enumeration reports.
int ProcessLinkLogicEngine(InputReading& input, const InstanceEnumeration& instances);

/// The template of a disk declaration, and a link for each disk that the enumeration reports.
int DiskLinkLogicEngine(InputReading& input, const InstanceEnumeration& instances);

} // namespace obrin
