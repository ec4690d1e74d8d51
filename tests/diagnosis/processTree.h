#pragma once

#include "support/systemPaths.h"
#include "tests/support/temporaryDirectory.h"

#include <csignal>
#include <dirent.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace obrin::test {

/// A process of a tree that a test makes; an empty text leaves that file out.
struct MadeProcess {
    std::string stat;
    std::string status;
    int descriptors = -1; ///< -1: no descriptor directory
};

inline std::string statOf(int pid, const std::string& name) {
    return std::to_string(pid) + " (" + name + ") S 1 1 1 0 -1 4194560\n";
}

inline std::string statusOf(const std::string& name, int ppid, long vmsize = -1, long vmrss = -1) {
    std::string text = "Name:\t" + name + "\nState:\tS (sleeping)\nPPid:\t" + std::to_string(ppid) + "\n";
    if (vmsize >= 0)
        text += "VmSize:\t" + std::to_string(vmsize) + " kB\n";
    if (vmrss >= 0)
        text += "VmRSS:\t" + std::to_string(vmrss) + " kB\n";
    return text;
}

/// A process directory of the test's own that the census reads as long as it lives.
class ProcessTree {
public:
    ProcessTree() { systemPaths().proc = directory_.path(); }
    ProcessTree(const ProcessTree&) = delete;
    ProcessTree& operator=(const ProcessTree&) = delete;
    ~ProcessTree() { systemPaths() = before_; }

    void add(const std::string& entry, const MadeProcess& process) {
        const std::string root = directory_.path(entry);
        std::filesystem::create_directories(root);
        if (!process.stat.empty())
            writeFile(root + "/stat", process.stat);
        if (!process.status.empty())
            writeFile(root + "/status", process.status);
        if (process.descriptors >= 0)
            std::filesystem::create_directory(root + "/fd");
        for (int fd = 0; fd < process.descriptors; ++fd)
            writeFile(root + "/fd/" + std::to_string(fd), "");
    }

    /// A running process of this machine under its own number.
    void adopt(pid_t pid) { link(std::to_string(pid), "/proc/" + std::to_string(pid)); }
    void link(const std::string& entry, const std::string& target) {
        std::filesystem::create_directory_symlink(target, directory_.path(entry));
    }

    /// The entries' names in the order in which a census meets them.
    std::vector<std::string> order() const {
        std::vector<std::string> names;
        const std::unique_ptr<DIR, int (*)(DIR*)> opened(::opendir(path().c_str()), ::closedir);
        while (const dirent* entry = ::readdir(opened.get())) {
            if (entry->d_name[0] != '.')
                names.emplace_back(entry->d_name);
        }
        return names;
    }

    std::string path() const { return directory_.path(); }

private:
    TemporaryDirectory directory_;
    SystemPaths before_ = systemPaths();
};

/// A child of the test that has run `prepare` and then stands still; gone with its owner.
class WaitingChild {
public:
    explicit WaitingChild(const std::function<void()>& prepare) : pid_(::fork()) {
        if (pid_ == 0) {
            prepare();
            ::raise(SIGSTOP);
            ::_exit(0);
        }
        if (pid_ > 0)
            ::waitpid(pid_, nullptr, WUNTRACED);
    }
    WaitingChild(const WaitingChild&) = delete;
    WaitingChild& operator=(const WaitingChild&) = delete;
    ~WaitingChild() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

} // namespace obrin::test
