#include "support/safeOpen.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace obrin {

namespace {

// The errno of each refusal, as nearly as open(2) would have it.
constexpr int isLink = ELOOP;
constexpr int isNoFile = EINVAL;
constexpr int isAnothers = EPERM;
constexpr int hasAnotherName = EMLINK;

/// Whether everybody may make files where `path` leads. What cannot be looked at is no such place: nothing
/// can be opened there either.
bool isOpenToAll(const std::string& path) {
    char directory[PATH_MAX] = "."; // no memory: the log opens its file in want of it
    const std::size_t length = path.rfind('/') + 1;
    if (length >= sizeof directory)
        return false;
    if (length > 0)
        directory[path.copy(directory, length)] = '\0';
    struct stat state;
    return ::stat(directory, &state) == 0 && (state.st_mode & (S_IWOTH | S_IXOTH)) == (S_IWOTH | S_IXOTH);
}

bool isOursOrRoots(const struct stat& state) {
    return state.st_uid == 0 || state.st_uid == ::geteuid();
}

/// What speaks against an open file; 0 for nothing.
int objectionTo(const struct stat& state, const std::string& path) {
    if (!S_ISREG(state.st_mode))
        return isNoFile;
    if (isOursOrRoots(state) && state.st_nlink <= 1)
        return 0;
    if (!isOpenToAll(path))
        return 0;
    return isOursOrRoots(state) ? hasAnotherName : isAnothers;
}

Descriptor refused(int error) {
    errno = error;
    return {};
}

} // namespace

Descriptor openOwn(const std::string& path, int flags, unsigned mode) {
    // O_NONBLOCK: a FIFO is refused instead of waited for; it means nothing for the files that are left.
    Descriptor file = Descriptor::open(path, (flags & ~O_TRUNC) | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode);
    if (!file)
        return file;
    struct stat state;
    if (::fstat(file.get(), &state) != 0)
        return refused(errno);
    if (const int objection = objectionTo(state, path))
        return refused(objection);
    if ((flags & O_TRUNC) != 0 && ::ftruncate(file.get(), 0) != 0)
        return refused(errno);
    return file;
}

Descriptor openGiven(const std::string& path, int flags) {
    const auto target = givenTarget(path);
    return target ? openOwn(*target, flags) : Descriptor();
}

std::optional<std::string> givenTarget(const std::string& path) {
    struct stat state;
    if (::lstat(path.c_str(), &state) != 0 || !S_ISLNK(state.st_mode))
        return path;
    if (!isOursOrRoots(state) && isOpenToAll(path)) {
        errno = isAnothers;
        return std::nullopt;
    }
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

bool mayBeOpened(const std::string& path, const struct stat& state) {
    const int objection = S_ISLNK(state.st_mode) ? isLink : objectionTo(state, path);
    if (objection != 0)
        errno = objection;
    return objection == 0;
}

bool isNoRegularFile(int error) {
    return error == isNoFile;
}

const char* whyNotOpened(int error) {
    switch (error) {
    case isLink:
        return "it is a symbolic link";
    case isNoFile:
    case ENXIO:
    case EISDIR:
        return "it is no regular file";
    case isAnothers:
        return "it is another user's, in a directory that everybody may write";
    case hasAnotherName:
        return "it has a second name, in a directory that everybody may write";
    default:
        return std::strerror(error);
    }
}

} // namespace obrin
