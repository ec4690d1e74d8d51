#include "resources/scratchPad.h"

#include "agent/debugLog.h"
#include "resources/resourceChain.h"
#include "resources/scratchPadRecord.h"
#include "support/immortal.h"
#include "support/safeOpen.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace obrin {

namespace {

Descriptor openToAppend(const std::string& path) {
    return openOwn(path, O_WRONLY | O_APPEND | O_CREAT);
}

/// Whether the text of a record reads back as the resource that it was written for.
bool survives(const std::string& text, const std::string& identity, std::int32_t rid) {
    unsigned sections = 0;
    bool same = false;
    SectionSplitter splitter([&](std::string_view section) {
        const auto record = parseScratchPadSection(section);
        same = ++sections == 1 && record && record->identity == identity && record->rid == rid;
    });
    splitter.feed(text);
    splitter.finish();
    return same;
}

std::uint64_t hashOf(const std::string& identity) {
    return std::hash<std::string>()(identity);
}

/// Whether the record that stands there is that of a resource. One that cannot be read counts as it.
bool isAbout(int fd, std::int64_t offset, std::uint32_t length, const std::string& identity) {
    std::string section(length, '\0');
    if (::pread(fd, section.data(), length, offset) < 0)
        return true;
    const auto record = parseScratchPadSection(section);
    return record && record->identity == identity;
}

/// So many records wait to be sorted in; a search goes through them one by one.
constexpr std::size_t mostUnsorted = 1024;

} // namespace

ScratchPad::ScratchPad(std::string path) : path_(std::move(path)) {}

ScratchPad::FileState ScratchPad::stateOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

bool ScratchPad::precedes(const Record& a, const Record& b) {
    return std::pair(a.hash, a.offset) < std::pair(b.hash, b.offset);
}

bool ScratchPad::ensureExists() {
    return static_cast<bool>(openToAppend(path_));
}

bool ScratchPad::refresh() {
    return static_cast<bool>(openUpToDate());
}

/// Brings the index up to date; the file, unless it cannot be read.
Descriptor ScratchPad::openUpToDate() {
    Descriptor file = openOwn(path_, O_RDONLY);
    if (!file) {
        const int reason = errno;
        noteReadProblem(reason == ENOENT ? 0 : reason);
        if (reason == ENOENT && seen_)
            readAnew(-1);
        return {};
    }
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0) {
        noteReadProblem(errno);
        return {};
    }
    if (seen_ == stateOf(status))
        return file;
    if (!readAnew(file.get()))
        return {};
    seen_ = stateOf(status);
    if (passedOver_ > 0)
        DEBUGMSG("Scratch pad %s: %u incomplete or contradicting records passed over\n", path_.c_str(),
                 passedOver_);
    return file;
}

/// False when the file cannot be read to its end: then the old index stays.
bool ScratchPad::readAnew(int fd) {
    // Beside the old index, which stays also when memory is refused on the way: half an index would give the
    // numbers of the other half away again.
    ScratchPad fresh(path_);
    // Numbers of this run stay taken also while their records are only in memory.
    fresh.unwritten_ = unwritten_;
    const int reason = fd >= 0 ? fresh.readAll(fd) : 0;
    noteReadProblem(reason);
    if (reason != 0)
        return false;
    fresh.sortOut();
    fresh.unsynchronised_ = unsynchronised_;
    *this = std::move(fresh);
    return true;
}

/// Why the file cannot be read to its end; 0 when it was.
int ScratchPad::readAll(int fd) {
    SectionSplitter splitter(
        [&](std::string_view section) { takeSection(section, splitter.sectionBegin()); });
    char block[65536];
    off_t at = 0;
    ssize_t got = 0;
    while ((got = ::pread(fd, block, sizeof block, at)) > 0) {
        splitter.feed({block, static_cast<std::size_t>(got)});
        at += got;
    }
    if (got < 0)
        return errno;
    splitter.finish();
    return 0;
}

