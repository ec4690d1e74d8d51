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
    using Tell = void (*)(const std::string& line);

    /// The first thread of several now and then keeps the lock until others have paused for it. The first
    /// time that a method gives a result, `tell` gets an "answer" line of the driver's output.
    ViewerThreads(long count, unsigned seed, Tell tell);
    ViewerThreads(const ViewerThreads&) = delete;
    ViewerThreads& operator=(const ViewerThreads&) = delete;
    ~ViewerThreads();

    /// Waits until each thread has looked at a few resources from now on. Meanwhile none keeps the lock:
    /// there may be no agent that pauses for it.
    void awaitLooks();

    /// Somebody pauses for the lock. Any thread.
    static void paused();

    /// Ends the threads. What they found, as lines of the driver's output: "viewer" lines that count results,
    /// "misuse" lines for whatever is wrong.
    std::vector<std::string> end();

private:
    class Viewer;

    std::atomic<bool> ended_{false};
    std::atomic<bool> awaited_{false};
    std::vector<std::unique_ptr<Viewer>> viewers_;
    std::vector<std::thread> threads_;
};

} // namespace obrin::test
