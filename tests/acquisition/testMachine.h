#pragma once

#include "acquisition/counterReaders.h"
#include "acquisition/diskListing.h"
#include "acquisition/instances.h"
#include "support/systemPaths.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace obrin::test {

/// The readers on a machine of the test's own: log, work file and programs in temporary directories, the
/// kernel's files from a fixture or a test, and a clock that stands still. Everything is as before when it
/// goes.
class TestMachine {
public:
    TestMachine() {
        std::filesystem::create_directory(directory_.path("bin"));
        ::setenv("PATH", (directory_.path("bin") + ":" + path_).c_str(), 1);
        systemPaths().diskListing = directory_.path("LumetraDisks.txt");
        systemPaths().tasksHeader = directory_.path("no-tasks.h");
        beginInstanceRun();
        beginListingCycle(std::chrono::minutes(4));
    }
    TestMachine(const TestMachine&) = delete;
    TestMachine& operator=(const TestMachine&) = delete;
    ~TestMachine() {
        ::setenv("PATH", path_.c_str(), 1);
        systemPaths() = before_;
        beginListingCycle(std::chrono::seconds(4));
    }

    /// Takes the kernel's files and both listings of tests/fixtures/<name>/.
    void become(const std::string& name) {
        const std::string root = std::string(LUMETRA_FIXTURES) + "/" + name;
        systemPaths().loadavg = root + "/proc/loadavg";
        systemPaths().meminfo = root + "/proc/meminfo";
        systemPaths().threadsMax = root + "/proc/sys/kernel/threads-max";
        systemPaths().fileNr = root + "/proc/sys/fs/file-nr";
        systemPaths().mounts = root + "/proc/mounts";
        installDf("case \"$1\" in -i) cat '" + root + "/df-i.txt';; *) cat '" + root + "/df.txt';; esac\n");
    }

    /// Puts a df of the test's own before the machine's; it notes each of its starts.
    void installDf(const std::string& body) {
        const std::string program = directory_.path("bin/df");
        std::filesystem::remove(program);
        writeFile(program, "#!/bin/sh\necho \"$*\" >> '" + directory_.path("starts") + "'\n" + body);
        std::filesystem::permissions(program, std::filesystem::perms(0755));
    }

    /// How often the test's own df was started.
    int dfStarts() const {
        const std::string starts = readFile(directory_.path("starts"));
        return static_cast<int>(std::count(starts.begin(), starts.end(), '\n'));
    }

    std::string path(std::string_view name = {}) const { return directory_.path(name); }

    /// Lets the ten seconds go by that a listing may take, as soon as the test's own df has been started once
    /// more.
    TimeGoesBy nextListingTimesOut() {
        return TimeGoesBy(clock, std::chrono::seconds(10),
                          [this, begun = clock.now(), before = dfStarts()](Clock::Moment now) {
                              return now == begun && dfStarts() > before;
                          });
    }

    TurnedClock clock;
    CapturedLog log;

private:
    TemporaryDirectory directory_;
    SystemPaths before_ = systemPaths();
    std::string path_ = std::getenv("PATH");
};

/// A link for a counter of the whole machine, with a value from an earlier cycle.
inline Link systemLink(const char* object, double upperLimitAbs = noLimit) {
    Link link;
    link.ResourceType = 1;
    link.Descriptor0 = object;
    link.Descriptor3 = "-2";
    link.UpperLimitAbs = upperLimitAbs;
    link.DataArray[0] = 7.5;
    return link;
}

inline Link diskLink(std::string_view name, const char* counter = "PercentFreeSpaceUsed",
                     double upperLimitAbs = noLimit) {
    Link link = systemLink("LogicalDisk", upperLimitAbs);
    link.ResourceType = 2;
    link.Descriptor1 = name;
    link.Descriptor2 = counter;
    return link;
}

/// Status with which a body run in a child says that it lacks a privilege.
inline constexpr int lacksPrivilege = 77;

/// Runs `body` in a forked child, whose failures become this process's. lacksPrivilege when it ended with
/// that.
template <class Body>
int runInChild(Body body) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        std::fflush(nullptr);
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        ADD_FAILURE() << "the child ended abnormally, status " << status;
        return -1;
    }
    const int result = WEXITSTATUS(status);
    EXPECT_TRUE(result == 0 || result == lacksPrivilege) << "in the child, see above; status " << result;
    return result;
}

/// As runInChild, in a mount namespace of its own, so that mounts of the body touch nobody and go with it.
template <class Body>
int runInMountNamespace(Body body) {
    return runInChild([&body] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            ::_exit(lacksPrivilege);
        body();
    });
}

} // namespace obrin::test
