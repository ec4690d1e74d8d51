#include "agent/serviceNotice.h"

#include "support/handles.h"
#include "support/immortal.h"
#include "support/mutex.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

namespace obrin {
namespace {

/// How long a start may take from one sign of life to the next where the service manager names no time.
constexpr std::chrono::microseconds unasked = std::chrono::minutes(2);

/// Signs of life in the time that one is due in, so that one or the other may be lost.
constexpr int signsInTime = 4;

struct Listener {
    Mutex lock;
    Descriptor socket GUARDED_BY(lock);
    sockaddr_un address GUARDED_BY(lock){};
    socklen_t length GUARDED_BY(lock) = 0;
    std::chrono::microseconds patience GUARDED_BY(lock){};
    Clock::Moment next GUARDED_BY(lock);
    bool isReady GUARDED_BY(lock) = false;
};
Immortal<Listener> listener;

/// Whether the message, put together from its parts, was taken.
bool send(Listener& to, std::initializer_list<std::string_view> parts) REQUIRES(to.lock) {
    iovec pieces[4];
    std::size_t count = 0;
    for (const std::string_view part : parts)
        pieces[count++] = {const_cast<char*>(part.data()), part.size()};
    msghdr message{};
    message.msg_name = &to.address;
    message.msg_namelen = to.length;
    message.msg_iov = pieces;
    message.msg_iovlen = count;
    to.next = systemClock().now() + to.patience / signsInTime;
    return ::sendmsg(to.socket.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

} // namespace

bool openServiceNotice(std::string_view socket, std::chrono::microseconds watchdog) {
    closeServiceNotice();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const bool isName = socket.size() > 1 && (socket.front() == '/' || socket.front() == '@');
    if (!isName || socket.size() >= sizeof address.sun_path || socket.find('\0') != std::string_view::npos)
        return false;
    std::copy(socket.begin(), socket.end(), address.sun_path);
    const bool isAbstract = socket.front() == '@';
    if (isAbstract)
        address.sun_path[0] = '\0';
    Descriptor opened(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!opened)
        return false;
    Listener& to = *listener;
    const MutexLock lock(to.lock);
    to.socket = std::move(opened);
    to.address = address;
    to.length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket.size() + (isAbstract ? 0 : 1));
    to.patience = watchdog.count() > 0 ? watchdog : unasked;
    to.next = systemClock().now();
    to.isReady = false;
    return true;
}

void closeServiceNotice() {
    const MutexLock lock(listener->lock);
    listener->socket.close();
}

bool isServiceNoticeOpen() {
    const MutexLock lock(listener->lock);
    return static_cast<bool>(listener->socket);
}

Clock::Moment nextSignOfLife() {
    const MutexLock lock(listener->lock);
    return listener->socket ? listener->next : Clock::Moment::max();
}

void tellAlive(std::string_view status) {
    Listener& to = *listener;
    const MutexLock lock(to.lock);
    if (!to.socket)
        return;
    char more[64];
    std::snprintf(more, sizeof more, "EXTEND_TIMEOUT_USEC=%lld", static_cast<long long>(to.patience.count()));
    const std::string_view sign = to.isReady ? "WATCHDOG=1" : more;
    send(to, {sign, status.empty() ? "" : "\nSTATUS=", status});
}

void tellCycle(std::string_view status) {
    Listener& to = *listener;
    const MutexLock lock(to.lock);
    if (to.socket &&
        send(to, {to.isReady ? "" : "READY=1\n", "WATCHDOG=1", status.empty() ? "" : "\nSTATUS=", status}))
        to.isReady = true;
}

void tellStopping() {
    Listener& to = *listener;
    const MutexLock lock(to.lock);
    if (!to.socket)
        return;
    send(to, {"STOPPING=1"});
    to.isReady = false;
}

} // namespace obrin
