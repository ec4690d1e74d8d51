#pragma once

#include "support/clock.h"

#include <chrono>
#include <string>
#include <string_view>

namespace obrin {

// What the agent's thread tells the service manager that started the process: that it is ready, that it
// lives, that it ends. Nobody is told anything before a host has said who listens. The socket is opened then
// and stays open, as later there may be no descriptor to be had; no message waits, takes memory or fails
// anything: one that finds no room is lost.

/// From now on the service manager behind a datagram socket is told: `socket` is the path of a file, or "@"
/// and the name of one that has none. It wants a sign of life at least every `watchdog`; 0 for no such wish.
/// False when nobody can be told by such a name; then nobody is. Any thread, while no agent runs.
bool openServiceNotice(std::string_view socket, std::chrono::microseconds watchdog);

/// Nobody is told any more. While no agent runs.
void closeServiceNotice();

/// Whether somebody is told.
bool isServiceNoticeOpen();

/// The moment of the next sign of life; Clock::Moment::max() when nobody is told. Agent thread, as all below.
Clock::Moment nextSignOfLife();

/// Tells that the agent lives while no cycle is under way: between two of them, or in the start, which may
/// take longer then. `status`, one line, says what it does; empty for no news.
void tellAlive(std::string_view status = {});

/// Tells that a cycle is complete, the first of which ends the start. `status` as above.
void tellCycle(std::string_view status);

/// Tells that the run is over.
void tellStopping();

} // namespace obrin
