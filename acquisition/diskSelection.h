#pragma once

#include "support/textFindings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace obrin {

// Which of the listed disks a run watches. Only a host sets rules (setSkipRules); without any, every disk of
// the listing is watched, and the table of mounts that is read here is not even opened.

/// Why something is not watched. The numbers are those of agent/hostFeed.h.
enum class LeftOutKind : std::int32_t {
    other = 0,      ///< no disk, or for want of memory
    nature = 1,     ///< a file system that is full by its nature
    repeat = 2,     ///< another mount of a file system that is watched
    type = 3,       ///< a rule on types
    pattern = 4,    ///< a rule on mount points
    unreadable = 5, ///< what the listing says of it cannot be used
};

/// Something that is not watched.
struct LeftOutDisk {
    std::string text; ///< its name, or its line of the listing
    LeftOutKind kind = LeftOutKind::other;
    std::string rule;     ///< a rule as it is written; of what is full by its nature the type; else empty
    std::string reason{}; ///< for a person
};

// --- rules

/// One rule: of LeftOutKind::type the name of a type, of LeftOutKind::pattern a pattern of fnmatch(3) for
/// mount points, byte by byte, in which no wildcard matches a "/".
struct SkipRule {
    LeftOutKind kind = LeftOutKind::type;
    std::string argument;
    std::string text; ///< as a line
    Place place;
};

using SkipRules = std::vector<SkipRule>;

/// Lines "fstype NAME" and "mount PATTERN". A "#" at the beginning of a line or behind a blank begins a
/// comment; blanks at the ends do not count. What cannot be read is told and is no rule:
///   skip-line-malformed    text: the line; it begins with neither word, or has a zero byte
///   skip-type-malformed    text: what stands behind "fstype"; it is not one word
///   skip-pattern-relative  text: what stands behind "mount"; it does not begin with a "/"
/// The findings hold parts of the text. Any thread.
SkipRules parseSkipRules(std::string_view text, TextFindings& findings);

/// The rules of every run that begins from now on, besides those on nature and repetition that go with any;
/// nothing for a run that watches all. Any thread.
void setSkipRules(std::optional<SkipRules> rules);

// --- the table of mounts

struct Mount {
    std::string mountPoint;
    std::string type;
    std::string device; ///< "major:minor" of its file system, which every mount of it shares
    bool readOnly = false;
};

/// The mounts of the machine at one moment, as proc(5) lays out mountinfo. Of mounts one above the other, the
/// newest counts.
class MountInfo {
public:
    /// Reads the table (systemPaths().mountInfo); nothing when it cannot be read or holds no mount.
    static std::optional<MountInfo> read();
    static MountInfo parse(std::string_view text);

    const std::vector<Mount>& mounts() const { return mounts_; }

    struct Found {
        const Mount* mount = nullptr;
        bool ambiguous = false; ///< several mount points are listed so
    };

    /// The mount at a mount point that is spelt as `df` prints it.
    Found find(std::string_view listedMountPoint) const;

private:
    void add(std::string_view entry);

    std::vector<Mount> mounts_;
    std::unordered_map<std::string, std::size_t> byMountPoint_;
    std::unordered_map<std::string, std::size_t> byListed_; ///< mounts_.size() or more: ambiguous
};

/// Whether a rule speaks of a mount.
bool speaksOf(const SkipRule& rule, const Mount& mount);

// --- the selection. Agent thread.

/// Begins a run with the rules that were set last. No disk is named.
void beginSelectionRun();

/// Begins a cycle: the table is read anew when it is needed, once.
void beginSelectionCycle();

/// A declaration has this instance: no rule leaves out the disk of that name.
void nameDisk(std::string_view instance);
bool isNamedDisk(std::string_view instance);

/// Judges the disks of one listing, in its order.
class SelectionPass {
public:
    SelectionPass();

    /// Why a disk is left out, nothing when it is watched. When the table cannot be read every disk is.
    std::optional<LeftOutDisk> judge(std::string_view device, std::string_view listedMountPoint);

private:
    std::optional<LeftOutDisk> judgeMount(const Mount& mount) const;

    std::unordered_map<std::string_view, const Mount*> watched_; ///< by device, the first of each
};

/// Whether the newest pass left out this disk, or what is mounted in its place now.
bool isLeftOut(std::string_view instance, std::string_view mountPoint);

} // namespace obrin
