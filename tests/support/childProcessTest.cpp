#include "support/childProcess.h"

#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace obrin;
using namespace obrin::test;
using namespace std::chrono_literals;

namespace {

ChildCommand shell(const std::string& text, bool captureOutput = false) {
    return {"/bin/sh", {"sh", "-c", text}, {"PATH=/usr/bin:/bin"}, captureOutput};
}

Clock::Moment within(std::chrono::milliseconds time) {
    return systemClock().now() + time;
}

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
    EXPECT_EQ(child->wait(within(5s)), 3 << 8);
    EXPECT_EQ(child->wait(within(5s)), 3 << 8);
    EXPECT_FALSE(child->alive());
    auto killed = ChildProcess::start(shell("kill -9 $$"));
    ASSERT_TRUE(killed);
    EXPECT_EQ(killed->wait(within(5s)), SIGKILL);
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
    EXPECT_EQ(child->takeOutput(within(5s), 1000), "ab");
    EXPECT_EQ(child->wait(within(5s)), 1 << 8);
}

TEST(ChildProcess, TakesNoMoreOutputThanAskedFor) {
    auto child = ChildProcess::start(shell("while :; do echo y; done", true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(within(5s), 100000).size(), 100000U);
    child->kill();
    EXPECT_TRUE(child->wait(within(5s)));
}

TEST(ChildProcess, OutputAndWaitEndAtTheirDeadline) {
    auto child = ChildProcess::start(shell("echo a; sleep 1000", true));
    ASSERT_TRUE(child);
    const auto begun = systemClock().now();
    EXPECT_EQ(child->takeOutput(within(100ms), 1000), "a\n");
    EXPECT_EQ(child->wait(within(100ms)), std::nullopt);
    EXPECT_TRUE(child->alive());
    EXPECT_GE(systemClock().now() - begun, 200ms);
    EXPECT_LT(systemClock().now() - begun, 2s);
}

TEST(ChildProcess, ABackgroundProcessDoesNotHoldUpTheOutput) {
    auto child = ChildProcess::start(shell("sleep 1000 & echo a", true));
    ASSERT_TRUE(child);
    const auto begun = systemClock().now();
    EXPECT_EQ(child->takeOutput(within(10s), 1000), "a\n");
    EXPECT_EQ(child->wait(within(10s)), 0);
    EXPECT_LT(systemClock().now() - begun, 2s);
    EXPECT_TRUE(child->alive());
    child->kill();
    for (int i = 0; i < 200 && child->alive(); ++i)
        std::this_thread::sleep_for(5ms);
    EXPECT_FALSE(child->alive());
}

TEST(ChildProcess, KillEndsTheWholeGroup) {
    TemporaryDirectory directory;
    const std::string file = directory.path("pid");
    {
        auto child = ChildProcess::start(shell("sleep 1000 & echo $! > " + file + "; wait; exit 0"));
        ASSERT_TRUE(child);
        while (!readFile(file).ends_with('\n'))
            std::this_thread::sleep_for(2ms);
        child->kill();
        EXPECT_EQ(child->wait(within(5s)), SIGKILL);
        for (int i = 0; i < 200 && child->alive(); ++i)
            std::this_thread::sleep_for(5ms);
    }
    std::string pid = readFile(file);
    pid.pop_back();
    // Its descriptors close a moment before it is gone.
    for (int i = 0; i < 200 && runs(pid); ++i)
        std::this_thread::sleep_for(5ms);
    EXPECT_FALSE(runs(pid));
}

TEST(ChildProcess, RunsInAGroupOfItsOwn) {
    auto child = ChildProcess::start(shell("exec cat /proc/self/stat", true));
    ASSERT_TRUE(child);
    const std::string stat = child->takeOutput(within(5s), 4096);
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
        const std::string signals = child ? child->takeOutput(within(5s), 4096) : "";
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
    const pid_t forked = ::fork();
    if (forked == 0) {
        ::signal(SIGCHLD, SIG_IGN);
        const auto begun = systemClock().now();
        auto child = ChildProcess::start(shell("sleep 0.1; exit 0"));
        const bool unknown = child && child->wait(within(5s)) == -1;
        const bool waited = systemClock().now() - begun >= 100ms;
        ::_exit(unknown && waited && !child->alive() ? 0 : 1);
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
        child->takeOutput(within(5s), 100);
        child->wait(within(5s));
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, GivesTheChildNoDescriptorOfTheParent) {
    const Descriptor other = Descriptor::open("/proc/self/status", O_RDONLY);
    auto child = ChildProcess::start(shell("readlink /proc/self/fd/" + std::to_string(other.get()), true));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->takeOutput(within(5s), 4096).find("/status"), std::string::npos);
}

TEST(ChildProcess, WorksWithTheStandardDescriptorsClosed) {
    const pid_t forked = ::fork();
    if (forked == 0) {
        for (int fd : {0, 1, 2})
            ::close(fd);
        auto child = ChildProcess::start(shell("echo a", true));
        ::_exit(child && child->takeOutput(within(5s), 100) == "a\n" && child->wait(within(5s)) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(forked, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(EnvironmentWithout, LeavesOutTheNamedVariablesOnly) {
    ::setenv("LUMETRA_TEST_A", "1", 1);
    ::setenv("LUMETRA_TEST_AB", "2=3", 1);
    const std::vector<std::string> kept = environmentWithout({"LUMETRA_TEST_A"});
    EXPECT_EQ(std::count(kept.begin(), kept.end(), "LUMETRA_TEST_A=1"), 0);
    EXPECT_EQ(std::count(kept.begin(), kept.end(), "LUMETRA_TEST_AB=2=3"), 1);
    ::unsetenv("LUMETRA_TEST_A");
    ::unsetenv("LUMETRA_TEST_AB");
}
