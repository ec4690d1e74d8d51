#include "replay/replayedResources.h"

#include "resources/declarationFindings.h"
#include "resources/declarationReading.h"
#include "resources/scratchPadRecord.h"
#include "resources/windowSizing.h"
#include "support/textScanner.h"

#include <algorithm>
#include <span>
#include <unordered_set>

namespace obrin {
namespace {

bool declares(const DeclaredInput& input, const Link& resource) {
    if (!(resource.Descriptor0 == input.object) || !(resource.Descriptor2 == input.counter))
        return false;
    switch (objectKind(input.object)) {
    case ObjectKind::ordinary:
        return resource.ResourceType == 1 && resource.Descriptor1 == input.instance;
    case ObjectKind::process:
        return resource.ResourceType == 2 && !isTemplate(resource) && resource.Descriptor1 == input.instance;
    case ObjectKind::disk:
        return resource.ResourceType == 2 && !isTemplate(resource);
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
        auto link = std::make_unique<Link>();
        if (!readScratchPadSection(section, link.get()) || !owned.insert(link->RID).second)
            return;
        highestRid_ = std::max(highestRid_, link->RID);
        const auto input = std::ranges::find_if(
            report.inputs, [&](const DeclaredInput& declared) { return declares(declared, *link); });
        if (input == report.inputs.end())
            return;
        link->NameIs.assign(input->name);
        link->WindowSize = input->window;
        link->AnalyticalMethod = input->method;
        if (link->WindowSize < 0 || isShorterThanPeriod(link->WindowSize, period_))
            link->WindowSize = automatic;
        links_.emplace(link->RID, std::move(link));
    });
    splitter.feed(scratchPad);
    splitter.finish();
}

Link* ReplayedResources::find(std::int32_t rid) const {
    const auto found = links_.find(rid);
    return found == links_.end() ? nullptr : found->second.get();
}

} // namespace obrin
