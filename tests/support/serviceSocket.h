#pragma once

#include <cstddef>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace obrin::test {

/// A service manager that only listens.
class ServiceSocket {
public:
    /// `name` as openServiceNotice takes it.
    explicit ServiceSocket(const std::string& name) : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path);
        const bool isAbstract = name.front() == '@';
        if (isAbstract)
            address.sun_path[0] = '\0';
        const std::size_t length = offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1);
        isBound_ =
            ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length)) == 0;
    }
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;
    ~ServiceSocket() { ::close(fd_); }

    bool isBound() const { return isBound_; }

    /// The oldest message that nobody has taken yet; empty when there is none.
    std::string next() const {
        char message[4096];
        const ssize_t size = ::recv(fd_, message, sizeof message, 0);
        return size < 0 ? "" : std::string(message, static_cast<std::size_t>(size));
    }

private:
    int fd_;
    bool isBound_ = false;
};

} // namespace obrin::test
