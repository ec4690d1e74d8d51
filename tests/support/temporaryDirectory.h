#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace obrin::test {

/// A fresh directory that goes with everything in it when the owner goes.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::filesystem::path& within = std::filesystem::temp_directory_path());
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    /// Path of a file in it.
    std::string path(std::string_view name = {}) const;

private:
    std::filesystem::path directory_;
};

void writeFile(const std::string& path, std::string_view content);
std::string readFile(const std::string& path); ///< empty when it cannot be read

/// Points the log into a directory of its own and closes it at the end, so a test reads what was logged.
class CapturedLog {
public:
    CapturedLog();
    ~CapturedLog();
    /// Everything logged since construction.
    std::string text() const;

private:
    TemporaryDirectory directory_;
};

} // namespace obrin::test
