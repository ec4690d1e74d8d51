#include "agent/agentRun.h"

#include "acquisition/archiveFile.h"
#include "acquisition/archiveResume.h"
#include "acquisition/circularBuffers.h"
#include "acquisition/instances.h"
#include "acquisition/samplingCycle.h"
#include "agent/agentConfig.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "agent/homePlaces.h"
#include "agent/hostFeed.h"
#include "agent/resume.h"
#include "agent/serviceNotice.h"
#include "agent/serviceStatus.h"
#include "agent/stopSync.h"
#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "resources/resourceChain.h"
#include "resources/resourceText.h"
#include "resources/windowSizing.h"
#include "support/clock.h"
#include "support/handles.h"
#include "support/safeOpen.h"
#include "support/wholeFile.h"
#include "trendviewer/trendFiles.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <exception>
#include <memory>

namespace obrin {
namespace {

/// The run's control record, visible to readers on other threads for as long as it lives.
class RunRecord {
public:
    RunRecord() : clasp_(std::make_unique<Clasp>()) { publish(clasp_.get()); }
    RunRecord(const RunRecord&) = delete;
    RunRecord& operator=(const RunRecord&) = delete;
    ~RunRecord() {
        if (clasp_->pLastLink != nullptr)
            ScanUpChainDeletingAllLinks(clasp_.get());
        publish(nullptr);
    }

    Clasp* get() const { return clasp_.get(); }

private:
    static void publish(Clasp* clasp) {
        MutexLock lock(chainLock);
        pResourceClasp = clasp;
    }

