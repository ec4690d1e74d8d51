#pragma once

namespace obrin {

// The one text log of the library, at systemPaths().log: every room writes its trace, results and errors
// through DEBUGMSG. A message is on disk when DEBUGMSG returns. When the log has grown past logSizeLimit it
// becomes the backup (one generation) and a new one begins. Every function may be called from any thread;
// each is one step under the log's own lock, takes no memory of its own and throws nothing, so that a handler
// may log what it caught. A log that cannot be opened or written loses lines and nothing else; each message
// tries again.

/// A log longer than this many bytes is turned over before the next message. What others do to it, its
/// being deleted or renamed included, is noticed within a second.
inline constexpr long logSizeLimit = 1000000;

/// Longest message in bytes with its terminating NUL; what is longer is cut.
inline constexpr unsigned logMessageSize = 2048;

/// Forgets the log without writing to it: the state at the start of a run.
void initLogFile() noexcept;

/// Opens the log anew and empty; nothing when it is open. 0, or the errno of support/safeOpen with which it
/// could not be opened.
int openLogFile() noexcept;

/// Opens the log to append to it; nothing when it is open.
void openLogFileAppend() noexcept;

/// Closes the log. 0, also when none was open; -1 when the kernel reports an error that it had kept back.
int closeLogFile() noexcept;

/// Makes the log the backup, replacing an older one, and begins a new log.
void backupFile() noexcept;

/// Makes the log the kept event log, replacing an older one, begins a new log and says so in its first line.
void keepEventLog() noexcept;

/// Writes one message, formatted as printf does; a log that is closed is opened to be appended to. The text
/// is then formatted a second time without arguments: "%%" becomes "%", any other conversion stands for zero
/// or nothing (see renderWithoutArguments). Numbers have a decimal point whatever the process's locale.
/// 0, or EOF when the message could not be written.
int DEBUGMSG(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

/// Writes out what the log still holds, which is nothing: 0.
int DEBUGFLUSH() noexcept;

} // namespace obrin
