// The agent where memory is refused to it: one allocation of a run, or all of them from some point on for a
// while. LUMETRA_LONG=1 in the environment tries every single allocation of a run instead of some.

#include "acquisition/circularBuffers.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "agent/hostFeed.h"
#include "agent/stopSync.h"
#include "prediction/javaEventSink.h"
#include "resources/scratchPadRecord.h"
#include "support/systemPaths.h"
#include "support/textScanner.h"
#include "tests/support/fakeJavaEnvironment.h"
#include "tests/support/feedReading.h"
#include "tests/support/often.h"
#include "tests/support/refusedAllocations.h"
#include "tests/support/sanitizers.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"
#include "trendviewer/trendFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/wait.h>

extern "C" jint Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main(JNIEnv*, jobject,
                                                                                       jobject, jint, jstring,
                                                                                       jstring);

namespace obrin {
namespace {

using test::allocations;
using test::forGood;
using test::readFile;
using test::Unwatched;
using test::Watched;
using test::writeFile;

TEST(RefusedMemory, AMessageOfTheLogTakesNoneAndThrowsNothingNotEvenWhenTheLogIsTurnedOver) {
    test::CapturedLog log;
    const std::string text(100000, 'y');
    writeFile(systemPaths().log, std::string(logSizeLimit + 1, 'x'));
    static_assert(noexcept(DEBUGMSG("x")));
    allocations.begin(1, forGood);
    {
        const Watched agent;
        openLogFileAppend();
        DEBUGMSG("%s %d %%%% %.3f %s\n", "short", 7, 1.5, "%s%9d%09.4f%a");
        DEBUGMSG("%s", text.c_str());
        keepEventLog();
        backupFile();
        DEBUGMSG("last\n");
        closeLogFile();
    }
    EXPECT_EQ(allocations.made, 0);
    EXPECT_EQ(log.text(), "last\n");
    EXPECT_TRUE(readFile(systemPaths().eventLog).starts_with("short 7 % 1.500         00000.00000x0p+0\nyyy"))
        << readFile(systemPaths().eventLog).substr(0, 200);
}

TEST(RefusedMemory, TheFirstMessageOfAllTakesNoneEither) {
    allocations.begin(1, forGood); // in a process of its own, nothing of the agent has been used yet
    {
        const Watched agent;
        DEBUGMSG("first\n");
        closeLogFile();
    }
    EXPECT_EQ(allocations.made, 0);
}

/// Delivers one event of each kind to a Java machine that answers, while memory is refused from the n-th
/// allocation on. What Java was asked.
class Events : public testing::Test {
protected:
    Events() : events(java.makeEvents()), sink(java.env(), events) { setEventSink(&sink); }
    ~Events() override {
        setEventSink(nullptr);
        java.env()->DeleteLocalRef(events);
        EXPECT_EQ(java.localReferences() + java.openFrames() + java.unreleasedCharacters(), 0U);
        EXPECT_TRUE(java.misuses().empty()) << java.misuses()[0];
    }

    test::CapturedLog log;
    test::FakeJavaEnvironment java;
    jobject events;
    JavaEventSink sink;
    const std::string longText = std::string(100, 'x');
};

TEST_F(Events, AnEventThatMemoryIsRefusedToIsARefusalAndTheNextOneGoesOut) {
    long refusals = 0;
    for (long n = 1;; ++n) {
        allocations.begin(n, n);
        std::int32_t accepted = 0;
        {
            const Watched agent;
            accepted = sendEvent(longText.c_str(), 1.0, longText.c_str(), longText.c_str(), longText.c_str());
        }
        EXPECT_EQ(accepted, allocations.refused == 0 ? 1 : 0) << n;
        if (allocations.refused == 0)
            break;
        ++refusals;
    }
    EXPECT_GE(refusals, 4) << "one for each text";
    EXPECT_EQ(java.callsOf("sendEvent").size(), 1U);
    EXPECT_NE(readFile(systemPaths().eventLog).find("No memory to call sendEvent\n"), std::string::npos);
    allocations.begin(1, forGood);
    const Watched agent;
    EXPECT_EQ(sendUpperToleranceEvent(longText.c_str(), "i", 1.0), 0);
    EXPECT_EQ(sendInnerToleranceEvent("n", longText.c_str(), 1.0), 0);
    error_exit("fatal", longText.c_str());
}

TEST_F(Events, AJavaExceptionThatMemoryIsRefusedToDescribeIsClearedAndARefusal) {
    java.setBehaviour("sendUpperToleranceEvent", {test::JavaBehaviour::Mode::raise});
    for (long n = 1;; ++n) {
        allocations.begin(n, n);
        const Watched agent;
        EXPECT_EQ(sendUpperToleranceEvent("n", "i", 1.0), 0);
        if (allocations.refused == 0)
            break;
        const Unwatched test;
        EXPECT_FALSE(java.pendingException());
        EXPECT_NE(
            log.text().find("Java exception in sendUpperToleranceEvent, and no memory to describe it\n"),
            std::string::npos);
    }
}

/// Its sleeps take no time, and what the test does in them is not the agent's doing.
class Nights : public test::TurnedClock {
public:
    void pause(std::chrono::seconds time) override {
        const Unwatched test;
        TurnedClock::pause(time);
    }
    int waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, Moment deadline) override {
        const Unwatched test;
        if (asleep)
            asleep();
        return TurnedClock::waitUntil(condition, mutex, deadline);
    }