void ScratchPad::takeSection(std::string_view section, std::int64_t begin) {
    const auto record = parseScratchPadSection(section);
    if (!record) {
        // A header alone is the record of a link without a type of its own, and nothing is missing from it.
        const std::size_t line = section.find('\n');
        const bool headerAlone =
            line != section.npos && section.find_first_not_of("\r\n\t ", line) == section.npos;
        if (!headerAlone)
            ++passedOver_;
        return;
    }
    lastRid_ = record->rid;
    records_.push_back(
        {hashOf(record->identity), begin, static_cast<std::uint32_t>(section.size()), record->rid});
}

/// Leaves of all records, in whatever order, those that own their numbers: the first with each, unless a
/// record in memory has it.
void ScratchPad::sortOut() {
    std::vector<std::int32_t> taken;
    for (const UnwrittenRecord& record : unwritten_)
        if (record.isOwner)
            taken.push_back(record.rid);
    std::ranges::sort(taken);
    std::ranges::sort(records_, {},
                      [](const Record& record) { return std::pair(record.rid, record.offset); });
    highestRid_ = std::max(taken.empty() ? 0 : taken.back(), records_.empty() ? 0 : records_.back().rid);

    std::vector<Record> others;
    std::int32_t rid = 0;
    std::erase_if(records_, [&](const Record& record) {
        const bool isOwner = record.rid != rid && !std::ranges::binary_search(taken, record.rid);
        rid = record.rid;
        if (!isOwner)
            others.push_back(record);
        return !isOwner;
    });
    std::ranges::sort(records_, precedes);
    records_.shrink_to_fit();
    // One that repeats what is known of its resource contradicts nothing.
    for (const Record& other : others) {
        const auto first = std::ranges::lower_bound(records_, Record{other.hash, 0, 0, 0}, precedes);
        const bool isKnown =
            first != records_.end() && first->hash == other.hash && first->offset < other.offset;
        passedOver_ += isKnown || isUnwritten(other.hash) ? 0U : 1U;
    }
}

bool ScratchPad::isUnwritten(std::uint64_t hash) const {
    return std::ranges::any_of(unwritten_, [&](const UnwrittenRecord& record) {
        return record.isOwner && hashOf(record.identity) == hash;
    });
}

bool ScratchPad::isTaken(std::int32_t rid) const {
    const auto has = [rid](const auto& record) { return record.rid == rid; };
    return rid <= highestRid_ && (std::ranges::any_of(records_, has) || std::ranges::any_of(newest_, has) ||
                                  std::ranges::any_of(unwritten_, has));
}

/// The number of a resource. Without a descriptor to look with, what the hash says counts.
std::optional<std::int32_t> ScratchPad::numberOf(const std::string& identity, int fd) const {
    for (const UnwrittenRecord& record : unwritten_)
        if (record.isOwner && record.identity == identity)
            return record.rid;
    const std::uint64_t hash = hashOf(identity);
    const auto isIt = [&](const Record& record) {
        return record.hash == hash && (fd < 0 || isAbout(fd, record.offset, record.length, identity));
    };
    for (auto at = std::ranges::lower_bound(records_, Record{hash, 0, 0, 0}, precedes);
         at != records_.end() && at->hash == hash; ++at)
        if (isIt(*at))
            return at->rid;
    const auto at = std::ranges::find_if(newest_, isIt);
    return at == newest_.end() ? std::nullopt : std::optional(at->rid);
}

void ScratchPad::noteReadProblem(int reason) {
    if (reason != 0 && reason != readProblem_)
        DEBUGMSG("Cannot read scratch pad %s: %s\n", path_.c_str(), whyNotOpened(reason));
    readProblem_ = reason;
}

