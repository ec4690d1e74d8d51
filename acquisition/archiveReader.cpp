#include "acquisition/archiveReader.h"

#include "support/numberText.h"
#include "support/safeOpen.h"
#include "support/textScanner.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {
namespace {

constexpr std::size_t wordBlockSize = std::size_t{256} << 10;

/// No number that means anything is longer.
constexpr std::size_t longestNumber = 512;

constexpr off_t firstStepBack = off_t{4} << 20;
constexpr off_t searchedForNumbers = off_t{1} << 20;

constexpr off_t lookedThrough = off_t{64} << 10;

} // namespace

Descriptor openArchiveToRead(const std::string& path, off_t* size) {
    Descriptor file = openOwn(path, O_RDONLY);
    struct stat state = {};
    if (!file || ::fstat(file.get(), &state) != 0)
        return {};
    *size = state.st_size;
    return file;
}

ArchiveWords::ArchiveWords(int fd, off_t from) : fd_(fd), blockBegin_(from), block_(wordBlockSize) {}

/// Puts more of the file behind what is left of the block. False when there is no more.
bool ArchiveWords::refill() {
    if (fileEnded_)
        return false;
    std::copy(block_.begin() + static_cast<std::ptrdiff_t>(begin_),
              block_.begin() + static_cast<std::ptrdiff_t>(end_), block_.begin());
    blockBegin_ += static_cast<off_t>(begin_);
    end_ -= begin_;
    begin_ = 0;
    ssize_t got = 0;
    do
        got =
            ::pread(fd_, block_.data() + end_, block_.size() - end_, blockBegin_ + static_cast<off_t>(end_));
    while (got < 0 && errno == EINTR);
    error_ = got < 0 ? errno : 0;
    fileEnded_ = got <= 0;
    end_ += got > 0 ? static_cast<std::size_t>(got) : 0;
    return got > 0;
}

bool ArchiveWords::atEnd() {
    return begin_ == end_ && !refill();
}

bool ArchiveWords::moreInLine() {
    while (!atEnd() && isWhiteSpace(block_[begin_])) {
        if (block_[begin_] == '\n')
            return false;
        ++begin_;
    }
    while (end_ - begin_ < longestNumber && refill()) {
        // until a whole number is in the block
    }
    return begin_ < end_;
}

bool ArchiveWords::more() {
    while (!moreInLine()) {
        if (atEnd())
            return false;
        ++begin_;
    }
    return true;
}

std::optional<std::int64_t> ArchiveWords::integer() {
    TextScanner text(rest());
    const auto number = text.integer();
    if (!number)
        return std::nullopt;
    begin_ += text.position();
    while (begin_ == end_ && refill()) // a number of absurd length
        while (begin_ < end_ && isDigit(block_[begin_]))
            ++begin_;
    return number;
}

std::optional<double> ArchiveWords::real() {
    TextScanner text(rest());
    const auto number = text.real();
    if (number)
        begin_ += text.position();
    return number;
}

bool ArchiveWords::skipLine() {
    while (!atEnd()) {
        const auto* feed = static_cast<const char*>(::memchr(block_.data() + begin_, '\n', end_ - begin_));
        begin_ = feed == nullptr ? end_ : static_cast<std::size_t>(feed - block_.data()) + 1;
        if (feed != nullptr)
            return true;
    }
    return false;
}

bool ArchiveWords::endsWord() {
    return !atEnd() && isWhiteSpace(block_[begin_]);
}

ArchiveReader::ArchiveReader(int fd, off_t from, std::int32_t highestRid)
    : words_(fd, from), highestRid_(highestRid) {
    if (from > 0)
        words_.skipLine();
}

std::optional<ArchiveReader::Sample> ArchiveReader::next() {
    while (words_.more()) {
        const auto number = words_.integer();
        const bool isTime = number && (!time_ || *number > highestRid_);
        if (isTime && *number <= latestTime) {
            time_ = number;
            continue;
        }
        if (const auto value = number && !isTime ? restOfTriple() : std::nullopt)
            return Sample{*time_, *number, *value};
        if (words_.moreInLine()) {
            words_.skipLine();
        } else if (!words_.more()) { // otherwise this is the next line
            endedInTriple_ = true;
            return std::nullopt;
        }
        ++damagedLines_;
        time_.reset();
    }
    return std::nullopt;
}

/// The status, which means nothing, and the value.
std::optional<double> ArchiveReader::restOfTriple() {
    if (!words_.moreInLine() || !words_.integer() || !words_.moreInLine())
        return std::nullopt;
    const auto value = words_.real();
    return words_.endsWord() ? value : std::nullopt;
}

namespace {

/// The highest number of the line that begins here, 0 without any, and moves to its line feed. Nothing for a
/// line that is not as it was written.
std::optional<std::int32_t> highestNumberOfLine(ArchiveWords& words) {
    const auto time = words.moreInLine() ? words.integer() : std::nullopt;
    std::int64_t highest = 0;
    while (time && words.moreInLine()) {
        const auto number = words.integer();
        if (!number || *number < std::max<std::int64_t>(highest, 1) || *number >= *time ||
            *number >= std::numeric_limits<std::int32_t>::max() || !words.moreInLine() ||
            words.integer() != 0 || !words.moreInLine() || !words.real() || !words.endsWord())
            return std::nullopt;
        highest = *number;
    }
    return time ? std::optional(static_cast<std::int32_t>(highest)) : std::nullopt;
}

} // namespace

std::optional<std::int32_t> highestArchivedNumber(int fd, off_t size) {
    std::int32_t highest = 0;
    bool isFound = false;
    for (off_t back = searchedForNumbers; !isFound; back *= 2) {
        ArchiveWords words(fd, std::max<off_t>(0, size - back));
        bool isLine = size <= back || words.skipLine();
        while (isLine) {
            const auto number = highestNumberOfLine(words);
            isLine = words.skipLine(); // otherwise it may be torn
            isFound = isFound || (number && isLine);
            highest = std::max(highest, isLine ? number.value_or(0) : 0);
        }
        if (words.error() != 0) {
            errno = words.error();
            return std::nullopt;
        }
        if (size <= back || back >= static_cast<off_t>(longestArchiveLine))
            break;
    }
    return highest;
}

namespace {

/// Whether lines begin behind `at`, and those within the next lookedThrough bytes, the first at least, are
/// old.
bool isOldBehind(int fd, off_t at, const std::function<bool(std::int64_t)>& isYoung) {
    ArchiveWords words(fd, at);
    bool isOld = false;
    while ((!isOld || words.position() < at + lookedThrough) && words.skipLine()) {
        const auto time = words.moreInLine() ? words.integer() : std::nullopt;
        if (time && isYoung(*time))
            return false;
        isOld = isOld || time;
    }
    return isOld;
}

} // namespace

off_t beginOfYoungLines(int fd, off_t size, const std::function<bool(std::int64_t time)>& isYoung) {
    for (off_t back = firstStepBack; back < size; back *= 2)
        if (isOldBehind(fd, size - back, isYoung))
            return size - back;
    return 0;
}

} // namespace obrin
