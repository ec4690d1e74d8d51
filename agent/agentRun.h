#pragma once

#include <string>

namespace obrin {

/// Opens a fresh log and says so on standard output and in the log, after a pause of one second. The first
/// step of a run.
void announceStart();

/// One run of the agent on the calling thread, from the configuration file to the stop request: start-up, the
/// main loop, shutdown. `argumentCount` must be 2, else that is reported and the run goes on. Needs
/// announceStart() before it and an event sink. 0 when the configuration file cannot be opened, else the
/// result of closing the log.
int runAgent(int argumentCount, const std::string& programName, const std::string& configPath);

} // namespace obrin