    std::function<void()> asleep;
};

/// A home with everything that a run touches: two counters with culprits, two disks that are mounted and a
/// third that goes, a forecast that reaches its limit, an archive that is trimmed.
class WholeRun : public testing::Test {
protected:
    static constexpr int cyclesAfterRecovery = 3;

    WholeRun() {
        openHostFeed(); // what is made for a host may be refused memory as well
        for (const char* folder : {"bin", "log", "tempdata", "data", "config", "path", "proc/7"})
            std::filesystem::create_directories(home.path(folder));
        std::filesystem::current_path(home.path("bin"));
        ::setenv("PATH", (home.path("path") + ":" + pathBefore).c_str(), 1);
        systemPaths() = SystemPaths();
        systemPaths().proc = home.path("proc");
        systemPaths().mounts = home.path("mounts");
        systemPaths().fileNr = home.path("file-nr");
        systemPaths().meminfo = home.path("meminfo");
        writeFile(home.path("proc/7/stat"), "7 (a_process_with_a_long_name) S 1 1\n");
        writeFile(home.path("proc/7/status"), "Name: a\nPPid: 1\nVmSize: 4096 kB\nVmRSS: 2048 kB\n");
        writeFile(home.path("file-nr"), "1024 100 8192\n");
        writeFile(home.path("path/df"),
                  "#!/bin/sh\nwhile read -r line; do echo \"$line\"; done <../listing\n");
        std::filesystem::permissions(home.path("path/df"), std::filesystem::perms::owner_all);
        begin();
    }

    ~WholeRun() override {
        openHostFeed(false);
        std::filesystem::current_path(before);
        ::setenv("PATH", pathBefore.c_str(), 1);
        systemPaths() = SystemPaths();
    }

    /// Everything as at the first start.
    void begin() {
        for (const char* folder : {"data", "log", "tempdata"}) {
            std::filesystem::remove_all(home.path(folder));
            std::filesystem::create_directory(home.path(folder));
        }
        std::string archive;
        while (archive.size() < (1U << 20) * 6 / 5)
            archive += "1000 77 0 1.00 78 0 2.00 \n";
        writeFile(home.path("data/archive"), archive);
        writeFile(home.path("data/old.cul"), "of an earlier run");
        writeFile(home.path("config/resources"), declarations());
        writeFile(home.path("config/AutoConfig.ini"),
                  "../data/ archive ../data/pad ../log/a ../config/resources"
                  " 100 0 1 1 0 0\n");
        mount({"/disk/a", "/disk/b", "/disk/goes"});
        useSwap(10.0);
    }

    static std::string declarations() {
        const auto input = [](const std::string& object, const std::string& counter) {
            return "BeginResourceInput\n FindObject (" + object + ") FindInstance (_Total) FindCounter (" +
                   counter + ") WindowSize -1. NameIs (" + counter +
                   ") AnalyticalMethod 1 UpperLimitAbs 0 UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 "
                   "CulpritMarker (none)\nEndResourceInput\n";
        };
        return "BeginResourceDeclaration\n" + input("PercentSwapSpaceUsed", "PercentSwapSpaceUsed") +
               input("PercentFileDescriptorsUsed", "PercentFileDescriptorsUsed") +
               input("LogicalDisk", "PercentFreeSpaceUsed") + "EndResourceDeclaration\n";
    }

    void mount(const std::vector<std::string>& points) const {
        std::string listing = "Filesystem 1K-blocks Used Available Use% Mounted on\n";
        std::string table = "proc /proc proc rw 0 0\n";
        for (const std::string& point : points) {
            listing += "/dev/with/a/long/name 1000 250 750 25% " + point + "\n";
            table += "/dev/with/a/long/name " + point + " ext4 rw 0 0\n";
        }
        writeFile(home.path("listing"), listing);
        writeFile(home.path("mounts"), table);
    }

