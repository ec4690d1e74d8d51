#include "agent/debugLog.h"

#include "agent/argumentlessFormat.h"
#include "support/clock.h"
#include "support/immortal.h"
#include "support/mutex.h"
#include "support/numericLocale.h"
#include "support/safeOpen.h"
#include "support/systemPaths.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

namespace obrin {
namespace {

Mutex logLock;
Immortal<Descriptor> logFile;
Descriptor& fLog GUARDED_BY(logLock) = *logFile;

/// The log's size by counting, since it was looked at last. To look before each message would cost as much as
/// to format it.
off_t logSize GUARDED_BY(logLock) = 0;
Clock::Moment lastLook GUARDED_BY(logLock);
constexpr std::chrono::seconds lookEvery{1};

/// The size of the open log, as it is. False when it has been deleted or renamed under us.
bool look() REQUIRES(logLock) {
    struct stat state;
    if (::fstat(fLog.get(), &state) != 0)
        return true;
    logSize = state.st_size;
    lastLook = systemClock().now();
    struct stat there;
    if (::lstat(systemPaths().log.c_str(), &there) != 0)
        return errno != ENOENT;
    return there.st_ino == state.st_ino && there.st_dev == state.st_dev;
}

/// Opens the log if it is closed; with O_TRUNC, empty. Writes go to the end wherever that is: a log that
/// somebody else truncates gets no hole of NULs.
void open(int emptied) REQUIRES(logLock) {
    if (fLog)
        return;
    fLog = openOwn(systemPaths().log, O_WRONLY | O_CREAT | O_APPEND | emptied, privateFileMode);
    if (fLog)
        look();
}

void turnOver(const std::string& keptAs) REQUIRES(logLock) {
    fLog.close();
    std::remove(keptAs.c_str());
    std::rename(systemPaths().log.c_str(), keptAs.c_str());
    open(O_TRUNC);
}

bool isDue() REQUIRES(logLock) {
    return systemClock().now() - lastLook >= lookEvery || logSize > logSizeLimit;
}

/// Opens a log that is closed, or that is ours no more, and turns over one that has grown too long.
void prepare() REQUIRES(logLock) {
    if (fLog && isDue() && !look())
        fLog.close();
    open(0);
    if (fLog && logSize > logSizeLimit)
        turnOver(systemPaths().logBackup);
}

int write(std::string_view text) REQUIRES(logLock) {
    prepare();
    if (!fLog || !writeAll(fLog.get(), text.data(), text.size()))
        return EOF;
    logSize += static_cast<off_t>(text.size());
    return 0;
}

} // namespace

void initLogFile() noexcept {
    MutexLock lock(logLock);
    fLog.close();
}

int openLogFile() noexcept {
    MutexLock lock(logLock);
    open(O_TRUNC);
    return fLog ? 0 : errno;
}

void openLogFileAppend() noexcept {
    MutexLock lock(logLock);
    open(0);
}

int closeLogFile() noexcept {
    MutexLock lock(logLock);
    return fLog.close();
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
    return 0; // every message is on its way when it has been written
}

} // namespace obrin