/// Where the text begins in the file; nothing when it could not be written.
std::optional<std::int64_t> ScratchPad::append(const std::string& text) {
    Descriptor file = openToAppend(path_);
    struct stat before = {};
    int reason = 0;
    if (!file || ::fstat(file.get(), &before) != 0) {
        reason = errno;
    } else {
        if (!writeAll(file.get(), text.data(), text.size())) {
            reason = errno;
            takeBack(file.get(), before);
        }
        // Foreign changes since the last reading are still to be read: the old state is kept then.
        struct stat after = {};
        const bool unchanged = seen_ ? seen_ == stateOf(before) : before.st_size == 0;
        if (unchanged && ::fstat(file.get(), &after) == 0)
            seen_ = stateOf(after);
        if (file.close() != 0 && reason == 0)
            reason = errno;
    }
    if (reason != 0) {
        DEBUGMSG("Cannot write scratch pad %s: %s\n", path_.c_str(), whyNotOpened(reason));
        return std::nullopt;
    }
    unsynchronised_ = true;
    return before.st_size;
}

void ScratchPad::takeBack(int fd, const struct stat& before) {
    if (::ftruncate(fd, before.st_size) != 0)
        DEBUGMSG("Cannot take back part of a record in %s: %s\n", path_.c_str(), std::strerror(errno));
}

bool ScratchPad::writeUnwritten() {
    newest_.reserve(newest_.size() + unwritten_.size()); // what the file has, the index must get
    auto record = unwritten_.begin();
    for (; record != unwritten_.end(); ++record) {
        const auto begin = append(record->text);
        if (!begin)
            break;
        if (!record->identity.empty())
            lastRid_ = record->rid;
        if (record->isOwner) // behind the line feed that the text begins with
            newest_.push_back({hashOf(record->identity), *begin + 1,
                               static_cast<std::uint32_t>(record->text.size() - 1), record->rid});
    }
    unwritten_.erase(unwritten_.begin(), record);
    if (newest_.size() > mostUnsorted)
        sortIn();
    return unwritten_.empty();
}

void ScratchPad::sortIn() {
    const auto old = static_cast<std::ptrdiff_t>(records_.size());
    records_.insert(records_.end(), newest_.begin(), newest_.end());
    newest_.clear();
    std::ranges::sort(records_.begin() + old, records_.end(), precedes);
    std::ranges::inplace_merge(records_, records_.begin() + old, precedes);
}

bool ScratchPad::settle() {
    const bool allWritten = writeUnwritten();
    if (unsynchronised_) {
        Descriptor file = openOwn(path_, O_WRONLY);
        unsynchronised_ = !file || ::fdatasync(file.get()) != 0;
    }
    return allWritten;
}

ScratchPad& scratchPadOf(const Clasp& clasp) {
    static Immortal<ScratchPad> pad{std::string()};
    if (pad->path() != clasp.ScratchPad)
        *pad = ScratchPad(clasp.ScratchPad);
    return *pad;
}

int RetrieveMaximumRIDFromScratchPadFile(ScratchPad& pad) {
    pad.refresh();
    return pad.lastRid_;
}

int CheckForDuplicateLinkInFileAndGetRID(ScratchPad& pad, const Link* link, std::int32_t* rid) {
    const Descriptor file = pad.openUpToDate();
    if (link->pClasp != nullptr)
        link->pClasp->MaximumRIDValue = std::max(link->pClasp->MaximumRIDValue, pad.highestRid_);
    const auto found = pad.numberOf(linkIdentity(*link), file ? file.get() : -1);
    *rid = found.value_or(-2);
    return found ? 2 : -2;
}

int RecordLinkForRIDCollision(ScratchPad& pad, const Link* link) {
    std::string text = scratchPadRecordText(*link);
    std::string identity = linkIdentity(*link);
    if (!identity.empty() && !survives(text, identity, link->RID)) {
        DEBUGMSG("A name that the scratch pad cannot hold is not stored: %s\n", link->Descriptor1.c_str());
        return -1;
    }
    const bool isOwner = !identity.empty() && !pad.isTaken(link->RID);
    if (!identity.empty())
        pad.highestRid_ = std::max(pad.highestRid_, link->RID);
    pad.unwritten_.push_back({std::move(identity), link->RID, std::move(text), isOwner});
    return pad.writeUnwritten() ? 1 : -1;
}

} // namespace obrin
