#include "support/childProcess.h"

#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace obrin;
using namespace obrin::test;
using namespace std::chrono_literals;

namespace {

ChildCommand shell(const std::string& text, bool captureOutput = false) {
    return {"/bin/sh", {"sh", "-c", text}, {"PATH=/usr/bin:/bin"}, captureOutput};
}

constexpr Clock::Moment never = Clock::Moment::max();

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

/// Whether a process of that number runs (a zombie does not).
bool runs(const std::string& pid) {
    const std::string status = readFile("/proc/" + pid + "/stat");
    const std::size_t name = status.rfind(')');
    return name != std::string::npos && status.compare(name + 2, 1, "Z") != 0;
}

} // namespace

TEST(ChildProcess, TellsHowTheProgramEnded) {
    auto child = ChildProcess::start(shell("exit 3"));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->wait(never), 3 << 8);
    EXPECT_EQ(child->wait(never), 3 << 8);
    EXPECT_FALSE(child->alive());
    auto killed = ChildProcess::start(shell("kill -9 $$"));
    ASSERT_TRUE(killed);
    EXPECT_EQ(killed->wait(never), SIGKILL);
}

TEST(ChildProcess, CannotBeStartedWithoutAProgram) {
    EXPECT_FALSE(ChildProcess::start({"/no/such/program", {"x"}, {}, false}));
    EXPECT_EQ(errno, ENOENT);
}

