#pragma once

#include "support/handles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace obrin {

// Reading the archive, of whatever size, in flat memory: a block at a time, however long its lines are. The
// descriptor is read with pread and stays the caller's.

/// The last second of the year 9999: what is greater is no time that a clock has shown.
inline constexpr std::int64_t latestTime = 253'402'300'799;

/// No line of any machine is longer, in bytes: one of 100,000 resources has some three million.
inline constexpr std::size_t longestArchiveLine = std::size_t{16} << 20;

/// The archive open to be read, and its size; an owner of nothing when there is no such file.
Descriptor openArchiveToRead(const std::string& path, off_t* size);

/// The words of a file, and its lines.
class ArchiveWords {
public:
    ArchiveWords(int fd, off_t from);

    /// Moves to the next word; false at the end of the file.
    bool more();

    /// Moves to the next word of the same line; false at its end and at the end of the file.
    bool moreInLine();

    /// The number that begins here, as TextScanner reads it; nothing, and no move, when none does.
    std::optional<std::int64_t> integer();
    std::optional<double> real();

    /// Moves behind the next line feed; false at the end of the file when there is none.
    bool skipLine();

    /// Whether white space is next.
    bool endsWord();

    bool atEnd();

    /// Offset in the file of what is read next.
    off_t position() const { return blockBegin_ + static_cast<off_t>(begin_); }

    /// errno of the read that failed, which ended the file; 0 for none.
    int error() const { return error_; }

private:
    bool refill();
    std::string_view rest() const { return {block_.data() + begin_, end_ - begin_}; }

    int fd_;
    off_t blockBegin_;
    std::vector<char> block_;
    std::size_t begin_ = 0; ///< what is read next, in the block
    std::size_t end_ = 0;
    bool fileEnded_ = false;
    int error_ = 0;
};

/// The samples of an archive, in the order of the file. A number above the highest RID is a time stamp; so is
/// the first of the file, and the first of the line behind damage. Damage costs the rest of its line, and so
/// does a time above latestTime.
class ArchiveReader {
public:
    struct Sample {
        std::int64_t time = 0; ///< seconds since the epoch
        std::int64_t rid = 0;
        double value = 0.0;
    };

    /// From a place inside a line it begins with the next one.
    ArchiveReader(int fd, off_t from, std::int32_t highestRid);

    /// Nothing at the end of the file.
    std::optional<Sample> next();

    /// Whether the file ended inside a triple, a value at its very end included: more digits may be missing.
    bool endedInTriple() const { return endedInTriple_; }

    std::int64_t damagedLines() const { return damagedLines_; }
    off_t position() const { return words_.position(); }
    int error() const { return words_.error(); }

private:
    std::optional<double> restOfTriple();

    ArchiveWords words_;
    std::int32_t highestRid_;
    std::optional<std::int64_t> time_;
    std::int64_t damagedLines_ = 0;
    bool endedInTriple_ = false;
};

/// The highest number of any resource in the newest whole lines: those in the last mebibyte of the file, the
/// last one at least. Only lines count that are well formed to their ends, with their numbers ascending: what
/// is damaged could claim any number. 0 without such a line; nothing, with errno, when the file cannot be
/// read.
std::optional<std::int32_t> highestArchivedNumber(int fd, off_t size);

/// Where to begin so that no line with a young time stamp is missed, if the lines are in the order of time: 0
/// or a place in a line that is older than all of them. Found from the end backwards, so that the cost goes
/// by the young lines and not by the file. Older lines among young ones do not hide those before them unless
/// they fill 64 KiB.
off_t beginOfYoungLines(int fd, off_t size, const std::function<bool(std::int64_t time)>& isYoung);

} // namespace obrin
