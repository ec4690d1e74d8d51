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

} // namespace

ScratchPad::ScratchPad(std::string path) : path_(std::move(path)) {}

ScratchPad::FileState ScratchPad::stateOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

bool ScratchPad::ensureExists() {
    return static_cast<bool>(openToAppend(path_));
}

bool ScratchPad::refresh() {
    Descriptor file = openOwn(path_, O_RDONLY);
    if (!file) {
        const int reason = errno;
        noteReadProblem(reason == ENOENT ? 0 : reason);
        if (reason == ENOENT && seen_)
            readAnew(-1);
        return false;
    }
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0) {
        noteReadProblem(errno);
        return false;
    }
    if (seen_ == stateOf(status))
        return true;
    readAnew(file.get());
    seen_ = stateOf(status);
    if (passedOver_ > 0)
        DEBUGMSG("Scratch pad %s: %u incomplete or contradicting records passed over\n", path_.c_str(),
                 passedOver_);
    return true;
}

void ScratchPad::readAnew(int fd) {
    // Beside the old index, which stays when memory is refused on the way: half an index would give the
    // numbers of the other half away again.
    ScratchPad fresh(path_);
    fresh.readProblem_ = readProblem_;
    // Numbers of this run stay taken also while their records are only in memory.
    for (const UnwrittenRecord& record : unwritten_)
        fresh.claim(record.identity, record.rid);
    if (fd >= 0)
        fresh.readAll(fd);
    fresh.unwritten_.swap(unwritten_);
    fresh.unsynchronised_ = unsynchronised_;
    *this = std::move(fresh);
}

void ScratchPad::readAll(int fd) {
    SectionSplitter splitter([this](std::string_view section) { takeSection(section); });
    char block[65536];
    int reason = 0;
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            reason = errno;
        if (got <= 0)
            break;
        splitter.feed({block, static_cast<std::size_t>(got)});
    }
    splitter.finish();
    noteReadProblem(reason);
}

void ScratchPad::takeSection(std::string_view section) {
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
    if (!claim(record->identity, record->rid))
        ++passedOver_;
}

bool ScratchPad::claim(const std::string& identity, std::int32_t rid) {
    if (identity.empty())
        return true;
    highestRid_ = std::max(highestRid_, rid);
    const auto known = ridByIdentity_.find(identity);
    if (usedRids_.insert(rid).second) {
        ridByIdentity_.try_emplace(identity, rid);
        return true;
    }
    return known != ridByIdentity_.end();
}

void ScratchPad::noteReadProblem(int reason) {
    if (reason != 0 && reason != readProblem_)
        DEBUGMSG("Cannot read scratch pad %s: %s\n", path_.c_str(), whyNotOpened(reason).c_str());
    readProblem_ = reason;
}

bool ScratchPad::append(const std::string& text) {
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
    if (reason != 0)
        DEBUGMSG("Cannot write scratch pad %s: %s\n", path_.c_str(), whyNotOpened(reason).c_str());
    else
        unsynchronised_ = true;
    return reason == 0;
}

void ScratchPad::takeBack(int fd, const struct stat& before) {
    if (::ftruncate(fd, before.st_size) != 0)
        DEBUGMSG("Cannot take back part of a record in %s: %s\n", path_.c_str(), std::strerror(errno));
}

bool ScratchPad::writeUnwritten() {
    std::size_t written = 0;
    while (written < unwritten_.size() && append(unwritten_[written].text)) {
        if (!unwritten_[written].identity.empty())
            lastRid_ = unwritten_[written].rid;
        ++written;
    }
    unwritten_.erase(unwritten_.begin(), unwritten_.begin() + static_cast<std::ptrdiff_t>(written));
    return unwritten_.empty();
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
    pad.refresh();
    if (link->pClasp != nullptr)
        link->pClasp->MaximumRIDValue = std::max(link->pClasp->MaximumRIDValue, pad.highestRid_);
    const auto record = pad.ridByIdentity_.find(linkIdentity(*link));
    const bool found = record != pad.ridByIdentity_.end();
    *rid = found ? record->second : -2;
    return found ? 2 : -2;
}

int RecordLinkForRIDCollision(ScratchPad& pad, const Link* link) {
    std::string text = scratchPadRecordText(*link);
    std::string identity = linkIdentity(*link);
    if (!identity.empty() && !survives(text, identity, link->RID)) {
        DEBUGMSG("A name that the scratch pad cannot hold is not stored: %s\n", link->Descriptor1.c_str());
        return -1;
    }
    // First the record, then the claim: a number that the index knows and the file never gets would be given
    // away again by the next run.
    pad.unwritten_.push_back({std::move(identity), link->RID, std::move(text)});
    try {
        pad.claim(pad.unwritten_.back().identity, link->RID);
    } catch (...) {
        pad.unwritten_.pop_back();
        throw;
    }
    return pad.writeUnwritten() ? 1 : -1;
}

} // namespace obrin
