#include "acquisition/circularBuffers.h"

#include "acquisition/archiveReader.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "resources/windowSizing.h"
#include "support/clockSteps.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>
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

void moveSamples(Link& link, double seconds) {
    for (std::uint32_t i = 0; i < samplesHeld(link); ++i)
        link.TimeBuffer[i] += seconds;
}

void keepWithinWindow(Link& link, double now) {
    std::vector<std::pair<double, double>> kept;
    for (std::uint32_t i = 0; i < samplesHeld(link); ++i) {
        const std::uint32_t slot = slotOfSample(link, i);
        if (now - link.TimeBuffer[slot] < link.WindowSize * 3600.0)
            kept.emplace_back(link.TimeBuffer[slot], link.ValueBuffer[slot]);
    }
    link.SampleCount = 0;
    link.NextSlot = 0;
    for (const auto& [time, value] : kept)
        pushSample(link, time, value);
}

double stepBack(double before, double after, std::int32_t millisecondsPerSample) {
    const double step = after - before - std::max(millisecondsPerSample, 0) / 1000.0;
    return step < -toleratedDrift(millisecondsPerSample) ? std::round(step) : 0.0;
}

void followStepBack(Link& link, double time, double step) {
    double next = time;
    std::uint32_t place = samplesHeld(link);
    for (; place > 0 && link.TimeBuffer[slotOfSample(link, place - 1)] > next; --place) {
        double& moved = link.TimeBuffer[slotOfSample(link, place - 1)];
        moved += step;
        next = moved;
    }
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
    Refilling(const Clasp& clasp, bool onlyAwaiting)
        : now_(systemClock().wallTime()), period_(clasp.MillisecondsPerSample) {
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
        if (!isYoung(sample.time)) // and lines of a clock that was far behind are no measure for others
            return;
        if (line_ != sample.time && line_)
            follow(sample.time);
        line_ = sample.time;
        auto ring = std::ranges::lower_bound(rings_, sample.rid, {}, &Ring::rid);
        for (; ring != rings_.end() && ring->rid == sample.rid; ++ring)
            if (isWithin(ring->windowHours, sample.time))
                gather({ring->link, static_cast<double>(sample.time), sample.value});
    }

    /// The last sample has been taken. Seconds by which the archive ends ahead of the clock; 0 for as little
    /// as drift.
    std::int64_t finish() {
        const std::int64_t ahead = line_ && follow(now_) ? *line_ - now_ : 0;
        push();
        if (!isMoved_)
            return ahead;
        for (const Ring& ring : rings_) {
            MutexLock lock(chainLock);
            keepWithinWindow(*ring.link, static_cast<double>(now_));
        }
        return ahead;
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

    void push() {
        MutexLock lock(chainLock);
        for (const Gathered& sample : gathered_)
            pushSample(*sample.link, sample.time, sample.value);
        gathered_.clear();
    }

    /// Goes along if the clock was put back between the line in hand and the next. Whether it was.
    bool follow(std::int64_t next) {
        const auto time = static_cast<double>(next);
        const double step = stepBack(static_cast<double>(*line_), time, period_);
        if (step == 0.0)
            return false;
        push();
        MutexLock lock(chainLock);
        for (const Ring& ring : rings_)
            followStepBack(*ring.link, time, step);
        return isMoved_ = true;
    }

    bool isWithin(double windowHours, std::int64_t time) const {
        return static_cast<double>(ageOf(time, now_)) < windowHours * 3600.0;
    }

    void gather(const Gathered& sample) {
        gathered_.push_back(sample);
        if (gathered_.size() == batch)
            push();
    }

    std::int64_t now_;
    std::int32_t period_;
    std::optional<std::int64_t> line_; ///< time of the line in hand
    bool isMoved_ = false;             ///< samples were
    std::vector<Ring> rings_;          ///< in the order of their numbers
    double longestWindow_ = 0.0;
    std::vector<Gathered> gathered_;
};

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
    if (const std::int64_t ahead = rings.finish(); ahead != 0)
        DEBUGMSG("Archive file %s: ends %lld seconds ahead of the clock; its samples are taken for as much "
                 "earlier\n",
                 clasp->HardDriveArchive.c_str(), static_cast<long long>(ahead));
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
