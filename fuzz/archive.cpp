// The archive: the reader of a run, which goes on behind damage, the strict one of a replay, and the rings.

#include "acquisition/archiveReader.h"
#include "acquisition/circularBuffers.h"
#include "fuzz/target.h"
#include "replay/archiveLines.h"
#include "resources/windowSizing.h"
#include "support/clock.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <fcntl.h>

namespace obrin::fuzz::archive {
namespace {

constexpr std::int64_t present = 1732270000;
constexpr std::int32_t highestRid = 13;

class StandingClock : public Clock {
public:
    std::time_t wallTime() override { return present; }
};

/// The readers look no further for the end of a number.
constexpr std::size_t longestNumber = 500;

bool hasLongWord(std::string_view text) {
    std::size_t length = 0;
    for (const char byte : text) {
        length = byte == ' ' || (byte >= '\t' && byte <= '\r') ? 0 : length + 1;
        if (length > longestNumber)
            return true;
    }
    return false;
}

bool isSame(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) ||
           (std::isnan(a) && std::isnan(b));
}

using Samples = std::vector<ArchiveReader::Sample>;

/// What a run reads.
Samples readOn(const std::string& path, std::string_view input) {
    const Descriptor file = Descriptor::open(path, O_RDONLY);
    ArchiveReader reader(file.get(), 0, highestRid);
    Samples samples;
    while (const auto sample = reader.next()) {
        require(sample->rid <= highestRid, "what is above the highest number is a time");
        samples.push_back(*sample);
    }
    require(reader.error() == 0 && reader.damagedLines() <= std::ranges::count(input, '\n') + 1,
            "a line is damaged once at most");
    require(samples.size() <= input.size() / 6 + 1, "no sample comes from nothing");
    return samples;
}

/// What a replay reads before the first damage, or before a time that a run takes for damage.
Samples readStrictly(const std::string& path, std::size_t size) {
    ArchiveLines lines(path, highestRid);
    require(lines.problem().empty(), "a file can be read");
    Samples samples;
    bool isDamaged = false;
    ArchivedCycle cycle;
    for (auto next = lines.next(&cycle); next != ArchiveLines::Next::end; next = lines.next(&cycle)) {
        isDamaged = isDamaged || next == ArchiveLines::Next::damage || cycle.time > latestTime;
        for (const ArchivedSample& sample : cycle.samples)
            if (!isDamaged)
                samples.push_back({cycle.time, sample.rid, sample.value});
    }
    require(lines.bytesRead() == static_cast<std::int64_t>(size), "the whole file is read");
    return samples;
}

void checkReaders(const std::string& path, const Samples& all, std::string_view input) {
    const Samples strict = readStrictly(path, input.size());
    if (hasLongWord(input))
        return;
    require(strict.size() <= all.size(), "a run reads what a replay reads");
    for (std::size_t i = 0; i < strict.size(); ++i)
        require(strict[i].time == all[i].time && strict[i].rid == all[i].rid &&
                    isSame(strict[i].value, all[i].value),
                "both read the same samples");
}

/// Whether the clock was put back, as far as the times of an archive tell that are young enough for a window.
bool runsBack(const Samples& samples, double hours) {
    std::vector<double> times;
    for (const auto& sample : samples)
        if (const auto time = static_cast<double>(sample.time);
            static_cast<double>(present) - time < hours * 3600)
            times.push_back(time);
    times.push_back(static_cast<double>(present));
    return std::ranges::adjacent_find(times, [](double before, double after) {
               return stepBack(before, after, 0) != 0.0;
           }) != times.end();
}

void checkRings(const std::string& path, const Samples& all) {
    constexpr std::array<double, 3> hours{0.1, 24, 1e6};
    Clasp clasp;
    clasp.HardDriveArchive = path;
    clasp.MaximumRIDValue = highestRid;
    std::array<Link, 3> links;
    for (std::size_t i = 0; i < links.size(); ++i) {
        links[i].RID = static_cast<std::int32_t>(1 + 6 * i);
        links[i].WindowSize = hours[i];
        require(allocateRing(links[i], i == 2 ? 1000000000 : 36000), "there is memory");
        links[i].pNextLink = i + 1 < links.size() ? &links[i + 1] : nullptr;
    }
    clasp.pFirstLink = &links.front();
    refreshcircularbuffers(&clasp);
    const bool isMoved = runsBack(all, hours.back());
    for (const Link& link : links) {
        std::vector<double> expected;
        for (const auto& sample : all)
            if (sample.rid == link.RID &&
                static_cast<double>(present) - static_cast<double>(sample.time) < link.WindowSize * 3600)
                expected.push_back(sample.value);
        const std::size_t held = std::min<std::size_t>(expected.size(), link.BufferSize);
        if (isMoved) { // some may be too old then
            require(samplesHeld(link) <= held, "no sample comes from nothing");
            for (std::uint32_t i = 0; i < samplesHeld(link); ++i)
                require(static_cast<double>(present) - link.TimeBuffer[slotOfSample(link, i)] <
                            link.WindowSize * 3600,
                        "what is moved is still of the window");
            continue;
        }
        require(samplesHeld(link) == held, "a ring has the samples of its window");
        for (std::size_t i = 0; i < held; ++i)
            require(isSame(link.ValueBuffer[slotOfSample(link, static_cast<std::uint32_t>(i))],
                           expected[expected.size() - held + i]),
                    "a ring has the newest samples in their order");
    }
}

void check(std::string_view input) {
    static const std::string path = workFile("archive.txt");
    static StandingClock clock;
    writeWorkFile(path, input);
    setSystemClock(&clock);
    const Samples all = readOn(path, input);
    checkReaders(path, all, input);
    checkRings(path, all);
    setSystemClock(nullptr);
}

const Target target("archive", check);

} // namespace
} // namespace obrin::fuzz::archive
