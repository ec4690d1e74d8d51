// Runs the whole agent behind its native entry with a stub Java environment, so that the fault tests can
// starve, kill and hurry it without a Java machine. Prints one line per happening, fields separated by tabs:
//
//   event     type, text, seconds, instance, culprit         a call of sendEvent
//   call      method, arguments                              a call of any other method that takes arguments
//   level     cycles, descriptors, threads, resident kB      with --levels
//   stop      result                                     a stop request
//   ended     result                                     research_main has returned
//   references  local, global, most local, frames, characters    left over by the run
//   viewer    method, result, count                          with --viewers: what those threads were given
//   misuse    what                                           wrong use of the environment, wrong results
//   answer    method, result                             with --viewers: the first time that they were given
//   pause     seconds                                    with --turned-clock: the agent's thread pauses
//   sleep     seconds                                    with --turned-clock: its sleep between cycles begins
//   turned                                               with --turned-clock: a line of input was obeyed
//   limit                                                the run had to be ended
//
// With --turned-clock time stands still for the agent, except that it goes by at once when the agent pauses
// or sleeps, and as lines of the standard input say: "turn SECONDS" lets time go by, "jump SECONDS" moves the
// time of day alone. --time SECONDS is the time of day that it begins with. With --hold-sleeps, too, sleeps
// last until "turn" ends them or a stop request. A sleep that goes by at once takes --rest MILLISECONDS of
// real time, for who waits outside for what he must not miss. The sleep after the last of --cycles lasts,
// with any clock, until the stop request that comes then.
//
// With --notify SOCKET the service manager there is told, which wants a sign of life at least every
// --watchdog MICROSECONDS; if nobody can be told, it is not.
// With --without-standard none of the standard descriptors is open to the agent.
// With --mounts FILE that is the table of what is mounted.
// With --skip FILE the host sets the rules in that file on which disks are left out.
//
// With --resume the host wishes that runs go on with what the archive has of earlier ones.
//
// Exit status: 0 when everything was given back and used rightly, 3 otherwise, 2 for a wrong command line.

#include "acquisition/diskSelection.h"
#include "agent/resume.h"
#include "agent/serviceNotice.h"
#include "support/immortal.h"
#include "support/systemPaths.h"
#include "support/wholeFile.h"
#include "tests/driver/viewerThreads.h"
#include "tests/support/fakeJavaEnvironment.h"
#include "tests/support/turnedClock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

extern "C" {
jint Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main(JNIEnv*, jobject, jobject, jint,
                                                                            jstring, jstring);
jint Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_javaThreadSyncPleaseStop(JNIEnv*, jobject);
}

namespace {

using namespace obrin::test;
using obrin::Clock;
using obrin::Immortal;
using std::chrono::milliseconds;

struct Options {
    std::string bin = ".";
    std::string config = "../config/AutoConfig.ini";
    std::string program = "Lumetra";
    std::string locale;
    std::string stopWhenExists;
    long randomStopMs = -1;
    long limitMs = 3600000; // the tests' own deadline comes before
    long cycles = -1;
    long runs = 1;
    int arguments = 2;
    int stopThreads = 1;
    int stopTwice = 0;
    long time = -1;
    long viewers = 0;
    unsigned seed = 1;
    std::string notify;
    long watchdog = 0;
    bool levels = false;
    bool nullTexts = false;
    bool turnedClock = false;
    bool holdSleeps = false;
    long restMs = 0;
    bool withoutStandard = false;
};

/// The stop signal, blocked in every thread and asked for: the thread sanitizer keeps a handler from running
/// until its thread makes another call, which one that waits for input never does.
class StopSignal {
public:
    StopSignal() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGUSR1);
    }

    /// Before any thread is started.
    void block() const { ::pthread_sigmask(SIG_BLOCK, &set_, nullptr); }

    /// Whether it came, or comes in this time.
    bool came(milliseconds time) const {
        const timespec wait{time.count() / 1000, time.count() % 1000 * 1000000};
        return ::sigtimedwait(&set_, nullptr, &wait) == SIGUSR1;
    }

private:
    sigset_t set_;
};

const StopSignal stopSignal;

/// Above 0 where the thread does the agent's work; its clock and the Java environment are the driver's.
thread_local int agentsWork = 0;

int isAgentAtWork() {
    return agentsWork > 0 && !insideFakeJava() ? 1 : 0;
}

class DriversWork {
public:
    DriversWork() { --agentsWork; }
    DriversWork(const DriversWork&) = delete;
    DriversWork& operator=(const DriversWork&) = delete;
    ~DriversWork() { ++agentsWork; }
};

