#pragma once

#include "resources/resourceRecords.h"
#include "support/handles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

struct stat;

namespace obrin {

/// The scratch-pad file: one record for every resource ever declared, so that it keeps its RID across runs.
/// Only ever appended to. Agent thread only.
///
/// The file is read once, and of each record the index keeps 24 bytes: a hash of what it is about, its number
/// and where it stands; a search reads the record itself. The file is read again only when the file is no
/// longer the one last seen (another size, inode or modification time than after our own last append). Only
/// complete records count: a torn record, wherever it stands, and text that is no record are passed over,
/// with one log line a reading. No descriptor stays open between calls.
///
/// One number never names two resources:
///  - the first record with a number owns it; a later record that gives it to another resource does not
///  count;
///  - a search raises MaximumRIDValue of the link's owner to the highest number of any record, and inserting
///  a link into
///    the chain raises it to that link's (see CreateLinkInChainAndCopyData), so that GenerateNewRID never
///    meets a number that is in use, whatever order the records have;
///  - a record that could not be written is kept in memory: the search finds it, and every later append or
///  settle() tries
///    again to write it, before anything newer.
class ScratchPad {
public:
    explicit ScratchPad(std::string path);

    const std::string& path() const { return path_; }

    /// Makes the file when it is missing. Whether it can be opened to be appended to.
    bool ensureExists();

    /// Brings the index up to date. Whether the file could be read. A file that is not there any more empties
    /// the index; any other failure (no descriptor left, say) leaves it as it was until the file can be read,
    /// and is logged when the reason is new.
    bool refresh();

    /// Highest number of all records, those that are yet to be written included; 0 if there is none.
    std::int32_t highestRid() const { return highestRid_; }

    /// Writes the records that could not be written before, and sees what was appended on the disk, so that a
    /// power cut after it takes no number back. Cheap when there is nothing to do. False when a record is
    /// still only in memory.
    bool settle();

private:
    friend int RetrieveMaximumRIDFromScratchPadFile(ScratchPad& pad);
    friend int CheckForDuplicateLinkInFileAndGetRID(ScratchPad& pad, const Link* link, std::int32_t* rid);
    friend int RecordLinkForRIDCollision(ScratchPad& pad, const Link* link);

    /// What tells one state of the file from another.
    struct FileState {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        bool operator==(const FileState&) const = default;
    };

    struct UnwrittenRecord {
        std::string identity; ///< empty for a header alone
        std::int32_t rid = 0;
        std::string text;
        bool isOwner = false; ///< no other resource has its number
    };

    /// A record in the file that owns its number.
    struct Record {
        std::uint64_t hash = 0;   ///< of the identity
        std::int64_t offset = 0;  ///< of the section in the file
        std::uint32_t length = 0; ///< of the section
        std::int32_t rid = 0;
    };

    static FileState stateOf(const struct stat& status);
    Descriptor openUpToDate();
    bool readAnew(int fd);
    int readAll(int fd);
    void takeSection(std::string_view section, std::int64_t begin);
    void sortOut();
    void sortIn();
    static bool precedes(const Record& a, const Record& b);
    bool isUnwritten(std::uint64_t hash) const;
    bool isTaken(std::int32_t rid) const;
    std::optional<std::int32_t> numberOf(const std::string& identity, int fd) const;
    bool writeUnwritten();
    std::optional<std::int64_t> append(const std::string& text);
    void takeBack(int fd, const struct stat& before);
    void noteReadProblem(int reason);

    std::string path_;
    std::optional<FileState> seen_; ///< nothing: not read, or missing when last looked for

    // The index.
    std::vector<Record> records_; ///< in the order of hash and offset
    std::vector<Record> newest_;  ///< appended since, a few that are yet to be sorted in
    std::int32_t lastRid_ = 0;
    std::int32_t highestRid_ = 0;
    unsigned passedOver_ = 0; ///< torn or contradicting records of the last reading

    std::vector<UnwrittenRecord> unwritten_; ///< oldest first
    bool unsynchronised_ = false;
    int readProblem_ = 0; ///< errno that was logged last
};

/// The scratch pad of the run, one for all who ask, so that its index is built once and what could not be
/// written is not forgotten. Another name in clasp.ScratchPad makes another one in its place. Agent thread
/// only.
ScratchPad& scratchPadOf(const Clasp& clasp);

/// The RID of the last complete record, 0 if there is none.
int RetrieveMaximumRIDFromScratchPadFile(ScratchPad& pad);

/// 2 with `*rid` the stored RID when a record of the same type and the same four descriptors exists (the
/// first such record counts); -2 with `*rid` = -2 otherwise. Raises MaximumRIDValue of the link's owner to
/// the highest stored RID.
int CheckForDuplicateLinkInFileAndGetRID(ScratchPad& pad, const Link* link, std::int32_t* rid);

/// Appends the record of `link`, whole or not at all, and makes the file when it is missing. 1; -1 with a log
/// line that names the file and the reason when it cannot be written now: the number stays the link's all the
/// same (see settle()). -1 also for a name that the format cannot hold (one with a header of the format in
/// it); its number is not stored.
int RecordLinkForRIDCollision(ScratchPad& pad, const Link* link);

} // namespace obrin
