#include "tests/support/watchedReads.h"

#include <cerrno>
#include <dlfcn.h>
#include <unistd.h>
#include <utility>

namespace {

std::function<int()> beforeRead;

} // namespace

// In the C library's place for the programs that have a test with this.
extern "C" ssize_t pread(int fd, void* data, size_t size, off_t from) {
    using Pread = ssize_t (*)(int, void*, size_t, off_t);
    static const auto real = reinterpret_cast<Pread>(::dlsym(RTLD_NEXT, "pread"));
    const int error = beforeRead ? beforeRead() : 0;
    if (error == 0)
        return real(fd, data, size, from);
    errno = error;
    return -1;
}

namespace obrin::test {

WatchedReads::WatchedReads(std::function<int()> before) {
    beforeRead = std::move(before);
}

WatchedReads::~WatchedReads() {
    beforeRead = nullptr;
}

} // namespace obrin::test
