#include "fuzz/target.h"

#include "support/systemPaths.h"
#include "tests/support/temporaryDirectory.h"

#include <cstdio>
#include <cstdlib>

namespace obrin::fuzz {
namespace {

std::vector<const Target*>& registered() {
    static std::vector<const Target*> all;
    return all;
}

} // namespace

Target::Target(const char* itsName, void (*itsCheck)(std::string_view)) : name(itsName), check(itsCheck) {
    registered().push_back(this);
}

const std::vector<const Target*>& targets() {
    return registered();
}

void prepare() {
    systemPaths().log.clear(); // which nothing opens
    systemPaths().mountInfo.clear();
    systemPaths().trimWorkFile = workFile("temp");
}

void require(bool isKept, const char* promise) {
    if (isKept)
        return;
    std::fprintf(stderr, "Not kept: %s\n", promise);
    std::abort();
}

std::string workFile(std::string_view name) {
    static const test::TemporaryDirectory directory;
    return directory.path(name);
}

void writeWorkFile(const std::string& path, std::string_view content) {
    test::writeFile(path, content);
}

} // namespace obrin::fuzz
