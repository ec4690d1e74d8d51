#include "resources/linkLogic.h"

#include "agent/debugLog.h"
#include "resources/resourceChain.h"
#include "resources/resourceInput.h"

#include <algorithm>
#include <optional>
#include <string>

namespace obrin {

namespace {

/// Registers the link that stands for the input itself, at the second try if need be: what memory was refused
/// to for a moment would be missing for the whole run.
Registration registerDeclared(InputReading& input, Link& link) {
    Registration registration = registerLink(input.scratchPad, &link);
    if (registration == Registration::failed)
        registration = registerLink(input.scratchPad, &link);
    input.linkMissing = registration == Registration::failed;
    return registration;
}

/// Reads the rest of an input of that object and registers its template, which `link` becomes. Nothing when
/// the input cannot be read.
std::optional<Registration> takeTemplate(InputReading& input, Link& link, const char* object) {
    link.ResourceType = 2;
    link.Descriptor0 = object;
    if (!readResourceInput(input, link, type2FailureTexts))
        return std::nullopt;
    link.Descriptor3 = "-1";
    return registerDeclared(input, link);
}

void registerProcesses(ScratchPad& scratchPad, Link& link, const std::vector<std::int32_t>& pids, int count) {
    for (int i = 0; i < count; ++i) {
        link.Descriptor3.assign(std::to_string(pids[static_cast<std::size_t>(i)]));
        registerLink(scratchPad, &link);
    }
}

} // namespace

Registration registerLink(ScratchPad& scratchPad, Link* link) {
    if (CheckForDuplicateLinkInChain(link) == 2)
        return Registration::alreadyInChain;
    std::int32_t stored = 0;
    link->awaitsHistory = CheckForDuplicateLinkInFileAndGetRID(scratchPad, link, &stored) == 2;
    if (link->awaitsHistory)
        link->RID = stored;
    else if (GenerateNewRID(link) != 1)
        return Registration::failed;
    else
        RecordLinkForRIDCollision(scratchPad, link);
    return CreateLinkInChainAndCopyData(link) == 1 ? Registration::inserted : Registration::failed;
}

int Type1ResourceLinkLogic(InputReading& input, std::string_view objectName) {
    Link link;
    link.ResourceType = 1;
    link.Descriptor0 = objectName;
    if (!readResourceInput(input, link, type1FailureTexts))
        return -1;
    link.Descriptor3 = "-2";
    registerDeclared(input, link);
    return 1;
}

int ProcessLinkLogicEngine(InputReading& input, const InstanceEnumeration& instances) {
    Link link;
    const auto registration = takeTemplate(input, link, "Process");
    if (!registration)
        return -1;
    if (*registration == Registration::alreadyInChain)
        return 1;
    const char* object = link.Descriptor0.c_str();
    const char* instance = link.Descriptor1.c_str();
    const int expected = instances.numberOfProcesses(object, instance);
    if (expected < 0) {
        DEBUGMSG("\n\nThere is a problem with retrieving the number of PIDs ");
        DEBUGMSG("for process %s at point A. \n", instance);
        return -1;
    }
    if (expected == 0)
        return 1;
    std::vector<std::int32_t> pids(static_cast<std::size_t>(expected));
    const int found = instances.processes(object, instance, expected, pids.data());
    if (found < 0) {
        DEBUGMSG("\n\nThere is a problem with retrieving the number of PIDs ");
        DEBUGMSG("for process %s at point B.", instance);
        return -2;
    }
    registerProcesses(input.scratchPad, link, pids, std::min(found, expected));
    return 1;
}

int DiskLinkLogicEngine(InputReading& input, const InstanceEnumeration& instances) {
    Link link;
    const auto registration = takeTemplate(input, link, "LogicalDisk");
    if (!registration)
        return -1;
    if (*registration == Registration::alreadyInChain)
        return 1;
    nameDisk(link.Descriptor1.view());
    const int expected = instances.numberOfDisks();
    if (expected < 0) {
        DEBUGMSG("\n\nThere is a problem with retrieving the number of disks ");
        DEBUGMSG("for %s at point A. \n", link.Descriptor1.c_str());
        return -1;
    }
    if (expected == 0)
        return 1;
    std::vector<DiskName> names;
    const int found = instances.disks(expected, &names);
    if (found < 0) {
        DEBUGMSG("\n\nThere is a problem with retrieving the number of disks ");
        DEBUGMSG("for process %s at point B.", link.Descriptor1.c_str());
        return -2;
    }
    // The listing may have changed between the count and the names: only what was named is there.
    const auto count =
        std::min({names.size(), static_cast<std::size_t>(found), static_cast<std::size_t>(expected)});
    link.Descriptor3 = "-2";
    for (std::size_t i = 0; i < count; ++i) {
        link.Descriptor1 = names[i].view();
        registerLink(input.scratchPad, &link);
    }
    return 1;
}

} // namespace obrin
