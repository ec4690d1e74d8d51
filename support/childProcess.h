#pragma once

#include "support/clock.h"
#include "support/handles.h"

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace obrin {

/// What to start.
struct ChildCommand {
    std::string program; ///< its path, or a name without "/", which is looked for along the parent's PATH
    std::vector<std::string> arguments;   ///< the program's own name first
    std::vector<std::string> environment; ///< "NAME=value" each; the child sees nothing else
    bool captureOutput = false;           ///< standard output goes to takeOutput
    int output = -1;                      ///< standard output goes there; else it is the parent's
    bool discardErrors = false;           ///< standard error is thrown away; else it is the parent's
};

/// A program running in a process group of its own, with default signal dispositions and an empty signal mask
/// whatever the parent has. No signal disposition of the parent is touched, and the end of the child is
/// noticed also when the parent's launcher left SIGCHLD ignored. One thread at a time may use an object; any
/// number of objects may be in use.
class ChildProcess {
public:
    /// Starts the program. Nothing, with errno, when it cannot be started (no process, no descriptor, no such
    /// program).
    static std::optional<ChildProcess> start(const ChildCommand& command);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept; ///< swaps
    /// Kills what is left of the group. Waits half a second at most for the program's end; one that the
    /// kernel holds longer is left behind.
    ~ChildProcess();

    /// Waits until the program has ended or the deadline has passed. Its status as waitpid(2) gives it, -1
    /// when the kernel kept none (SIGCHLD ignored); nothing when it is still running. A deadline in the past
    /// only looks. `meanwhile` is called every 20 milliseconds or so until then.
    std::optional<int> wait(Clock::Moment deadline, const std::function<void()>& meanwhile = {});

    /// Reads standard output to its end, to `limit` bytes, or to the deadline, whichever is first; stops also
    /// when the program has ended and what it left running prints nothing. Empty without captureOutput.
    std::string takeOutput(Clock::Moment deadline, std::size_t limit);

    /// SIGKILL to the whole group; nothing once the group is gone.
    void kill();

    /// Whether the program or something that it started and left in its group still lives. A zombie that
    /// nobody reaps does not count.
    bool alive();

    pid_t pid() const { return pid_; }

private:
    ChildProcess(pid_t pid, Descriptor lifeline, Descriptor output);
    bool lifelineClosed() const;

    pid_t pid_ = -1;
    std::optional<int> status_; ///< set once the program has ended
    Descriptor lifeline_;       ///< reads end of file once every process that inherited its other end is gone
    Descriptor output_;
};

} // namespace obrin
