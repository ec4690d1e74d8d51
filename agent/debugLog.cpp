#include "agent/debugLog.h"

#include "agent/argumentlessFormat.h"
#include "support/clock.h"
#include "support/handles.h"
#include "support/immortal.h"
#include "support/mutex.h"
#include "support/numericLocale.h"
#include "support/systemPaths.h"

#include <cstdarg>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

namespace obrin {
namespace {

Mutex logLock;
Immortal<FileStream> logStream;
FileStream& fLog GUARDED_BY(logLock) = *logStream;

/// The log's size by counting, since it was looked at last. To look before each message would cost as much as
/// to format it.
off_t logSize GUARDED_BY(logLock) = 0;
Clock::Moment lookedAt GUARDED_BY(logLock);
constexpr std::chrono::seconds lookAgain{1};

/// The size of the open log, as it is. False when it has been deleted under us.
bool look() REQUIRES(logLock) {
    struct stat state;
    if (::fstat(::fileno(fLog.get()), &state) != 0)
        return true;
    logSize = state.st_size;
    lookedAt = systemClock().now();
    return state.st_nlink != 0;
}

void open(const char* mode) REQUIRES(logLock) {
    if (fLog)
        return;
    fLog = openStream(systemPaths().log, mode);
    if (!fLog)
        return;
    // Writes go to the end wherever that is: a log that somebody else truncates gets no hole of NULs.
    ::fcntl(::fileno(fLog.get()), F_SETFL, O_APPEND);
    look();
}

int close() REQUIRES(logLock) {
    return fLog ? std::fclose(fLog.release()) : 0;
}

void turnOver(const std::string& keptAs) REQUIRES(logLock) {
    close();
    std::remove(keptAs.c_str());
    std::rename(systemPaths().log.c_str(), keptAs.c_str());
    open("w+c");
}

bool isDue() REQUIRES(logLock) {
    return systemClock().now() - lookedAt >= lookAgain || logSize > logSizeLimit;
}

/// Opens a log that is closed, or that was deleted under us, and turns over one that has grown too long.
void prepare() REQUIRES(logLock) {
    if (fLog && isDue() && !look())
        close();
    open("a+c");
    if (fLog && logSize > logSizeLimit)
        turnOver(systemPaths().logBackup);
}

int write(std::string_view text) REQUIRES(logLock) {
    prepare();
    if (!fLog || !writeAll(::fileno(fLog.get()), text.data(), text.size()))
        return EOF;
    logSize += static_cast<off_t>(text.size());
    return 0;
}

} // namespace

void initLogFile() noexcept {
    MutexLock lock(logLock);
    close();
}

void openLogFile() noexcept {
    MutexLock lock(logLock);
    open("w+c");
}

void openLogFileAppend() noexcept {
    MutexLock lock(logLock);
    open("a+c");
}

int closeLogFile() noexcept {
    MutexLock lock(logLock);
    return close();
}

void backupFile() noexcept {
    MutexLock lock(logLock);
    turnOver(systemPaths().logBackup);
}

void keepEventLog() noexcept {
    MutexLock lock(logLock);
    turnOver(systemPaths().eventLog);
    write("LumetraAgent.log.event saved. Opening new log file.\n");
}

int DEBUGMSG(const char* format, ...) noexcept {
    char message[logMessageSize];
    va_list arguments;
    va_start(arguments, format);
    {
        NumericLocale decimalPoint;
        std::vsnprintf(message, sizeof message, format, arguments);
    }
    va_end(arguments);
    char text[logMessageSize - 1];
    const std::size_t length = renderWithoutArguments(message, text);
    MutexLock lock(logLock);
    return write({text, length});
}

int DEBUGFLUSH() noexcept {
    MutexLock lock(logLock);
    return fLog ? std::fflush(fLog.get()) : 0;
}

} // namespace obrin
