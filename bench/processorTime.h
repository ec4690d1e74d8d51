#pragma once

#include <sys/resource.h>

namespace obrin::bench {

/// Seconds of processor time of this process, and of those of its children that it has waited for.
struct ProcessorTime {
    double own = 0.0;
    double children = 0.0;

    static ProcessorTime now() { return {secondsOf(RUSAGE_SELF), secondsOf(RUSAGE_CHILDREN)}; }

    ProcessorTime operator-(ProcessorTime before) const {
        return {own - before.own, children - before.children};
    }

private:
    static double secondsOf(int who) {
        rusage usage{};
        ::getrusage(who, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
};

/// What `work` takes.
template <class Work>
ProcessorTime timeOf(Work work) {
    const ProcessorTime before = ProcessorTime::now();
    work();
    return ProcessorTime::now() - before;
}

} // namespace obrin::bench
