#include "agent/resume.h"

#include "agent/hostFeed.h"
#include "support/bytes.h"

#include <atomic>

namespace obrin {
namespace {

std::atomic<bool> resumeWanted{false};
std::atomic<std::int64_t> bytesRead{0};
std::atomic<std::int64_t> bytesInAll{0};

} // namespace

void setResume(bool wanted) noexcept {
    resumeWanted = wanted;
}

bool isResumeWanted() noexcept {
    return resumeWanted;
}

void tellReading(std::int64_t read, std::int64_t all) noexcept {
    bytesRead = read;
    bytesInAll = all;
}

std::string describeReading() {
    Bytes bytes(20);
    bytes.number(hostFeedVersion).longNumber(bytesRead).longNumber(bytesInAll);
    return bytes.take();
}

} // namespace obrin
