#pragma once

#include <functional>

namespace obrin::test {

/// While it lives, `before` is called before each read from a place of a file (pread(2)), which fails with
/// the error that it returns; not with 0. One at a time, in a test that reads on one thread.
class WatchedReads {
public:
    explicit WatchedReads(std::function<int()> before);
    WatchedReads(const WatchedReads&) = delete;
    WatchedReads& operator=(const WatchedReads&) = delete;
    ~WatchedReads();
};

} // namespace obrin::test