/// A library that makes calls of the agent fail, if one was preloaded, asks which calls are the agent's.
void answerFailingCalls() {
    using Ask = void (*)(int (*)());
    if (auto* ask = reinterpret_cast<Ask>(::dlsym(RTLD_DEFAULT, "failingCallsAsk")))
        ask(&isAgentAtWork);
}

void pause(milliseconds time) {
    timespec rest{time.count() / 1000, time.count() % 1000 * 1000000};
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

int output = STDOUT_FILENO;

/// One line of output at a time, whatever the thread.
void tell(const std::string& line) {
    const std::string whole = line + "\n";
    static_cast<void>(!::write(output, whole.data(), whole.size()));
}

void closeStandard() {
    constexpr int outOfTheWay = 100;
    output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, outOfTheWay);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::close(standard);
}

std::string printable(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    return result;
}

std::string levels(long cycles) {
    long descriptors = 0;
    long threads = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        descriptors += !entry.path().empty();
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        threads += !entry.path().empty();
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return "level\t" + std::to_string(cycles) + "\t" + std::to_string(descriptors) + "\t" +
           std::to_string(threads) + "\t" + std::to_string(pages * (::sysconf(_SC_PAGESIZE) / 1024));
}

/// The agent's sleeps, and so its cycles, of one run at a time.
class Sleeps {
public:
    /// A run begins. Before it, no sleep of the run before may be left.
    void begin(long lastCycle) {
        last_ = lastCycle;
        cycles_ = 0;
        resumed_ = false;
    }

    long cycles() const { return cycles_; }

    /// As Clock::waitUntil, in the place of `wait`, which does it otherwise.
    template <class Wait>
    int sleep(pthread_cond_t* condition, pthread_mutex_t* mutex, Wait wait) {
        if (!resumed_) {
            ++cycles_;
            if (onCycle)
                onCycle(cycles_);
        }
        const bool isLast = cycles_ == last_;
        const int result = isLast ? ::pthread_cond_wait(condition, mutex) : wait();
        resumed_ = result == 0; // woken, but not always by a stop request
        return result;
    }

    std::function<void(long cycles)> onCycle; ///< at the end of each, on the agent's thread

private:
    std::atomic<long> cycles_{0};
    long last_ = -1;
    bool resumed_ = false;
};

Sleeps sleeps;

/// A clock that notices sleeps and pauses.
template <class Time>
class NoticingClock : public Time {
public:
    int waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Clock::Moment deadline) override {
        const DriversWork driver;
        return sleeps.sleep(condition, mutex, [&] { return Time::waitUntil(condition, mutex, deadline); });
    }

    void pause(std::chrono::seconds time) override {
        const DriversWork driver;
        ViewerThreads::paused();
        Time::pause(time);
    }
};

/// One run of the agent and those who will end it.
class Run {
public:
    Run(const Options& options, FakeJavaEnvironment& java) : options_(options), java_(java) {
        stopSignal.came(milliseconds(0)); // one that came before is not for this run
    }

    void go() {
        sleeps.begin(options_.cycles);
        sleeps.onCycle = [this](long cycles) {
            if (options_.levels && cycles % std::max(options_.cycles / 10, 1L) == 0)
                tell(levels(cycles));
        };
        std::vector<std::thread> others;
        others.emplace_back([this] { watch(); });
        if (options_.randomStopMs >= 0)
            for (int i = 0; i < options_.stopThreads; ++i)
                others.emplace_back([this, i] { stopAtRandom(options_.seed + static_cast<unsigned>(i)); });
        runAgent();
        ended_ = true;
        for (auto& other : others)
            other.join();
    }

private:
    void stop() {
        const jint result = Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_javaThreadSyncPleaseStop(
            nullptr, nullptr);
        tell("stop\t" + std::to_string(result));
    }

    bool due() const {
        return (options_.cycles >= 0 && sleeps.cycles() >= options_.cycles) ||
               (!options_.stopWhenExists.empty() && ::access(options_.stopWhenExists.c_str(), F_OK) == 0);
    }

    /// Sends the one stop request that is due, and further ones past the limit.
    void watch() {
        bool sent = false;
        auto limit = std::chrono::steady_clock::now() + milliseconds(options_.limitMs);
        while (!ended_) {
            if (!sent && due()) {
                sent = true;
                for (int i = 0; i <= options_.stopTwice; ++i)
                    stop();
            }
            if (std::chrono::steady_clock::now() >= limit) {
                tell("limit");
                stop();
                limit += std::chrono::seconds(1);
            }
            if (stopSignal.came(milliseconds(1)))
                stop();
        }
    }