    std::unique_ptr<Clasp> clasp_;
};

/// Prints to standard output, unless that would wait, and to the log; three parts of one text.
void say(const char* before, const char* text = "", const char* after = "") {
    if (takesALine(STDOUT_FILENO)) {
        std::printf("%s%s%s", before, text, after);
        std::fflush(stdout);
    }
    DEBUGMSG("%s%s%s", before, text, after);
}

// The reports take no memory: its want may be what they tell of.

void reportFailure(const char* what) {
    char text[128];
    std::snprintf(text, sizeof text, "Call To %s Failed", what);
    error_exit("fatal", text);
}

/// A step that failed is logged and reported; `what` is the step's name.
void reportFailedStep(const char* what) {
    DEBUGMSG("%s failed...exiting\n", what);
    reportFailure(what);
}

void reportFailedCycleStep(const char* what, int result) {
    DEBUGMSG("Failure of %s. Error Code %d...exiting.\n", what, result);
    reportFailure(what);
}

int refuseConfig(const std::string& configPath) {
    const std::string text = "Cannot open " + configPath + " file. Use Configure Wizard.";
    DEBUGMSG("\n%s\n\n", text.c_str());
    error_exit("fatal", text.c_str());
    DEBUGMSG("Obrinagent main(): before return;\n");
    return 0;
}

/// Removes what a death left of files that were being replaced, where the run replaces any.
void removeLeftovers(const Clasp& clasp) {
    removeSideFiles(clasp.DataHomeDirectory);
    removeSideFiles(clasp.HardDriveArchive);
    removeSideFiles(givenTarget(clasp.ResourceText).value_or(clasp.ResourceText));
}

/// Everything between the configuration and the first cycle. False when the run cannot go on; that has been
/// reported.
bool startUp(Clasp* clasp) {
    logForeignPlaces(clasp->IniFile);
    removeLeftovers(*clasp);
    keepArchivedNumbers(clasp);
    if (validateResourceText(clasp) != 1) {
        reportFailedStep("validateResourceText");
        return false;
    }
    if (AutoSizeWindows(clasp) == -1) {
        reportFailedStep("AutoSizeWindows");
        return false;
    }
    if (SanityCheckChain(clasp) == -1) {
        reportFailedStep("SanityCheckChain");
        return false;
    }
    if (allocatecircularbuffers(clasp) != 1) // without rings the samples still reach the archive
        reportFailedStep("allocatecircularbuffers");
    deleteTrendFilesSynchronized(clasp);
    DEBUGMSG("Before setInitialEventStates()\n");
    setInitialEventStates();
    return true;
}

/// A request to stop ends the reading, however much there is to be read.
bool readOn(std::int64_t read, std::int64_t all) {
    tellReading(read, all);
    if (isServiceNoticeOpen() && systemClock().now() >= nextSignOfLife())
        tellAlive(describeReadingArchive(read, all));
    return continueExecuting != 0;
}

void resume(Clasp* clasp) {
    clasp->clockSteps.look(clasp->MillisecondsPerSample); // a step from here on is noticed
    clasp->resumes = isResumeWanted();
    resumeRings(clasp, &readOn);
    tellReading(0, 0);
}

/// The result of a step that the run can go on without; -1 when memory was too short for it, which the next
/// time may find better.
template <class Step>
int attempt(Step step) {
    try {
        return step();
    } catch (const std::exception& failure) {
        DEBUGMSG("A step of the run was given up: %s\n", failure.what());
        return -1;
    }
}

/// Seconds since the last call.
class StopWatch {
public:
    double lap() {
        const Clock::Moment now = systemClock().now();
        const std::chrono::duration<double> time = now - last_;
        last_ = now;
        return time.count();
    }

private:
    Clock::Moment last_ = systemClock().now();
};

void publish(const Clasp& clasp, const CycleReport& report) {
    attempt([&] {
        publishCycle(clasp, report);
        return 1;
    });
}

/// Without memory for what there is to be said, the sign of life goes out alone.
void tellService(const Clasp& clasp) {
    if (!isServiceNoticeOpen())
        return;
    std::string status;
    attempt([&] {
        status = describeService(clasp);
        return 1;
    });
    tellCycle(status);
}

void runOneCycle(Clasp* clasp, CycleReport* report) {
    StopWatch watch;
    const int sampled = attempt([&] { return RawDataRetrievalAndArchive(clasp); });
    if (sampled != 1)
        reportFailedCycleStep("RawDataRetrievalAndArchive", sampled);
    report->sampling = watch.lap();
    {
        const TrendFileGuard lock;
        const int predicted = attempt([&] { return predictor(clasp); });
        if (predicted != 1)
            reportFailedCycleStep("predictor", predicted);
    }
    report->forecast = watch.lap();
    attempt([&] { return update_autoresource_file(clasp); });
    attempt([&] { return trim(clasp->HardDriveArchive, report->archiveMegabytes); });
    report->writing = watch.lap();
    report->total += report->sampling + report->forecast + report->writing;
    ++report->cycles;
    publish(*clasp, *report);
    tellService(*clasp);
}

void runWith(std::string_view configuration, const std::string& configPath) {
    RunRecord record;
    Clasp* clasp = record.get();
    CycleReport report;
    if (!readConfiguration(configuration, configPath, clasp, &report.archiveMegabytes) || !startUp(clasp))
        return;
    resume(clasp);
    publish(*clasp, report);
    do {
        runOneCycle(clasp, &report);
        javaThreadSyncSleep(clasp->MillisecondsPerSample / 1000);
    } while (continueExecuting != 0);
    attempt([&] {
        deleteTrendFilesSynchronized(clasp);
        return 1;
    });
}

} // namespace

void announceStart() {
    initLogFile();
    const int error = openLogFile();
    if (error != 0 && error != ENOENT)
        say("The log cannot be written: ", whyNotOpened(error), "\n");
    systemClock().pause(std::chrono::seconds(1));
    say("libObrinagent.so starting. Log file is open!\n");
}

int runAgent(int argumentCount, const std::string& programName, const std::string& configPath) {
    beginInstanceRun();
    ::tzset();
    if (argumentCount != 2) {
        say("\n\nusage: ", programName.c_str(), " \t ..\\data\\AutoConfig.ini \n\n");
        error_exit("fatal", "Improper Arguments");
    }
    const auto configuration = readGivenFile(configPath);
    if (!configuration)
        return refuseConfig(configPath);
    const char* locale = std::setlocale(LC_ALL, nullptr);
    say("agent locale(LC_ALL)=", locale == nullptr ? "" : locale, "\n");
    runWith(*configuration, configPath);
    return endRun();
}

int endRun() {
    publishEnd();
    char now[32] = "";
    const std::time_t seconds = systemClock().wallTime();
    ::ctime_r(&seconds, now);
    DEBUGMSG("Ending prediction. timeOfDay=%s\n", now);
    return closeLogFile();
}

} // namespace obrin
