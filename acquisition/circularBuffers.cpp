#include "acquisition/circularBuffers.h"

#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "resources/windowSizing.h"
#include "support/clock.h"
#include "support/handles.h"
#include "support/textScanner.h"

#include <algorithm>
#include <ctime>
#include <memory>

namespace obrin {

bool allocateRing(Link& link, std::int32_t millisecondsPerSample) {
    link.SampleCount = 0;
    link.NextSlot = 0;
    link.BufferSize = 0;
    link.ValueBuffer.reset();
    link.TimeBuffer.reset();
    const auto slots = windowSamples(link.WindowSize, millisecondsPerSample);
    if (!slots)
        return false;
    link.ValueBuffer = allocateZeroed(*slots);
    link.TimeBuffer = allocateZeroed(*slots);
    if (!link.ValueBuffer || !link.TimeBuffer)
        return false;
    link.BufferSize = *slots;
    return true;
}

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

/// Words of a file of any size, one line in memory at a time.
class ArchiveWords {
public:
    explicit ArchiveWords(FileStream stream) : stream_(std::move(stream)) {}

    /// The next integer; nothing at the end of the file. The rest of a line that holds something else is
    /// passed over.
    std::optional<std::int64_t> integer() {
        while (more()) {
            if (auto number = line_.integer())
                return number;
            line_ = TextScanner({});
        }
        return std::nullopt;
    }

    std::optional<double> real() { return more() ? line_.real() : std::nullopt; }

    bool more() {
        line_.skipWhiteSpace();
        while (line_.atEnd()) {
            std::size_t capacity = capacity_;
            char* text = text_.release();
            const ssize_t length = ::getline(&text, &capacity, stream_.get());
            text_.reset(text);
            capacity_ = capacity;
            if (length <= 0)
                return false;
            line_ = TextScanner({text, static_cast<std::size_t>(length)});
            line_.skipWhiteSpace();
        }
        return true;
    }

private:
    FileStream stream_;
    std::unique_ptr<char, FreeMemory> text_;
    std::size_t capacity_ = 0;
    TextScanner line_{std::string_view{}};
};

void place(Clasp& clasp, std::int64_t rid, std::int64_t now, std::int64_t time, double value) {
    MutexLock lock(chainLock);
    for (Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        if (link->RID == rid && static_cast<double>(now - time) < link->WindowSize * 3600.0)
            pushSample(*link, static_cast<double>(time), value);
}

} // namespace

int refreshcircularbuffers(Clasp* clasp) {
    const std::int64_t now = systemClock().wallTime();
    FileStream archive = openStream(clasp->HardDriveArchive, "r");
    if (!archive)
        return 1;
    ArchiveWords words(std::move(archive));
    auto time = words.integer();
    while (time) {
        const auto number = words.integer();
        if (!number)
            return 1;
        if (*number > clasp->MaximumRIDValue) {
            time = number;
            continue;
        }
        const auto status = words.integer();
        if (!status || !words.more()) {
            DEBUGMSG("Unexpected EOF in refreshcircularbuffers.\n");
            return -1;
        }
        if (const auto value = words.real())
            place(*clasp, *number, now, *time, *value);
    }
    return 1;
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
