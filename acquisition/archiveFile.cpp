#include "acquisition/archiveFile.h"

#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "support/safeOpen.h"
#include "support/systemPaths.h"
#include "support/wholeFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace obrin {
namespace {

/// Of what is read and written at a time: on the stack, for it is wanted most when memory is short.
constexpr std::size_t blockSize = 32768;

/// A tail without a line feed that is longer than this is no torn line of ours, and is left alone.
constexpr off_t longestTornLine = off_t{16} << 20;

void logFailure(const char* what, const std::string& path, int error) {
    DEBUGMSG("Archive file %s: %s: %s\n", path.c_str(), what, whyNotOpened(error));
}

/// The archive open to be appended to; an owner of nothing, logged, when it cannot be opened.
Descriptor openArchive(const std::string& path, struct stat& state) {
    Descriptor file = openOwn(path, O_RDWR | O_APPEND | O_CREAT);
    if (file && ::fstat(file.get(), &state) == 0)
        return file;
    logFailure("cannot be opened", path, errno);
    return {};
}

/// Offset just behind the last line feed within the last longestTornLine bytes before `size`; 0 for the start
/// of the file, -1 when there is none. Nothing, with errno, when the file cannot be read.
std::optional<off_t> endOfLastWholeLine(int fd, off_t size) {
    std::array<char, blockSize> block;
    off_t end = size;
    while (end > 0 && size - end < longestTornLine) {
        const off_t begin = std::max<off_t>(0, end - static_cast<off_t>(blockSize));
        const auto length = static_cast<std::size_t>(end - begin);
        const ssize_t got = ::pread(fd, block.data(), length, begin);
        if (got != static_cast<ssize_t>(length)) {
            errno = got < 0 ? errno : EIO; // shorter than a moment ago
            return std::nullopt;
        }
        const auto* feed = static_cast<const char*>(::memrchr(block.data(), '\n', length));
        if (feed != nullptr)
            return begin + (feed - block.data()) + 1;
        end = begin;
    }
    return end == 0 ? 0 : -1;
}

/// Cuts off what an earlier death left behind `whole` of a line that was being written. True when the file
/// now ends with a whole line.
bool cutTornTail(int fd, const std::string& path, off_t whole, off_t& size) {
    if (whole == size)
        return true;
    if (whole < 0 || ::ftruncate(fd, whole) != 0)
        return false;
    DEBUGMSG("Archive file %s: dropped %lld bytes of an unfinished last line\n", path.c_str(),
             static_cast<long long>(size - whole));
    size = whole;
    return true;
}

} // namespace

bool appendArchiveLine(const std::string& path, std::string_view line) {
    struct stat state;
    Descriptor file = openArchive(path, state);
    if (!file)
        return false;
    off_t size = state.st_size;
    const auto whole = endOfLastWholeLine(file.get(), size);
    if (!whole) { // a line feed to be safe would make an empty line, and none might join two lines
        logFailure("its end cannot be read", path, errno);
        return false;
    }
    std::string text;
    if (!cutTornTail(file.get(), path, *whole, size))
        text.push_back('\n');
    text.append(line);
    if (!writeAll(file.get(), text.data(), text.size())) {
        const int error = errno;
        if (::ftruncate(file.get(), size) != 0)
            logFailure("half a line cannot be taken back", path, errno);
        logFailure("cannot be written", path, error);
        return false;
    }
    if (file.close() != 0) {
        logFailure("cannot be closed", path, errno);
        return false;
    }
    return true;
}

