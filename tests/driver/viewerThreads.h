#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace obrin::test {

/// Threads that call the trend viewer's native methods, each with a Java environment of its own, for as long
/// as this lives: before, during and after runs. They check what they are given against what the methods and
/// the files promise.
class ViewerThreads {
public:
    /// The first thread keeps the lock for `keepMs` milliseconds now and then (0: never).
    ViewerThreads(long count, unsigned seed, long keepMs);
    ViewerThreads(const ViewerThreads&) = delete;
    ViewerThreads& operator=(const ViewerThreads&) = delete;
    ~ViewerThreads();

    /// Ends the threads. What they found, as lines of the driver's output: "viewer" lines that count results,
    /// "misuse" lines for whatever is wrong.
    std::vector<std::string> end();

private:
    class Viewer;

    std::atomic<bool> ended_{false};
    std::vector<std::unique_ptr<Viewer>> viewers_;
    std::vector<std::thread> threads_;
};

} // namespace obrin::test
