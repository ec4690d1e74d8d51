#pragma once

#include <string>

namespace obrin {

/// Every place of the running machine that the agent looks at, with the real ones as defaults. A test points
/// them at a captured machine. Texts in the log name the real files whatever stands here. Set before the
/// agent runs; then read only.
struct SystemPaths {
    std::string loadavg = "/proc/loadavg";
    std::string meminfo = "/proc/meminfo";
    std::string threadsMax = "/proc/sys/kernel/threads-max";
    std::string fileNr = "/proc/sys/fs/file-nr";
    std::string tasksHeader = "/usr/src/linux/include/linux/tasks.h";
    std::string mounts = "/proc/mounts";
    std::string mountInfo = "/proc/self/mountinfo";
    std::string proc = "/proc";

    /// Work file of the disk listing, relative to the working directory; its directory must exist.
    std::string diskListing = "../tempdata/LumetraDisks.txt";

    std::string log = "..//log//LumetraAgent.log";
    std::string logBackup = "..//log//LumetraAgent.log.bak";
    std::string eventLog = "..//log//LumetraAgent.log.event";

    /// Work file of the archive's trimming, relative to the working directory.
    std::string trimWorkFile = "temp";
};

/// The one record that all readers use.
SystemPaths& systemPaths();

} // namespace obrin
