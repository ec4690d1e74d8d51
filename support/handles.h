#pragma once

#include <dirent.h>
#include <memory>
#include <string>
#include <utility>

namespace obrin {

/// A file descriptor with exactly one owner. -1 means "none".
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    /// open(2) with O_CLOEXEC added, retried on EINTR. An owner of nothing on failure, errno as open left it.
    static Descriptor open(const std::string& path, int flags, unsigned mode = 0666);

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    /// Closes now. 0, or -1 with errno when the kernel reported a write error it had kept back. Never
    /// retried.
    int close();

private:
    int fd_ = -1;
};

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// An open directory with one owner; opendir(3) opens close-on-exec by itself.
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

/// Whether the descriptor takes a line at once. One that nobody reads (a paused pager, a stopped terminal)
/// does not, nor does one that is closed.
bool takesALine(int fd);

/// Writes all `size` bytes, going on after short writes and EINTR. False with errno on the first real error;
/// an unknown number of leading bytes may then have been written.
bool writeAll(int fd, const char* bytes, std::size_t size);

} // namespace obrin
