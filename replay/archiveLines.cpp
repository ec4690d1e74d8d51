#include "replay/archiveLines.h"

#include "acquisition/archiveReader.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {
namespace {

constexpr std::size_t readAtOnce = std::size_t{1} << 20;

/// Reads the numbers of one line.
class Numbers {
public:
    explicit Numbers(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool atEnd() {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\t' || *at_ == '\r'))
            ++at_;
        return at_ == end_;
    }

    /// False when something else stands there, or the number does not end with a blank.
    template <class Number>
    bool read(Number* number) {
        if (atEnd())
            return false;
        const auto [next, error] = std::from_chars(at_, end_, *number);
        at_ = next;
        return error == std::errc() && (at_ == end_ || *at_ == ' ' || *at_ == '\t' || *at_ == '\r');
    }

private:
    const char* at_;
    const char* end_;
};

} // namespace

ArchiveLines::ArchiveLines(const std::string& path, std::int32_t highestRid)
    : highestRid_(highestRid), file_(Descriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY)) {
    struct stat state = {};
    if (!file_ || ::fstat(file_.get(), &state) != 0)
        problem_ = std::strerror(errno);
    else if (!S_ISREG(state.st_mode))
        problem_ = "is no regular file";
    size_ = state.st_size;
}

/// Reads a further block behind what is there. False at the end.
bool ArchiveLines::fill() {
    buffer_.erase(0, begin_);
    begin_ = 0;
    const std::size_t held = buffer_.size();
    buffer_.resize(held + readAtOnce);
    ssize_t got = -1;
    do
        got = ::read(file_.get(), buffer_.data() + held, readAtOnce);
    while (got < 0 && errno == EINTR);
    if (got < 0)
        problem_ = std::strerror(errno);
    buffer_.resize(held + static_cast<std::size_t>(got > 0 ? got : 0));
    return got > 0;
}

/// The next line without its line feed. False at the end of the file.
bool ArchiveLines::nextLine(std::string_view* text) {
    std::size_t searched = 0;
    for (;;) {
        const std::string_view rest = std::string_view(buffer_).substr(begin_);
        const std::size_t feed = rest.find('\n', searched);
        isTorn_ = feed == rest.npos && atEnd_;
        if (feed != rest.npos || (isTorn_ && !rest.empty())) {
            *text = rest.substr(0, feed);
            const std::size_t length = isTorn_ ? rest.size() : feed + 1;
            begin_ += length;
            bytesRead_ += static_cast<std::int64_t>(length);
            ++line_;
            return true;
        }
        if (atEnd_)
            return false;
        searched = rest.size();
        if (searched > longestArchiveLine) { // its end is still to be found, its text is not kept
            isPassing_ = true;
            bytesRead_ += static_cast<std::int64_t>(searched);
            begin_ = buffer_.size();
            searched = 0;
        }
        atEnd_ = !fill();
    }
}

const char* ArchiveLines::parse(std::string_view text, ArchivedCycle* cycle) const {
    if (isTorn_)
        return "the line is torn: the file ends within it";
    Numbers numbers(text);
    if (numbers.atEnd())
        return "the line is empty";
    if (!numbers.read(&cycle->time) || cycle->time <= highestRid_ || cycle->time > latestTime)
        return "a time stamp was expected at the start of the line, above the number of every resource";
    while (!numbers.atEnd()) {
        std::int64_t rid = 0;
        std::int32_t status = 0;
        ArchivedSample sample;
        if (!numbers.read(&rid) || rid < 1)
            return "the number of a resource was expected";
        if (rid > highestRid_)
            return "a second time stamp stands in the line, or a number that no resource has";
        if (!numbers.read(&status) || !numbers.read(&sample.value))
            return "three numbers were expected of each resource: its number, 0 and its value";
        sample.rid = static_cast<std::int32_t>(rid);
        cycle->samples.push_back(sample);
    }
    return nullptr;
}

ArchiveLines::Next ArchiveLines::next(ArchivedCycle* cycle) {
    cycle->samples.clear();
    std::string_view text;
    if (!problem_.empty() || !nextLine(&text))
        return Next::end;
    damage_ =
        std::exchange(isPassing_, false) ? "the line is longer than any that is written" : parse(text, cycle);
    return damage_ == nullptr ? Next::cycle : Next::damage;
}

} // namespace obrin
