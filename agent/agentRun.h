#pragma once

#include <string>

namespace obrin {

/// Opens a fresh log and says so on standard output and in the log, after a pause of one second. The first
/// step of a run.
void announceStart();

/// One run of the agent on the calling thread, from the configuration file to the stop request: start-up, the
/// main loop, shutdown. `argumentCount` must be 2, else that is reported and the run goes on. Needs
/// announceStart() and beginExecuting() before it and an event sink. 0 when the configuration file cannot be
/// opened, else the result of closing the log.
///
/// Throws std::bad_alloc when memory is refused before the first cycle; nothing is left of that start, and it
/// may be tried again. From then on a refusal costs the step in hand, which the log tells, and nothing more.
int runAgent(int argumentCount, const std::string& programName, const std::string& configPath);

/// Says in the log that the run has ended, and closes the log. The result of closing.
int endRun();

} // namespace obrin