    /// A request that came before the start is forgotten, so each thread asks again.
    void stopAtRandom(unsigned seed) {
        std::minstd_rand random(seed);
        pause(milliseconds(std::uniform_int_distribution<long>(0, options_.randomStopMs)(random)));
        do {
            Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_javaThreadSyncPleaseStop(nullptr,
                                                                                              nullptr);
            pause(milliseconds(20));
        } while (!ended_);
    }

    void runAgent() {
        java_.attach();
        JNIEnv* env = java_.env();
        jobject self = java_.makeObject("com/quorin/sysmgt/tavl/LumetraAgent/ExecPrediction");
        jobject events = java_.makeEvents();
        jstring program = options_.nullTexts ? nullptr : java_.makeText(options_.program);
        jstring config = options_.nullTexts ? nullptr : java_.makeText(options_.config);
        ++agentsWork;
        const jint result = Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main(
            env, self, events, options_.arguments, program, config);
        --agentsWork;
        tell("ended\t" + std::to_string(result));
        if (const auto exception = java_.pendingException())
            tell("misuse\treturned with " + *exception);
        for (jobject mine : {self, events, static_cast<jobject>(program), static_cast<jobject>(config)})
            env->DeleteLocalRef(mine);
    }

    const Options& options_;
    FakeJavaEnvironment& java_;
    std::atomic<bool> ended_{false};
};

[[noreturn]] void usage(const std::string& why) {
    std::fprintf(stderr, "nativeDriver: %s\n", why.c_str());
    std::exit(2);
}

/// "method=refuse", "=throw", "=missing" or "=block:SECONDS".
void setBehaviour(FakeJavaEnvironment& java, const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos)
        usage("--behaviour wants METHOD=MODE");
    const std::string mode = text.substr(equals + 1);
    JavaBehaviour behaviour;
    if (mode == "refuse")
        behaviour.mode = JavaBehaviour::Mode::refuse;
    else if (mode == "throw")
        behaviour.mode = JavaBehaviour::Mode::raise;
    else if (mode == "missing")
        behaviour.mode = JavaBehaviour::Mode::missing;
    else if (mode.rfind("block:", 0) == 0)
        behaviour = {JavaBehaviour::Mode::block, std::chrono::seconds(std::atol(mode.c_str() + 6))};
    else if (mode != "accept")
        usage("unknown mode " + mode);
    java.setBehaviour(text.substr(0, equals), behaviour);
}

void printCall(const JavaCall& call) {
    std::string line = call.method == "sendEvent" ? "event" : "call\t" + call.method;
    if (call.arguments.empty())
        return;
    if (call.method == "sendEvent") {
        for (const std::size_t i : {0u, 2u, 1u, 3u, 4u})
            line += "\t" + printable(call.arguments[i]);
    } else {
        for (const auto& argument : call.arguments)
            line += "\t" + printable(argument);
    }
    tell(line);
}

void setRules(const std::string& path) {
    const auto text = obrin::readWholeFile(path);
    if (!text)
        usage("--skip wants a file of rules");
    obrin::TextFindings findings;
    obrin::setSkipRules(obrin::parseSkipRules(*text, findings));
}

Options readOptions(const std::vector<std::string>& words, FakeJavaEnvironment& java) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& name = words[i];
        if (name == "--levels")
            options.levels = true;
        else if (name == "--turned-clock")
            options.turnedClock = true;
        else if (name == "--hold-sleeps")
            options.holdSleeps = true;
        else if (name == "--without-standard")
            options.withoutStandard = true;
        else if (name == "--resume")
            obrin::setResume(true);
        else if (name == "--null-texts")
            options.nullTexts = true;
        else if (name == "--no-copy")
            java.setCopiesCharacters(false);
        else if (name == "--no-frames")
            java.failLocalFrames(true);
        else if (i + 1 == words.size())
            usage("unknown option or missing value: " + name);
        else {
            const std::string& value = words[++i];
            const long number = std::atol(value.c_str());
            if (name == "--bin")
                options.bin = value;
            else if (name == "--config")
                options.config = value;
            else if (name == "--program")
                options.program = value;
            else if (name == "--processes")
                obrin::systemPaths().proc = value;
            else if (name == "--notify")
                options.notify = value;
            else if (name == "--watchdog")
                options.watchdog = number;
            else if (name == "--mounts")
                obrin::systemPaths().mounts = value;
            else if (name == "--mount-info")
                obrin::systemPaths().mountInfo = value;
            else if (name == "--skip")
                setRules(value);
            else if (name == "--locale")
                options.locale = value;
            else if (name == "--stop-when")
                options.stopWhenExists = value;
            else if (name == "--random-stop-ms")
                options.randomStopMs = number;
            else if (name == "--limit-ms")
                options.limitMs = number;
            else if (name == "--cycles")
                options.cycles = number;
            else if (name == "--time")
                options.time = number;
            else if (name == "--rest")
                options.restMs = number;
            else if (name == "--runs")
                options.runs = number;
            else if (name == "--args")
                options.arguments = static_cast<int>(number);
            else if (name == "--stop-threads")
                options.stopThreads = static_cast<int>(number);
            else if (name == "--extra-stops")
                options.stopTwice = static_cast<int>(number);
            else if (name == "--viewers")
                options.viewers = number;
            else if (name == "--seed")
                options.seed = static_cast<unsigned>(number);
            else if (name == "--behaviour")
                setBehaviour(java, value);
            else if (name == "--no-text-memory-from")
                java.failNewTextsFrom(static_cast<std::size_t>(number));
            else
                usage("unknown option: " + name);
        }
    }
    return options;
}

