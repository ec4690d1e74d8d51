// The archive as a file: what is appended and what is trimmed away, whatever stands in it.

#include "acquisition/archiveFile.h"

#include "fuzz/target.h"
#include "tests/support/temporaryDirectory.h"

namespace obrin::fuzz::archiveFile {
namespace {

constexpr std::string_view line = "1732270000 1 0 5.000000 7 0 9.500000 \n";
constexpr std::size_t megabyte = std::size_t{1} << 20;

void checkAppending(const std::string& path, std::string_view input) {
    writeWorkFile(path, input);
    require(appendArchiveLine(path, line), "a line can be appended");
    const std::size_t whole = input.rfind('\n') + 1; // 0 without one
    require(test::readFile(path) == std::string(input.substr(0, whole)).append(line),
            "a torn tail goes, whole lines stay");
}

void checkTrimming(const std::string& path, std::string_view content, int megabytes) {
    writeWorkFile(path, content);
    trim(path, megabytes);
    const std::string kept = test::readFile(path);
    const std::size_t limit = static_cast<std::size_t>(megabytes) * megabyte;
    if (static_cast<double>(content.size()) <= static_cast<double>(limit) * 1.1) {
        require(kept == content, "an archive within its limit stays as it is");
        return;
    }
    require(kept.size() <= limit, "what is kept is within the limit");
    const std::size_t begin = content.size() - kept.size();
    require(content.substr(begin) == kept, "what is kept is the newest");
    require(kept.empty() || content[begin - 1] == '\n', "what is kept begins with a whole line");
    const std::size_t from = content.size() - limit;
    require(begin <= from || content.substr(from, begin - from - 1).find('\n') == std::string_view::npos,
            "as many lines are kept as begin behind the limit");
}

void check(std::string_view input) {
    static const std::string path = workFile("archive.txt");
    checkAppending(path, input);
    checkTrimming(path, input, 0);
    std::string content(input);
    for (std::size_t repeats = input.empty() ? 0 : (megabyte + megabyte / 8) / input.size(); repeats > 0;
         --repeats)
        content.append(input);
    checkTrimming(path, content, 1);
    checkTrimming(path, content.append(input.substr(0, input.size() / 2)), 1);
}

const Target target("archiveFile", check);

} // namespace
} // namespace obrin::fuzz::archiveFile
