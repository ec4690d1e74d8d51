#pragma once

#include <cstdint>
#include <string>

namespace obrin {

// What host and run tell each other of resuming: whether, and how far it is. Any thread.

/// Whether a run that begins from now on fills its rings from the archive. Not unless a host says so.
void setResume(bool wanted) noexcept;
bool isResumeWanted() noexcept;

/// The run has read so many bytes of the archive, of so many; 0 of 0 when it reads none (any more).
void tellReading(std::int64_t read, std::int64_t all) noexcept;

/// What was told last, as agent/hostFeed.h has it.
std::string describeReading();

} // namespace obrin
