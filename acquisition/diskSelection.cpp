#include "acquisition/diskSelection.h"

#include "acquisition/textForms.h"
#include "support/immortal.h"
#include "support/mutex.h"
#include "support/numericLocale.h"
#include "support/systemPaths.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <array>
#include <fnmatch.h>
#include <iterator>
#include <memory>
#include <unordered_set>
#include <utility>

namespace obrin {
namespace {

// --- the text of rules

constexpr std::string_view blanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(blanks) + 1));
    return text;
}

/// What stands before a comment.
std::string_view withoutComment(std::string_view line) {
    for (std::size_t mark = line.find('#'); mark != std::string_view::npos; mark = line.find('#', mark + 1))
        if (mark == 0 || blanks.find(line[mark - 1]) != std::string_view::npos)
            return line.substr(0, mark);
    return line;
}

/// What is wrong with the argument of a rule; empty for nothing.
std::string_view flawOf(LeftOutKind kind, std::string_view argument) {
    if (kind == LeftOutKind::type)
        return argument.empty() || argument.find_first_of(blanks) != std::string_view::npos
                   ? "skip-type-malformed"
                   : "";
    return argument.starts_with("/") ? "" : "skip-pattern-relative";
}

class RuleReader {
public:
    RuleReader(std::string_view text, TextFindings& findings)
        : text_(text), places_(text), findings_(findings) {}

    SkipRules read() {
        for (std::size_t begin = 0; begin < text_.size();) {
            const std::size_t end = std::min(text_.find('\n', begin), text_.size());
            const std::string_view line = trimmed(withoutComment(text_.substr(begin, end - begin)));
            if (!line.empty())
                readLine(line);
            begin = end + 1;
        }
        return std::move(rules_);
    }

private:
    void readLine(std::string_view line) {
        const std::size_t wordEnd = std::min(line.find_first_of(blanks), line.size());
        const std::string_view word = line.substr(0, wordEnd);
        const std::string_view argument = trimmed(line.substr(wordEnd));
        const bool isKnown = word == "fstype" || word == "mount";
        const LeftOutKind kind = word == "fstype" ? LeftOutKind::type : LeftOutKind::pattern;
        const Place place = places_.of(static_cast<std::size_t>(line.data() - text_.data()));
        if (!isKnown || line.find('\0') != std::string_view::npos)
            findings_.push_back({.kind = "skip-line-malformed", .place = place, .text = line});
        else if (const std::string_view flaw = flawOf(kind, argument); !flaw.empty())
            findings_.push_back({.kind = flaw, .place = place, .text = argument});
        else
            rules_.push_back(
                {kind, std::string(argument), std::string(word) + " " + std::string(argument), place});
    }

    std::string_view text_;
    TextPlaces places_;
    TextFindings& findings_;
    SkipRules rules_;
};

// --- what is left out anyway

/// Images: written once, to the last block. One of type udf can be a medium that is written on, too.
constexpr std::array<std::string_view, 5> fullByNature{"squashfs", "iso9660", "erofs", "cramfs", "romfs"};

bool isFullByNature(const Mount& mount) {
    return std::ranges::find(fullByNature, mount.type) != fullByNature.end() ||
           (mount.type == "udf" && mount.readOnly);
}

// --- the state of selecting

Mutex rulesLock;

struct NextRules {
    std::shared_ptr<const SkipRules> rules GUARDED_BY(rulesLock); ///< null: all is watched
};
Immortal<NextRules> nextRules;

/// Agent thread.
struct SelectionState {
    std::shared_ptr<const SkipRules> rules; ///< of the run
    bool tableIsRead = false;               ///< in this cycle
    std::optional<MountInfo> table;
    std::unordered_set<std::string> named;
    // By the newest pass, where a rule left them out.
    std::unordered_set<std::string> leftOutNames;
    std::unordered_set<std::string> leftOutMountPoints;
};
Immortal<SelectionState> selection;

const std::optional<MountInfo>& tableOfCycle() {
    if (!selection->tableIsRead)
        selection->table = MountInfo::read();
    selection->tableIsRead = true;
    return selection->table;
}

bool hasOption(std::string_view options, std::string_view wanted) {
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        if (options.substr(0, end) == wanted)
            return true;
        options.remove_prefix(std::min(end + 1, options.size()));
    }
    return false;
}

std::vector<std::string_view> fieldsOf(std::string_view entry) {
    std::vector<std::string_view> fields;
    fields.reserve(11);
    while (!entry.empty()) {
        const std::size_t end = std::min(entry.find(' '), entry.size());
        fields.push_back(entry.substr(0, end));
        entry.remove_prefix(std::min(end + 1, entry.size()));
    }
    return fields;
}

} // namespace

SkipRules parseSkipRules(std::string_view text, TextFindings& findings) {
    return RuleReader(text, findings).read();
}

void setSkipRules(std::optional<SkipRules> rules) {
    auto next = rules ? std::make_shared<const SkipRules>(std::move(*rules)) : nullptr;
    const MutexLock lock(rulesLock);
    nextRules->rules.swap(next);
}