    void useSwap(double percent) const {
        writeFile(home.path("meminfo"), "MemTotal: 1000000 kB\nSwapTotal: 100000 kB\nSwapFree: " +
                                            std::to_string(100000 - static_cast<int>(percent * 1000)) +
                                            " kB\n");
    }

    /// What the machine does between two cycles: swap space runs out.
    void goOn(int cycle) const {
        mount(cycle < 2 ? std::vector<std::string>{"/disk/a", "/disk/b", "/disk/goes"}
                        : std::vector<std::string>{"/disk/a", "/disk/b"});
        useSwap(cycle < 2 ? 90.0 : 99.99);
        Link* swap = pResourceClasp == nullptr ? nullptr : pResourceClasp->pFirstLink;
        if (swap == nullptr || swap->SampleCount >= 300)
            return;
        const double now = static_cast<double>(systemClock().wallTime());
        for (int i = 300; i > 0; --i)
            pushSample(*swap, now - i * 10.0, 90.0 - i * 0.1);
    }

    /// One run of the agent. Memory is refused from the allocation `first` on: to that one, or to all until
    /// the second sleep after it. The run ends some cycles after that. The number of refusals.
    long run(long first, bool toAll) {
        test::FakeJavaEnvironment java;
        java.keepRecords(false);
        java.onCall([this](const test::JavaCall& call) { ++called[call.method]; });
        called.clear();
        jobject events = java.makeEvents();
        jstring program = java.makeText("a program with a long name");
        jstring config = java.makeText("../config/AutoConfig.ini");
        const std::size_t references = java.localReferences();
        const auto descriptors = openDescriptors();

        const std::int64_t published = serialOf(awaitPublication(0, std::chrono::milliseconds(0)));
        cycles = 0;
        int withRefusals = 0;
        int clean = 0;
        const Clasp* running = nullptr;
        clock.asleep = [&] {
            EXPECT_TRUE(running == nullptr || pResourceClasp == running)
                << "the run did not outlive its cycle " << cycles;
            running = pResourceClasp;
            EXPECT_FALSE(tellsTheEnd(awaitPublication(published, std::chrono::milliseconds(0))))
                << "a host would take the run for over in cycle " << cycles;
            const bool hit = allocations.refused > 0 && withRefusals < 2;
            withRefusals += hit ? 1 : 0;
            if (withRefusals == 2)
                allocations.refuseNoMore();
            clean = hit ? 0 : clean + 1;
            goOn(++cycles);
            if (clean < cyclesAfterRecovery)
                return;
            forecasts = forecastFiles();
            continueExecuting = 0;
        };
        allocations.begin(first, toAll ? forGood : first);
        {
            const Watched agent;
            result = Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main(
                java.env(), nullptr, events, 2, program, config);
        }
        allocations.refuseNoMore();
        clock.asleep = {};

        EXPECT_EQ(result, 0);
        EXPECT_EQ(java.localReferences(), references);
        EXPECT_EQ(java.openFrames() + java.unreleasedCharacters(), 0U);
        EXPECT_EQ(java.pendingException(), std::nullopt);
        EXPECT_TRUE(java.misuses().empty()) << java.misuses()[0];
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(pResourceClasp, nullptr);
        EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
        EXPECT_TRUE(lockIsFree());
        return allocations.refused;
    }

    static std::int64_t serialOf(const Publication& publication) {
        return publication == nullptr ? 0 : test::readState(*publication).serial;
    }

    static bool tellsTheEnd(const Publication& publication) {
        return publication != nullptr &&
               test::readState(*publication).kind == static_cast<std::int32_t>(PublicationKind::over);
    }

    static std::ptrdiff_t openDescriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    }

    static bool lockIsFree() {
        beginExecuting();
        return std::async(std::launch::async,
                          [] { return !TrendFileGuard(TrendFileGuard::Patience::none).refused(); })
            .get();
    }

    /// Values of the newest archive line in ascending order; every line must be whole.
    std::vector<std::string> newestValues() const {
        const std::string archive = readFile(home.path("data/archive"));
        EXPECT_TRUE(archive.ends_with(" \n"));
        const std::size_t begin = archive.rfind('\n', archive.size() - 2) + 1;
        TextScanner words(std::string_view(archive).substr(begin));
        words.word();
        std::vector<std::string> values;
        std::set<std::string> numbers;
        while (const auto rid = words.word()) {
            EXPECT_TRUE(numbers.insert(std::string(*rid)).second) << "two of one number in a line";
            words.word();
            values.emplace_back(words.word().value_or("missing"));
        }
        std::sort(values.begin(), values.end());
        return values;
    }