bool reportEnd(const FakeJavaEnvironment& java) {
    const std::size_t left =
        java.localReferences() + java.globalReferences() + java.openFrames() + java.unreleasedCharacters();
    tell("references\t" + std::to_string(java.localReferences()) + "\t" +
         std::to_string(java.globalReferences()) + "\t" + std::to_string(java.mostLocalReferences()) + "\t" +
         std::to_string(java.openFrames()) + "\t" + std::to_string(java.unreleasedCharacters()));
    const auto misuses = java.misuses();
    for (const auto& misuse : misuses)
        tell("misuse\t" + misuse);
    // A Java machine promises room for 16 references without being asked.
    return left == 0 && misuses.empty() && java.mostLocalReferences() <= 16 + 4;
}

/// Held while a line of input is obeyed, and by the end: what ends a run is told of, too.
std::mutex obeying;

/// Lets the agent's time go by as the standard input says.
void obeyInput(TurnedClock& clock) {
    std::string word;
    long seconds = 0;
    while (std::cin >> word >> seconds) {
        const std::lock_guard whole(obeying);
        if (word == "turn")
            clock.turn(std::chrono::seconds(seconds));
        else if (word == "jump")
            clock.setWallTime(clock.wallTime() + seconds);
        else
            usage("no such input: " + word);
        tell("turned");
    }
}

void setRealClock() {
    static Immortal<NoticingClock<Clock>> clock;
    obrin::setSystemClock(&*clock);
}

void setTurnedClock(const Options& options) {
    static Immortal<NoticingClock<TurnedClock>> clock;
    if (options.time >= 0)
        clock->setWallTime(options.time);
    const auto agentsThread = std::this_thread::get_id();
    const milliseconds rest(options.restMs);
    clock->onWait([agentsThread, rest](const std::string& what, std::chrono::seconds time) {
        if (std::this_thread::get_id() != agentsThread)
            return;
        tell(what + "\t" + std::to_string(time.count()));
        if (what == "sleep")
            std::this_thread::sleep_for(rest);
    });
    if (options.holdSleeps)
        clock->holdSleeps();
    std::thread([] { obeyInput(*clock); }).detach(); // ends with the process
}

/// The library opens the socket, on this thread.
void openNotice(const Options& options) {
    ++agentsWork;
    obrin::openServiceNotice(options.notify, std::chrono::microseconds(options.watchdog));
    --agentsWork;
}

} // namespace

int main(int count, char** words) {
    FakeJavaEnvironment java;
    java.keepRecords(false);
    java.onCall(printCall);
    Options options = readOptions({words + 1, words + count}, java);
    answerFailingCalls();
    if (::chdir(options.bin.c_str()) != 0)
        usage("cannot change to " + options.bin);
    if (!options.locale.empty() && std::setlocale(LC_ALL, options.locale.c_str()) == nullptr)
        usage("no locale " + options.locale);
    stopSignal.block();
    ::signal(SIGXFSZ, SIG_IGN); // as a Java machine does: a file over its limit is an error, not a death
    if (options.turnedClock)
        setTurnedClock(options);
    else
        setRealClock();
    if (!options.notify.empty())
        openNotice(options);
    if (options.withoutStandard)
        closeStandard();
    bool fine = true;
    ViewerThreads viewers(options.viewers, options.seed, tell);
    viewers.awaitLooks();
    for (long run = 0; run < options.runs; ++run, options.seed += 100) {
        Run(options, java).go();
        fine = reportEnd(java) && fine;
    }
    viewers.awaitLooks();
    for (const auto& line : viewers.end()) {
        tell(line);
        fine = fine && line.rfind("misuse", 0) != 0;
    }
    obeying.lock(); // for good
    return fine ? 0 : 3;
}