std::optional<MountInfo> MountInfo::read() {
    const auto text = readWholeFile(systemPaths().mountInfo);
    if (!text)
        return std::nullopt;
    MountInfo table = parse(*text);
    return table.mounts_.empty() ? std::nullopt : std::optional(std::move(table));
}

MountInfo MountInfo::parse(std::string_view text) {
    MountInfo table;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        table.add(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    for (std::size_t i = 0; i < table.mounts_.size(); ++i)
        for (const bool asciiOnly : {false, true}) {
            const auto [entry, isNew] =
                table.byListed_.emplace(asListed(table.mounts_[i].mountPoint, asciiOnly), i);
            if (!isNew && entry->second != i)
                entry->second = table.mounts_.size();
        }
    return table;
}

void MountInfo::add(std::string_view entry) {
    // 36 35 98:0 /root /mount/point options optional:fields - type source super,options
    constexpr std::size_t leastFields = 10;
    const std::vector<std::string_view> fields = fieldsOf(entry);
    const auto separator = std::find(fields.begin() + std::min<std::ptrdiff_t>(6, std::ssize(fields)),
                                     fields.end(), std::string_view("-"));
    if (fields.size() < leastFields || fields.end() - separator < 4)
        return;
    Mount mount{decodeOctal(fields[4]), decodeOctal(separator[1]), std::string(fields[2]),
                hasOption(fields[5], "ro") || hasOption(separator[3], "ro")};
    const auto [known, isNew] = byMountPoint_.emplace(mount.mountPoint, mounts_.size());
    if (isNew)
        mounts_.push_back(std::move(mount));
    else
        mounts_[known->second] = std::move(mount);
}

MountInfo::Found MountInfo::find(std::string_view listedMountPoint) const {
    const auto found = byListed_.find(asListed(listedMountPoint, false));
    if (found == byListed_.end())
        return {};
    if (found->second >= mounts_.size())
        return {nullptr, true};
    return {&mounts_[found->second], false};
}

bool speaksOf(const SkipRule& rule, const Mount& mount) {
    if (rule.kind == LeftOutKind::type)
        return mount.type == rule.argument;
    const NumericLocale bytes; // the locale of whoever started the agent changes no rule
    return ::fnmatch(rule.argument.c_str(), mount.mountPoint.c_str(), FNM_PATHNAME) == 0;
}

void beginSelectionRun() {
    *selection = SelectionState{};
    const MutexLock lock(rulesLock);
    selection->rules = nextRules->rules;
}

void beginSelectionCycle() {
    selection->tableIsRead = false;
}

void nameDisk(std::string_view instance) {
    selection->named.emplace(instance);
}

bool isNamedDisk(std::string_view instance) {
    return selection->named.contains(std::string(instance));
}

SelectionPass::SelectionPass() {
    selection->leftOutNames.clear();
    selection->leftOutMountPoints.clear();
}

std::optional<LeftOutDisk> SelectionPass::judge(std::string_view device, std::string_view listedMountPoint) {
    if (!selection->rules || !tableOfCycle())
        return std::nullopt;
    std::string name = std::string(device) + " " + std::string(listedMountPoint);
    const bool isNamed = isNamedDisk(name);
    const auto [mount, ambiguous] = tableOfCycle()->find(listedMountPoint);
    if (ambiguous || (isNamed && mount == nullptr))
        return std::nullopt;
    if (mount == nullptr) // it came or went a moment ago: the next cycle knows more of it
        return LeftOutDisk{std::move(name), LeftOutKind::unreadable, "",
                           "the table of mounts does not have it yet, or any more"};
    std::optional<LeftOutDisk> leftOut = isNamed ? std::nullopt : judgeMount(*mount);
    if (!leftOut) {
        watched_.emplace(mount->device, mount);
        return std::nullopt;
    }
    selection->leftOutNames.insert(name);
    selection->leftOutMountPoints.emplace(listedMountPoint);
    leftOut->text = std::move(name);
    return leftOut;
}

std::optional<LeftOutDisk> SelectionPass::judgeMount(const Mount& mount) const {
    if (isFullByNature(mount))
        return LeftOutDisk{"", LeftOutKind::nature, mount.type,
                           "a file system of the type " + mount.type + " is full by its nature"};
    for (const SkipRule& rule : *selection->rules)
        if (speaksOf(rule, mount))
            return LeftOutDisk{"", rule.kind, rule.text, "the rule \"" + rule.text + "\" leaves it out"};
    const auto first = watched_.find(mount.device);
    if (first == watched_.end() || first->second == &mount)
        return std::nullopt;
    return LeftOutDisk{"", LeftOutKind::repeat, "",
                       "it is the same file system as " + first->second->mountPoint};
}

bool isLeftOut(std::string_view instance, std::string_view mountPoint) {
    return !isNamedDisk(instance) && (selection->leftOutNames.contains(std::string(instance)) ||
                                      selection->leftOutMountPoints.contains(std::string(mountPoint)));
}

} // namespace obrin
