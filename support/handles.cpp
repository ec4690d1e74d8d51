#include "support/handles.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace obrin {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

Descriptor Descriptor::open(const std::string& path, int flags, unsigned mode) {
    int fd = -1;
    do {
        fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return Descriptor(fd);
}

int Descriptor::close() {
    int fd = std::exchange(fd_, -1);
    return fd < 0 ? 0 : ::close(fd);
}

bool takesALine(int fd) {
    pollfd output{fd, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && output.revents == POLLOUT;
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        ssize_t written = ::write(fd, bytes, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (written == 0) {
            errno = ENOSPC;
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace obrin
