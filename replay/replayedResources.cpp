#include "replay/replayedResources.h"

#include "resources/declarationFindings.h"
#include "resources/declarationReading.h"
#include "resources/scratchPadRecord.h"
#include "resources/windowSizing.h"
#include "support/textScanner.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <unordered_set>

namespace obrin {
namespace {

/// What tells one resource from all others.
struct Identity {
    std::int32_t type = 0;
    std::array<std::string_view, 4> descriptors{};
};

/// Takes apart what linkIdentity() put together.
Identity takeApart(std::string_view identity) {
    Identity parts;
    parts.type = identity.front() - '0';
    std::size_t at = 1;
    for (std::string_view& descriptor : parts.descriptors) {
        const std::size_t end = std::min(identity.find('\0', at + 1), identity.size());
        descriptor = identity.substr(at + 1, end - at - 1);
        at = end;
    }
    return parts;
}

bool declares(const DeclaredInput& input, const Identity& resource) {
    const auto& [object, instance, counter, identifier] = resource.descriptors;
    if (input.object != object || input.counter != counter)
        return false;
    switch (objectKind(input.object)) {
    case ObjectKind::ordinary:
        return resource.type == 1 && input.instance == instance;
    case ObjectKind::process:
        return resource.type == 2 && identifier != "-1" && input.instance == instance;
    case ObjectKind::disk:
        return resource.type == 2 && identifier != "-1";
    case ObjectKind::file:
        break;
    }
    return false;
}

double longestWindow(std::span<const DeclaredInput> inputs, double automatic) {
    double longest = 0.0;
    for (const DeclaredInput& input : inputs)
        longest = std::max(longest, input.window < 0 ? automatic : input.window);
    return longest;
}

std::unique_ptr<Link> makeLink(const Identity& resource, std::int32_t rid, const DeclaredInput& input) {
    auto link = std::make_unique<Link>();
    link->ResourceType = resource.type;
    link->RID = rid;
    link->Descriptor0.assign(resource.descriptors[0]);
    link->Descriptor1.assign(resource.descriptors[1]);
    link->Descriptor2.assign(resource.descriptors[2]);
    link->Descriptor3.assign(resource.descriptors[3]);
    link->NameIs.assign(input.name);
    link->WindowSize = input.window;
    link->AnalyticalMethod = input.method;
    return link;
}

} // namespace

ReplayedResources::ReplayedResources(std::string_view declarations, std::string_view scratchPad,
                                     const ReplaySettings& settings) {
    const DeclarationReport report = checkDeclarations(declarations);
    const double automatic = defaultWindow(settings.maxForecastHours);
    period_ = settings.millisecondsPerSample == -1 ? automaticPeriod(longestWindow(report.inputs, automatic))
                                                   : settings.millisecondsPerSample;
    period_ = clampToInt32(std::int64_t{period_} * std::max(settings.every, 1));

    std::unordered_set<std::int32_t> owned; // the first record with a number owns it
    SectionSplitter splitter([&](std::string_view section) {
        const auto record = parseScratchPadSection(section);
        if (!record || record->identity.empty() || !owned.insert(record->rid).second)
            return;
        highestRid_ = std::max(highestRid_, record->rid);
        const Identity resource = takeApart(record->identity);
        const auto input = std::ranges::find_if(
            report.inputs, [&](const DeclaredInput& declared) { return declares(declared, resource); });
        if (input == report.inputs.end())
            return;
        auto link = makeLink(resource, record->rid, *input);
        if (link->WindowSize < 0 || isShorterThanPeriod(link->WindowSize, period_))
            link->WindowSize = automatic;
        links_.emplace(record->rid, std::move(link));
    });
    splitter.feed(scratchPad);
    splitter.finish();
}

Link* ReplayedResources::find(std::int32_t rid) const {
    const auto found = links_.find(rid);
    return found == links_.end() ? nullptr : found->second.get();
}

} // namespace obrin
