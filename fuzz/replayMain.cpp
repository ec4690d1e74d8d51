// Hands the corpus and the findings of a target to it once more, without a fuzzer.
//   fuzz_replay NAME DIRECTORY…

#include "fuzz/target.h"
#include "tests/support/temporaryDirectory.h"

#include <cstdio>
#include <filesystem>
#include <memory>

namespace obrin::fuzz {
namespace {

const Target* find(std::string_view name) {
    for (const Target* target : targets())
        if (target->name == name)
            return target;
    return nullptr;
}

/// From memory of exactly that size, so that a sanitizer sees what is read behind it.
void replay(const Target& target, const std::string& path) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    const std::string content = test::readFile(path);
    const auto bytes = std::make_unique<char[]>(content.size());
    content.copy(bytes.get(), content.size());
    target.check({bytes.get(), content.size()});
}

int replayAll(const Target& target, char** directories, char** end) {
    std::vector<std::string> paths;
    for (; directories != end; ++directories)
        if (std::filesystem::is_directory(*directories))
            for (const auto& entry : std::filesystem::directory_iterator(*directories))
                paths.push_back(entry.path().string());
    std::ranges::sort(paths);
    for (const std::string& path : paths)
        replay(target, path);
    return paths.empty() ? 1 : 0;
}

} // namespace
} // namespace obrin::fuzz

int main(int count, char** arguments) {
    const auto* target = count > 1 ? obrin::fuzz::find(arguments[1]) : nullptr;
    if (target == nullptr) {
        std::fprintf(stderr, "usage: fuzz_replay NAME DIRECTORY…\nThe names:\n");
        for (const auto* known : obrin::fuzz::targets())
            std::fprintf(stderr, "  %s\n", known->name);
        return 2;
    }
    obrin::fuzz::prepare();
    return obrin::fuzz::replayAll(*target, arguments + 2, arguments + count);
}
