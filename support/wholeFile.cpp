#include "support/wholeFile.h"

#include "support/handles.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {

std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit) {
    // Without O_NONBLOCK a FIFO in the place of a file would hold the agent for ever.
    Descriptor file = Descriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file)
        return std::nullopt;
    std::string text;
    char block[16384];
    while (text.size() < limit) {
        ssize_t got = ::read(file.get(), block, std::min(sizeof block, limit - text.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        text.append(block, static_cast<std::size_t>(got));
    }
    return text;
}

std::string linkTarget(const std::string& path) {
    struct stat state;
    if (::lstat(path.c_str(), &state) != 0 || !S_ISLNK(state.st_mode))
        return path;
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : path;
}

namespace {

/// Where the new text is written: in the same directory, under a name no longer than the file system takes.
std::string besideName(const std::string& target) {
    const std::string suffix = ".new";
    const std::size_t name = target.rfind('/') + 1; // 0 when there is none
    return target.substr(0, name) + target.substr(name, NAME_MAX - suffix.size()) + suffix;
}

bool writeNewFile(const std::string& path, std::string_view content, const struct stat* old,
                  Synchronise synchronise) {
    Descriptor file = Descriptor::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
    if (!file)
        return false;
    if (old != nullptr && ::fchmod(file.get(), old->st_mode & 07777) != 0)
        return false;
    return writeAll(file.get(), content.data(), content.size()) &&
           (synchronise == Synchronise::no || ::fsync(file.get()) == 0) && file.close() == 0;
}

} // namespace

bool replaceWholeFile(const std::string& path, std::string_view content, Synchronise synchronise) {
    const std::string target = linkTarget(path);
    const std::string beside = besideName(target);
    struct stat old;
    const bool exists = ::stat(target.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) {
        errno = EINVAL; // a device or a directory is nothing to rename over
        return false;
    }
    if (writeNewFile(beside, content, exists ? &old : nullptr, synchronise) &&
        ::rename(beside.c_str(), target.c_str()) == 0)
        return true;
    const int reason = errno;
    ::unlink(beside.c_str());
    errno = reason;
    return false;
}

} // namespace obrin