TEST(ChildProcess, CannotBeStartedWithoutADescriptor) {
    const pid_t forked = ::fork();
    if (forked == 0) {
        for (int fd = 3; fd < 1024; ++fd)
            ::close(fd);
        while (::dup(0) >= 0) {
        }
        const bool started = ChildProcess::start(shell("exit 0")).has_value();
        ::_exit(!started && errno == EMFILE ? 0 : 1);
    }
    int status = -1;
    ::waitpid(forked, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(ChildProcess, TakesTheOutput) {
    auto child = ChildProcess::start(shell("printf 'a%s' b; exit 1", true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(never, 1000), "ab");
    EXPECT_EQ(child->wait(never), 1 << 8);
}

TEST(ChildProcess, PutsItsOutputIntoTheGivenFileAndItsErrorsNowhere) {
    TemporaryDirectory directory;
    const Descriptor file = Descriptor::open(directory.path("out"), O_WRONLY | O_CREAT);
    ChildCommand command = shell("echo a; readlink /proc/self/fd/2");
    command.output = file.get();
    command.discardErrors = true;
    auto child = ChildProcess::start(command);
    ASSERT_TRUE(child);
    EXPECT_EQ(child->wait(never), 0);
    EXPECT_EQ(child->takeOutput(never, 100), "");
    EXPECT_EQ(readFile(directory.path("out")), "a\n/dev/null\n");
}

TEST(ChildProcess, AProgramWithoutASlashIsLookedForAlongThePath) {
    auto child = ChildProcess::start({"sh", {"sh", "-c", "exit 4"}, {}});
    ASSERT_TRUE(child);
    EXPECT_EQ(child->wait(never), 4 << 8);
    EXPECT_FALSE(ChildProcess::start({"no-such-program-anywhere", {"x"}, {}}));
    EXPECT_EQ(errno, ENOENT);
}

TEST(ChildProcess, TakesNoMoreOutputThanAskedFor) {
    auto child = ChildProcess::start(shell("while :; do echo y; done", true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(never, 100000).size(), 100000U);
    child->kill();
    EXPECT_TRUE(child->wait(never));
}

TEST(ChildProcess, OutputAndWaitEndAtTheirDeadline) {
    TemporaryDirectory directory;
    const std::string said = directory.path("said");
    auto child = ChildProcess::start(shell("echo a; : > " + said + "; sleep 1000", true));
    ASSERT_TRUE(child);
    await([&] { return std::filesystem::exists(said); });
    TurnedClock clock;
    const Clock::Moment begun = clock.now();
    const TimeGoesBy always(clock, 1s, [](Clock::Moment) { return true; });
    EXPECT_EQ(child->takeOutput(begun + 9s, 1000), "a\n");
    EXPECT_GE(clock.now(), begun + 9s);
    EXPECT_LT(clock.now(), begun + 15s) << "a look or two past the deadline";
    EXPECT_EQ(child->wait(begun + 30s), std::nullopt);
    EXPECT_GE(clock.now(), begun + 30s);
    EXPECT_LT(clock.now(), begun + 36s);
    EXPECT_TRUE(child->alive());
}

TEST(ChildProcess, CallsBackWhileItWaits) {
    TemporaryDirectory directory;
    const std::string go = directory.path("go");
    auto child = ChildProcess::start(shell("until [ -e " + go + " ]; do sleep 0.01; done"));
    ASSERT_TRUE(child);
    int calls = 0;
    EXPECT_EQ(child->wait(never,
                          [&] {
                              if (++calls == 3)
                                  writeFile(go, "");
                          }),
              0);
    EXPECT_GE(calls, 3);
}

TEST(ChildProcess, ABackgroundProcessDoesNotHoldUpTheOutput) {
    auto child = ChildProcess::start(shell("sleep 10000 & echo a", true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(never, 1000), "a\n");
    EXPECT_EQ(child->wait(never), 0);
    EXPECT_TRUE(child->alive());
    child->kill();
    await([&] { return !child->alive(); });
}

TEST(ChildProcess, KillEndsTheWholeGroup) {
    TemporaryDirectory directory;
    const std::string file = directory.path("pid");
    {
        auto child = ChildProcess::start(shell("sleep 1000 & echo $! > " + file + "; wait; exit 0"));
        ASSERT_TRUE(child);
        await([&] { return readFile(file).ends_with('\n'); });
        child->kill();
        EXPECT_EQ(child->wait(never), SIGKILL);
        await([&] { return !child->alive(); });
    }
    std::string pid = readFile(file);
    pid.pop_back();
    // Its descriptors close a moment before it is gone.
    await([&] { return !runs(pid); });
}

TEST(ChildProcess, RunsInAGroupOfItsOwn) {
    auto child = ChildProcess::start(shell("exec cat /proc/self/stat", true));
    ASSERT_TRUE(child);
    const std::string stat = child->takeOutput(never, 4096);
    const std::string expected = " " + std::to_string(child->pid()) + " ";
    EXPECT_EQ(
        stat.compare(stat.rfind(')') + 4 + std::to_string(::getpid()).size(), expected.size(), expected), 0)
        << stat;
}

TEST(ChildProcess, HasDefaultSignalsWhateverTheParentHas) {
    const pid_t forked = ::fork();
    if (forked == 0) {
        sigset_t all;
        sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        for (int signal : {SIGPIPE, SIGCHLD, SIGHUP, SIGQUIT})
            ::signal(signal, SIG_IGN);
        auto child = ChildProcess::start(shell("exec grep -E '^Sig(Blk|Ign)' /proc/self/status", true));
        const std::string signals = child ? child->takeOutput(never, 4096) : "";
        // The C library keeps the first two real-time signals for itself.
        const std::size_t ignored = signals.find("SigIgn:\t");
        const bool asExpected = signals.starts_with("SigBlk:\t0000000000000000\n") &&
                                ignored != std::string::npos &&
                                (std::stoull(signals.substr(ignored + 8), nullptr, 16) & 0x7FFFFFFF) == 0;
        struct sigaction kept;
        ::sigaction(SIGCHLD, nullptr, &kept);
        ::_exit(asExpected && kept.sa_handler == SIG_IGN ? 0 : 1);
    }
    int status = -1;
    ::waitpid(forked, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(ChildProcess, ItsEndIsNoticedWhenSigchldIsIgnored) {
    TemporaryDirectory directory;
    const std::string ended = directory.path("ended");
    const pid_t forked = ::fork();
    if (forked == 0) {
        ::signal(SIGCHLD, SIG_IGN);
        auto child = ChildProcess::start(shell("sleep 0.1; : > " + ended));
        const bool unknown = child && child->wait(never) == -1;
        ::_exit(unknown && std::filesystem::exists(ended) && !child->alive() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(forked, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(ChildProcess, LeavesNoDescriptorAndNoZombieBehind) {
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        auto child = ChildProcess::start(shell("echo x", true));
        ASSERT_TRUE(child);
        child->takeOutput(never, 100);
        child->wait(never);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, GivesTheChildNoDescriptorOfTheParent) {
    const Descriptor other = Descriptor::open("/proc/self/status", O_RDONLY);
    auto child = ChildProcess::start(shell("readlink /proc/self/fd/" + std::to_string(other.get()), true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(never, 4096).find("/status"), std::string::npos);
}

TEST(ChildProcess, WorksWithTheStandardDescriptorsClosed) {
    const pid_t forked = ::fork();
    if (forked == 0) {
        for (int fd : {0, 1, 2})
            ::close(fd);
        auto child = ChildProcess::start(shell("echo a", true));
        ::_exit(child && child->takeOutput(never, 100) == "a\n" && child->wait(never) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(forked, &status, 0);
    EXPECT_EQ(status, 0);
}
