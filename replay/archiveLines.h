#pragma once

#include "support/handles.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace obrin {

struct ArchivedSample {
    std::int32_t rid = 0;
    double value = 0.0; ///< per cent
};

/// The samples of one cycle, in the order of the line.
struct ArchivedCycle {
    std::int64_t time = 0; ///< seconds since the epoch
    std::vector<ArchivedSample> samples;
};

/// Reads an archive line by line: a stream of flat memory, however long the file. A line counts whole or not
/// at all. Never writes.
class ArchiveLines {
public:
    /// What stands at the next line.
    enum class Next { cycle, damage, end };

    /// `highestRid`: the highest number of any resource; what is above it is a time.
    ArchiveLines(const std::string& path, std::int32_t highestRid);

    /// Empty, or why the file cannot be read.
    const std::string& problem() const { return problem_; }

    /// Moves to the next line and, if it is a cycle, reads it. After an error of the disk: the end, with
    /// problem().
    Next next(ArchivedCycle* cycle);

    /// Of the line that next() stood at, from 1 on; and what was wrong with it.
    std::int64_t line() const { return line_; }
    const char* damage() const { return damage_; }

    std::int64_t bytesRead() const { return bytesRead_; }
    std::int64_t size() const { return size_; } ///< when it was opened

private:
    bool fill();
    bool nextLine(std::string_view* text);
    const char* parse(std::string_view text, ArchivedCycle* cycle) const;

    std::int32_t highestRid_;
    Descriptor file_;
    std::string problem_;
    std::string buffer_;
    std::size_t begin_ = 0;  ///< of what is yet to be read in buffer_
    bool isPassing_ = false; ///< over the rest of a line that is too long
    bool atEnd_ = false;
    bool isTorn_ = false; ///< the line in hand ends with the file
    std::int64_t line_ = 0;
    std::int64_t bytesRead_ = 0;
    std::int64_t size_ = 0;
    const char* damage_ = "";
};

} // namespace obrin