namespace {

bool skipToNextLine(int fd, off_t from) {
    std::array<char, blockSize> block;
    off_t at = from;
    for (;;) {
        const ssize_t got = ::pread(fd, block.data(), block.size(), at);
        if (got < 0)
            return false;
        const auto* feed =
            got == 0 ? nullptr
                     : static_cast<const char*>(::memchr(block.data(), '\n', static_cast<std::size_t>(got)));
        at += feed == nullptr ? got : feed - block.data() + 1;
        if (feed != nullptr || got == 0)
            return ::lseek(fd, at, SEEK_SET) == at;
    }
}

/// Copies from the current place to the end. False with errno when a read or a write fails.
bool copyRest(int from, int to) {
    std::array<char, blockSize> block;
    for (;;) {
        const ssize_t got = ::read(from, block.data(), block.size());
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        if (!writeAll(to, block.data(), static_cast<std::size_t>(got)))
            return false;
    }
}

/// Whether the file's disk has room for so much, and a tenth more: others must not find it full meanwhile.
bool hasRoom(int file, off_t size) {
    struct statvfs disk;
    if (::fstatvfs(file, &disk) != 0 ||
        static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) >=
            static_cast<double>(size) * 1.1)
        return true;
    errno = ENOSPC;
    return false;
}

bool isOnDisk(int file, dev_t disk) {
    struct stat state;
    return ::fstat(file, &state) == 0 && state.st_dev == disk;
}

enum class Trimmed { done, noWorkFile, failed };

/// Puts the newest `limit` bytes of `archive`, from a whole line on, into `work` and renames that over
/// `target`.
Trimmed keepNewest(int archive, const struct stat& state, off_t limit, SideFile work,
                   const std::string& target) {
    if (!work.file)
        return Trimmed::noWorkFile;
    if (hasRoom(work.file.get(), limit) && takeAttributes(work.file.get(), state) &&
        skipToNextLine(archive, state.st_size - limit) && copyRest(archive, work.file.get()) &&
        ::fsync(work.file.get()) == 0 && work.file.close() == 0 &&
        ::rename(work.path.c_str(), target.c_str()) == 0)
        return Trimmed::done;
    const int error = errno;
    ::unlink(work.path.c_str());
    errno = error;
    return Trimmed::failed;
}

} // namespace

int trim(const std::string& path, int megabytes) {
    const std::int64_t size = getfilesize(path);
    const std::int64_t limit = std::int64_t{std::max(megabytes, 0)} << 20;
    if (size < 0 || static_cast<double>(size) <= static_cast<double>(limit) * 1.1)
        return 1;
    Descriptor archive = openOwn(path, O_RDONLY);
    struct stat state;
    if (!archive || ::fstat(archive.get(), &state) != 0) {
        error_exit("fatal", "Cannot Open Database File For Database Trimming");
        return 1;
    }
    const std::string& temp = systemPaths().trimWorkFile;
    // Whatever lies there is of no use to anybody; what leads elsewhere must not be written through.
    ::unlink(temp.c_str());
    SideFile work{Descriptor::open(temp, O_WRONLY | O_CREAT | O_EXCL, privateFileMode), temp};
    if (work.file && !isOnDisk(work.file.get(), state.st_dev)) { // it could not be renamed to the archive
        ::unlink(temp.c_str());
        work = makeSideFile(path, 0600);
    }
    const Trimmed kept = keepNewest(archive.get(), state, limit, std::move(work), path);
    if (kept == Trimmed::noWorkFile)
        error_exit("fatal", "Cannot Open Temp File For Database Trimming");
    else if (kept == Trimmed::failed)
        logFailure("cannot be trimmed", path, errno);
    return 1;
}

std::int64_t getfilesize(const std::string& path) {
    struct stat state;
    if (::stat(path.c_str(), &state) == 0)
        return state.st_size;
    error_exit("fatal", ("Cannot Get Filesize of " + path).c_str());
    return -1;
}

int smart_mkdir(const std::string& path) {
    DEBUGMSG("smart_mkdir: drive is %s\n", "");
    DEBUGMSG("smart_mkdir: directory is %s\n", path.c_str());
    // The first character is passed over, so the root of an absolute path is never made by itself.
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash + 1);
        DEBUGMSG("smart_mkdir: making %s\n", prefix.c_str());
        ::mkdir(prefix.c_str(), 0766);
    }
    return 1;
}

} // namespace obrin