    /// Number of each resource in the scratch pad: no number twice, no resource twice.
    std::map<std::string, std::int32_t> numbers() const {
        std::map<std::string, std::int32_t> found;
        std::set<std::int32_t> used;
        SectionSplitter sections([&](std::string_view section) {
            const auto record = parseScratchPadSection(section);
            ASSERT_TRUE(record) << section;
            EXPECT_TRUE(used.insert(record->rid).second) << "two resources of number " << record->rid;
            EXPECT_TRUE(found.emplace(record->identity, record->rid).second) << "two numbers of one resource";
        });
        sections.feed(readFile(home.path("data/pad")));
        sections.finish();
        return found;
    }

    /// The declaration file without its first line, which tells the time.
    std::string declared() const {
        const std::string text = readFile(home.path("config/resources"));
        return text.starts_with("/**") ? text.substr(text.find("**/")) : "as it was: " + text;
    }

    /// Names of the files that a forecast leaves behind.
    std::set<std::string> forecastFiles() const {
        std::set<std::string> found;
        for (const auto& file : std::filesystem::directory_iterator(home.path("data")))
            if (file.path().extension() != "")
                found.insert(file.path().filename());
        return found;
    }

    const std::string pathBefore = std::getenv("PATH");
    const std::filesystem::path before = std::filesystem::current_path();
    /// In memory, if possible: thousands of runs need not wait for a disk.
    test::TemporaryDirectory home{
        std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path()};
    Nights clock;
    const std::set<std::string> filesOfForecasts{
        "PercentSwapSpaceUsed_TotalBM.ini", "PercentSwapSpaceUsed_TotalBMPRD.gnp",
        "PercentSwapSpaceUsed_TotalBMSMP.gnp", "PercentFileDescriptorsUsed.cul", "PercentSwapSpaceUsed.cul"};
    std::set<std::string> forecasts; ///< the files that were there before the stop
    std::map<std::string, int> called;
    int cycles = 0;
    int result = 0;
};

TEST_F(WholeRun, CostsTheStepInHandAndNeverTheRunWhereverMemoryIsRefused) {
    run(0, false); // takes also what a process takes only once
    begin();
    ASSERT_EQ(run(0, false), 0);
    const long all = allocations.made;
    EXPECT_TRUE(tellsTheEnd(awaitPublication(0, std::chrono::milliseconds(0))));
    RecordProperty("allocations", std::to_string(all));
    const auto values = newestValues();
    const auto resources = numbers();
    const std::string rewritten = declared();
    ASSERT_EQ(values, (std::vector<std::string>{"11.28", "25.00", "25.00", "99.99"}));
    ASSERT_EQ(resources.size(), 6U);
    ASSERT_TRUE(rewritten.starts_with("**/")) << rewritten;
    ASSERT_EQ(forecasts, filesOfForecasts);
    ASSERT_EQ(called["sendEvent"], 1) << "the exhaustion that was forecast";
    ASSERT_EQ(called["sendUpperToleranceEvent"], 1);
    ASSERT_LT(std::filesystem::file_size(home.path("data/archive")), 1100000U) << "trimmed";
    ASSERT_FALSE(std::filesystem::exists(home.path("data/old.cul")));

    // Every place, or some and the last ones, which are those of the end of the run. What looks for races
    // learns nothing of the others.
#if LUMETRA_UNDER_TSAN
    const bool every = false;
    const long places = test::often(4, 12);
#else
    const bool every = std::getenv("LUMETRA_LONG") != nullptr;
    constexpr long places = 12;
#endif
    const long last = all - 4;
    for (const bool toAll : {false, true})
        for (long n = 1, refused = 1; refused > 0 && !HasFailure();
             n = every || n >= last ? n + 1 : std::min(n + all / places, last)) {
            SCOPED_TRACE((toAll ? "all from allocation " : "allocation ") + std::to_string(n));
            begin();
            refused = run(n, toAll);
            EXPECT_EQ(newestValues(), values);
            EXPECT_EQ(declared(), rewritten);
            EXPECT_EQ(forecasts, filesOfForecasts);
            for (const auto& [identity, number] : resources)
                EXPECT_TRUE(numbers().contains(identity) || identity.find("/disk/goes") != identity.npos)
                    << identity;
            EXPECT_LE(numbers().size(), resources.size());
        }
}

} // namespace
} // namespace obrin
