#include "tests/support/temporaryDirectory.h"

#include "agent/debugLog.h"
#include "support/systemPaths.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace obrin::test {

TemporaryDirectory::TemporaryDirectory(const std::filesystem::path& within) {
    std::string name = (within / "lumetra-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    directory_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

std::string TemporaryDirectory::path(std::string_view name) const {
    return (directory_ / name).string();
}

void writeFile(const std::string& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

CapturedLog::CapturedLog() {
    closeLogFile();
    systemPaths().log = directory_.path("LumetraAgent.log");
    systemPaths().logBackup = directory_.path("LumetraAgent.log.bak");
    systemPaths().eventLog = directory_.path("LumetraAgent.log.event");
}

CapturedLog::~CapturedLog() {
    closeLogFile();
    const SystemPaths defaults;
    systemPaths().log = defaults.log;
    systemPaths().logBackup = defaults.logBackup;
    systemPaths().eventLog = defaults.eventLog;
}

std::string CapturedLog::text() const {
    return readFile(systemPaths().log);
}

} // namespace obrin::test
