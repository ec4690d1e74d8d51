#include "support/childProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace obrin {

namespace {

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

/// The descriptor under a number above the standard three, so that it survives the child's own redirections.
Descriptor aboveStandard(int fd) {
    Descriptor original(fd);
    if (fd > STDERR_FILENO)
        return original;
    return Descriptor(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::optional<Pipe> makePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    Pipe made{aboveStandard(ends[0]), aboveStandard(ends[1])};
    // One that waits would wait for as long as the program runs.
    if (!made.readEnd || !made.writeEnd || ::fcntl(made.readEnd.get(), F_SETFL, O_NONBLOCK) != 0)
        return std::nullopt;
    return made;
}

class SpawnActions {
public:
    SpawnActions() : made_(::posix_spawn_file_actions_init(&actions_) == 0), ok_(made_) {}
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions() {
        if (made_)
            ::posix_spawn_file_actions_destroy(&actions_);
    }

    /// The child has `fd` under the number `as`, no longer close-on-exec, also when both are the same.
    void give(int fd, int as) { ok_ = ok_ && ::posix_spawn_file_actions_adddup2(&actions_, fd, as) == 0; }
    void discard(int fd) {
        ok_ = ok_ && ::posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", O_WRONLY, 0) == 0;
    }
    bool ok() const { return ok_; }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
    bool made_;
    bool ok_;
};

class SpawnAttributes {
public:
    SpawnAttributes() : made_(::posix_spawnattr_init(&attributes_) == 0) {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::sigdelset(&all, SIGKILL);
        ::sigdelset(&all, SIGSTOP);
        ok_ = made_ && ::posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
              ::posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
              ::posix_spawnattr_setpgroup(&attributes_, 0) == 0 &&
              ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                                           POSIX_SPAWN_SETSIGMASK) == 0;
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() {
        if (made_)
            ::posix_spawnattr_destroy(&attributes_);
    }

    bool ok() const { return ok_; }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
    bool made_;
    bool ok_ = false;
};

/// The null-terminated array of pointers that exec takes; valid as long as `texts` stands unchanged.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Milliseconds until the deadline, at least 0, at most `most`.
int millisecondsUntil(Clock::Moment deadline, int most) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - systemClock().now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left + 1, 0, most));
}

/// Longest wait for an event that may never come although the program has ended: something that it left
/// running can hold its descriptors open.
constexpr int lookAgain = 20;

/// What was killed is gone within this time, unless the kernel holds it.
constexpr std::chrono::milliseconds timeToReap{500};

} // namespace

ChildProcess::ChildProcess(pid_t pid, Descriptor lifeline, Descriptor output)
    : pid_(pid), lifeline_(std::move(lifeline)), output_(std::move(output)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), status_(other.status_), lifeline_(std::move(other.lifeline_)),
      output_(std::move(other.output_)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(status_, other.status_);
    std::swap(lifeline_, other.lifeline_);
    std::swap(output_, other.output_);
    return *this;
}

ChildProcess::~ChildProcess() {
    kill();
    if (pid_ > 0)
        wait(systemClock().now() + timeToReap);
}

std::optional<ChildProcess> ChildProcess::start(const ChildCommand& command) {
    std::optional<Pipe> lifeline = makePipe();
    std::optional<Pipe> output = command.captureOutput ? makePipe() : Pipe{};
    if (!lifeline || !output)
        return std::nullopt;
    SpawnActions actions;
    SpawnAttributes attributes;
    actions.give(lifeline->writeEnd.get(), lifeline->writeEnd.get());
    if (command.captureOutput)
        actions.give(output->writeEnd.get(), STDOUT_FILENO);
    else if (command.output >= 0)
        actions.give(command.output, STDOUT_FILENO);
    if (command.discardErrors)
        actions.discard(STDERR_FILENO);
    if (!actions.ok() || !attributes.ok()) {
        errno = ENOMEM;
        return std::nullopt;
    }
    std::vector<std::string> arguments = command.arguments;
    std::vector<std::string> environment = command.environment;
    pid_t pid = -1;
    const int error = ::posix_spawnp(&pid, command.program.c_str(), actions.get(), attributes.get(),
                                     pointersTo(arguments).data(), pointersTo(environment).data());
    if (error != 0) {
        errno = error;
        return std::nullopt;
    }
    return ChildProcess(pid, std::move(lifeline->readEnd), std::move(output->readEnd));
}

std::optional<int> ChildProcess::wait(Clock::Moment deadline, const std::function<void()>& meanwhile) {
    while (!status_) {
        int status = 0;
        const pid_t ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_)
            status_ = status;
        else if (ended < 0 && errno != EINTR)
            status_ = -1; // nobody kept a status: SIGCHLD is ignored, and the child is gone
        if (status_ || systemClock().now() >= deadline)
            break;
        if (meanwhile)
            meanwhile();
        // Its descriptors close a moment before a process can be waited for: from then on look often.
        const bool closed = lifelineClosed();
        pollfd waited{closed ? -1 : lifeline_.get(), POLLIN, 0};
        ::poll(&waited, 1, millisecondsUntil(deadline, closed ? 1 : lookAgain));
    }
    return status_;
}

std::string ChildProcess::takeOutput(Clock::Moment deadline, std::size_t limit) {
    std::string text;
    char block[16384];
    while (output_ && text.size() < limit) {
        const ssize_t got = ::read(output_.get(), block, std::min(sizeof block, limit - text.size()));
        if (got > 0) {
            text.append(block, static_cast<std::size_t>(got));
            continue;
        }
        if (got == 0 || (errno != EAGAIN && errno != EINTR) || systemClock().now() >= deadline)
            break;
        const bool ended = wait(Clock::Moment{}).has_value();
        pollfd waited{output_.get(), POLLIN, 0};
        if (::poll(&waited, 1, millisecondsUntil(deadline, lookAgain)) == 0 && ended)
            break;
    }
    output_.close();
    return text;
}

void ChildProcess::kill() {
    if (pid_ > 0 && alive())
        ::kill(-pid_, SIGKILL);
}

bool ChildProcess::alive() {
    if (pid_ <= 0)
        return false;
    if (!wait(Clock::Moment{}))
        return true;
    return !lifelineClosed() && ::kill(-pid_, 0) == 0;
}

bool ChildProcess::lifelineClosed() const {
    char byte = 0;
    return ::read(lifeline_.get(), &byte, 1) == 0;
}

} // namespace obrin
