#include "acquisition/circularBuffers.h"

#include "acquisition/archiveReader.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "resources/windowSizing.h"
#include "support/clock.h"
#include "support/handles.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <vector>

namespace obrin {

int allocatecircularbuffers(Clasp* clasp) {
    MutexLock lock(chainLock);
    for (Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink) {
        if (!allocateRing(*link, clasp->MillisecondsPerSample)) {
            DEBUGMSG("Fatal error in malloc circular buffer\n");
            return -1;
        }
    }
    return 1;
}

std::uint32_t samplesHeld(const Link& link) {
    return std::min(link.SampleCount, link.BufferSize);
}

std::uint32_t slotOfSample(const Link& link, std::uint32_t place) {
    return link.SampleCount >= link.BufferSize ? (link.NextSlot + place) % link.BufferSize : place;
}

void pushSample(Link& link, double time, double value) {
    if (link.BufferSize == 0 || !link.ValueBuffer || !link.TimeBuffer)
        return;
    std::uint32_t slot = link.SampleCount;
    if (link.SampleCount < link.BufferSize) {
        ++link.SampleCount;
    } else {
        slot = link.NextSlot;
        link.NextSlot = (link.NextSlot + 1) % link.BufferSize;
    }
    link.TimeBuffer[slot] = time;
    link.ValueBuffer[slot] = value;
}

namespace {

/// now - time, or the nearest end of the range.
std::int64_t ageOf(std::int64_t time, std::int64_t now) {
    std::int64_t age = 0;
    if (__builtin_sub_overflow(now, time, &age))
        return time < 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    return age;
}

/// Rings on their way to be filled. Samples gather until there are enough to take the chain's lock for.
class Refilling {
public:
    Refilling(const Clasp& clasp, bool onlyAwaiting) : now_(systemClock().wallTime()) {
        for (Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
            if (onlyAwaiting && !link->awaitsHistory)
                continue;
            rings_.push_back({link->RID, link->WindowSize, link});
            longestWindow_ = std::max(longestWindow_, link->WindowSize);
        }
        std::ranges::stable_sort(rings_, {}, &Ring::rid);
        gathered_.reserve(batch);
    }

    bool isYoung(std::int64_t time) const { return isWithin(longestWindow_, time); }

    void take(const ArchiveReader::Sample& sample) {
        auto ring = std::ranges::lower_bound(rings_, sample.rid, {}, &Ring::rid);
        for (; ring != rings_.end() && ring->rid == sample.rid; ++ring)
            if (isWithin(ring->windowHours, sample.time))
                gather({ring->link, static_cast<double>(sample.time), sample.value});
    }

    void push() {
        MutexLock lock(chainLock);
        for (const Gathered& sample : gathered_)
            pushSample(*sample.link, sample.time, sample.value);
        gathered_.clear();
    }

private:
    /// What is looked at for each sample, close together: links are far apart.
    struct Ring {
        std::int64_t rid;
        double windowHours;
        Link* link;
    };
    struct Gathered {
        Link* link;
        double time;
        double value;
    };

    static constexpr std::size_t batch = 4096;

    bool isWithin(double windowHours, std::int64_t time) const {
        return static_cast<double>(ageOf(time, now_)) < windowHours * 3600.0;
    }

    void gather(const Gathered& sample) {
        gathered_.push_back(sample);
        if (gathered_.size() == batch)
            push();
    }

    std::int64_t now_;
    std::vector<Ring> rings_; ///< in the order of their numbers
    double longestWindow_ = 0.0;
    std::vector<Gathered> gathered_;
};

/// The archive open to be read, and its size; an owner of nothing when there is no such file.
Descriptor openArchiveToRead(const std::string& path, off_t* size) {
    // O_NONBLOCK: a FIFO in the archive's place is refused instead of waited for.
    Descriptor file = Descriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat state = {};
    if (!file || ::fstat(file.get(), &state) != 0 || !S_ISREG(state.st_mode))
        return {};
    *size = state.st_size;
    return file;
}

/// Takes what the reader gives. False when `readOn` ended it.
bool takeAll(ArchiveReader& reader, off_t size, Refilling& rings, const ReadOn& readOn) {
    constexpr off_t askEvery = off_t{1} << 20;
    const off_t begin = reader.position();
    off_t next = begin;
    while (const auto sample = reader.next()) {
        rings.take(*sample);
        if (readOn && reader.position() >= next) {
            next = reader.position() + askEvery;
            if (!readOn(reader.position() - begin, size - begin))
                return false;
        }
    }
    return true;
}

} // namespace

int refreshcircularbuffers(Clasp* clasp, bool onlyAwaiting, const ReadOn& readOn) {
    Refilling rings(*clasp, onlyAwaiting);
    off_t size = 0;
    const Descriptor archive = openArchiveToRead(clasp->HardDriveArchive, &size);
    if (!archive)
        return 1;
    const off_t begin =
        beginOfYoungLines(archive.get(), size, [&rings](std::int64_t time) { return rings.isYoung(time); });
    ArchiveReader reader(archive.get(), begin, clasp->MaximumRIDValue);
    const bool isDone = takeAll(reader, size, rings, readOn);
    rings.push();
    if (reader.error() != 0)
        DEBUGMSG("Archive file %s: cannot be read on: %s\n", clasp->HardDriveArchive.c_str(),
                 std::strerror(reader.error()));
    if (reader.damagedLines() > 0)
        DEBUGMSG("Archive file %s: passed over %lld damaged lines\n", clasp->HardDriveArchive.c_str(),
                 static_cast<long long>(reader.damagedLines()));
    if (!isDone || !reader.endedInTriple())
        return 1;
    DEBUGMSG("Unexpected EOF in refreshcircularbuffers.\n");
    return -1;
}

int dumponecircularbuffer(const Link* link) {
    for (std::uint32_t i = 0; i < samplesHeld(*link); ++i) {
        const std::uint32_t slot = slotOfSample(*link, i);
        DEBUGMSG("%d %d %f %f\n", static_cast<int>(i), link->RID, link->TimeBuffer[slot],
                 link->ValueBuffer[slot]);
    }
    return 1;
}

int dumpallcircularbuffers(Clasp* clasp) {
    for (const Link* link = clasp->pFirstLink; link != nullptr; link = link->pNextLink)
        dumponecircularbuffer(link);
    return 1;
}

} // namespace obrin
