#include "support/wholeFile.h"

#include "support/clock.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace obrin {

std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit) {
    // Without O_NONBLOCK a FIFO in the place of a file would hold the agent for ever.
    Descriptor file = Descriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file)
        return std::nullopt;
    std::string text;
    readRest(file, limit, &text);
    return text;
}

namespace {

std::optional<std::string> textOf(const Descriptor& file) {
    std::string text;
    if (file)
        readRest(file, wholeFileLimit, &text);
    else if (!isNoRegularFile(errno))
        return std::nullopt;
    return text;
}

} // namespace

std::optional<std::string> readOwnFile(const std::string& path) {
    return textOf(openOwn(path, O_RDONLY));
}

std::optional<std::string> readGivenFile(const std::string& path) {
    return textOf(openGiven(path, O_RDONLY));
}

void readRest(const Descriptor& file, std::size_t limit, std::string* text) {
    text->clear();
    char block[16384];
    while (text->size() < limit) {
        const ssize_t got = ::read(file.get(), block, std::min(sizeof block, limit - text->size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        text->append(block, static_cast<std::size_t>(got));
    }
}

namespace {

constexpr std::string_view sideFileStart = ".lumetra-";
constexpr std::size_t sideFileDigits = 16;

/// The directory of a file as a prefix of names in it: up to and including the last "/", empty without one.
std::string directoryPrefix(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

/// A number that nobody foresees. Before the machine has gathered randomness the clock must do: whether the
/// name is free is for the file system to say in any case.
std::uint64_t unforeseen() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
        number = static_cast<std::uint64_t>(systemClock().now().time_since_epoch().count());
    return number;
}

bool isSideFile(std::string_view name) {
    return name.size() == sideFileStart.size() + sideFileDigits && name.starts_with(sideFileStart) &&
           name.find_first_not_of("0123456789abcdef", sideFileStart.size()) == std::string_view::npos;
}

bool fill(SideFile& side, std::string_view content, const struct stat* old, Synchronise synchronise) {
    return (old == nullptr || takeAttributes(side.file.get(), *old)) &&
           writeAll(side.file.get(), content.data(), content.size()) &&
           (synchronise == Synchronise::no || ::fsync(side.file.get()) == 0) && side.file.close() == 0;
}

/// Puts the side file in the target's place, in one step. What need not be on the disk changes places with
/// the target and loses its name afterwards: renamed over the old one, a new file is sent to the disk at once
/// by some file systems.
bool takePlace(const SideFile& side, const std::string& target, Synchronise synchronise) {
    if (synchronise == Synchronise::no &&
        ::renameat2(AT_FDCWD, side.path.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
        ::unlink(side.path.c_str());
        return true;
    }
    return ::rename(side.path.c_str(), target.c_str()) == 0;
}

} // namespace

SideFile makeSideFile(const std::string& target, unsigned mode) {
    SideFile side;
    int attempts = 100; // one is enough but for a name that somebody has
    do {
        char digits[sideFileDigits + 1];
        std::snprintf(digits, sizeof digits, "%016" PRIx64, unforeseen());
        side.path = directoryPrefix(target).append(sideFileStart).append(digits);
        side.file = Descriptor::open(side.path, O_WRONLY | O_CREAT | O_EXCL, mode);
    } while (!side.file && errno == EEXIST && --attempts > 0);
    return side;
}

bool takeAttributes(int fd, const struct stat& old) {
    struct stat present;
    const mode_t bits = old.st_mode & (07777 & ~S_IWOTH);
    if (::fstat(fd, &present) == 0 && present.st_uid == old.st_uid && present.st_gid == old.st_gid &&
        (present.st_mode & 07777) == bits)
        return true;
    // Only the superuser gives a file away; a group that the agent is in can still be kept. A change of owner
    // takes permission bits away, so they come last.
    static_cast<void>(::fchown(fd, old.st_uid, old.st_gid) == 0 ||
                      ::fchown(fd, static_cast<uid_t>(-1), old.st_gid) == 0);
    return ::fchmod(fd, bits) == 0;
}

bool replaceWholeFile(const std::string& path, std::string_view content, Synchronise synchronise) {
    struct stat old;
    const bool exists = ::lstat(path.c_str(), &old) == 0;
    if (exists && !mayBeOpened(path, old))
        return false;
    // Until it has the old file's owner and group, it is for nobody else to read.
    const bool isOurs = exists && old.st_uid == ::geteuid() && old.st_gid == ::getegid();
    SideFile side = makeSideFile(path, isOurs ? old.st_mode & 0775 : exists ? 0600 : plainFileMode);
    if (!side.file)
        return false;
    if (fill(side, content, exists ? &old : nullptr, synchronise) && takePlace(side, path, synchronise))
        return true;
    const int reason = errno;
    ::unlink(side.path.c_str());
    errno = reason;
    return false;
}

bool replaceGivenFile(const std::string& path, std::string_view content) {
    const auto target = givenTarget(path);
    return target && replaceWholeFile(*target, content);
}

void removeSideFiles(const std::string& path) {
    const std::string prefix = directoryPrefix(path);
    const Directory directory(::opendir(prefix.empty() ? "." : prefix.c_str()));
    if (!directory)
        return;
    const int fd = ::dirfd(directory.get());
    struct stat state;
    while (const dirent* entry = ::readdir(directory.get()))
        if (isSideFile(entry->d_name) && ::fstatat(fd, entry->d_name, &state, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(state.st_mode))
            ::unlinkat(fd, entry->d_name, 0);
}

} // namespace obrin
