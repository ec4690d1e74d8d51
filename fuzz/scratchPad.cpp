// The scratch pad: whatever stands in it, no number names two resources and a known one keeps its own.

#include "fuzz/target.h"
#include "resources/linkLogic.h"
#include "resources/resourceChain.h"
#include "resources/scratchPadRecord.h"

#include <map>
#include <set>

namespace obrin::fuzz::scratchPad {
namespace {

std::vector<std::string> sectionsOf(std::string_view text, std::size_t block) {
    std::vector<std::string> sections;
    SectionSplitter splitter([&](std::string_view section) { sections.emplace_back(section); });
    for (; !text.empty(); text.remove_prefix(std::min(block, text.size())))
        splitter.feed(text.substr(0, block));
    splitter.finish();
    return sections;
}

std::vector<Link> recordsOf(std::string_view text) {
    std::vector<Link> records;
    for (const std::string& section : sectionsOf(text, text.size() + 1)) {
        Link link;
        if (!readScratchPadSection(section, &link))
            continue;
        const auto again = parseScratchPadSection(scratchPadRecordText(link).substr(1));
        require(again && again->rid == link.RID && again->identity == linkIdentity(link),
                "a record that is written reads back the same");
        records.push_back(std::move(link));
    }
    return records;
}

/// The resources that are declared beside those of the scratch pad.
std::vector<Link> declared(std::string_view input, Clasp* clasp) {
    std::vector<Link> links;
    const auto add = [&](std::int32_t type, std::string_view object, std::string_view instance) {
        Link& link = links.emplace_back();
        link.ResourceType = type;
        link.Descriptor0 = object;
        link.Descriptor1 = instance;
        link.Descriptor2 = "counter";
        link.Descriptor3 = "-2";
        link.WindowSize = -1;
        link.pClasp = clasp;
    };
    add(1, "PercentProcessesUsed", "_Total");
    add(2, "LogicalDisk", "/dev/sda1 /");
    add(2, "LogicalDisk", "tmpfs /mnt/)   (counter)   -2   (");
    add(2, "LogicalDisk", input.substr(0, 40));
    return links;
}

std::int32_t numberOf(ScratchPad& pad, const Link& link) {
    std::int32_t rid = 0;
    CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid);
    return rid;
}

void check(std::string_view input) {
    static const std::string path = workFile("ScratchPad.txt");
    writeWorkFile(path, input);
    require(sectionsOf(input, 1) == sectionsOf(input, input.size() + 1) &&
                sectionsOf(input, 7) == sectionsOf(input, input.size() + 1),
            "sections are the same in whatever blocks they come");
    const std::vector<Link> records = recordsOf(input);

    Clasp clasp;
    clasp.MillisecondsPerSample = -1;
    ScratchPad pad(path);
    std::map<std::string, std::int32_t> known;
    std::set<std::int32_t> taken;
    for (const Link& record : records) {
        known[linkIdentity(record)] = numberOf(pad, record);
        taken.insert(record.RID);
    }
    for (Link& link : declared(input, &clasp))
        registerLink(pad, &link);
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
        const auto old = known.find(linkIdentity(*link));
        if (old != known.end() && old->second > 0)
            require(link->RID == old->second, "a known resource keeps its number");
        else
            require(!taken.contains(link->RID), "a new resource gets a number that nobody has");
        require(link->pNextLink == nullptr || link->RID < link->pNextLink->RID, "no number is given twice");
    }

    ScratchPad later(path);
    for (const Link& record : records)
        require(known[linkIdentity(record)] <= 0 || numberOf(later, record) == known[linkIdentity(record)],
                "the next run knows the old numbers");
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        require(numberOf(pad, *link) == numberOf(later, *link), "the next run knows the new numbers");
    ScanUpChainDeletingAllLinks(&clasp);
}

const Target target("scratchPad", check);

} // namespace
} // namespace obrin::fuzz::scratchPad
