// The agent's cycle, a step at a time, on the machine that the caller has prepared. Each line of standard
// input is a command, each answer a line: names and seconds of processor time, own and of children.
//
//   cycleBench cycles              in bin/ of a home, with the commands of `commands` below
//   cycleBench crowd N DESCRIPTORS N sleeping processes with so many open descriptors, until standard input
//   ends

#include "acquisition/archiveFile.h"
#include "acquisition/circularBuffers.h"
#include "acquisition/diskListing.h"
#include "acquisition/instances.h"
#include "acquisition/samplingCycle.h"
#include "agent/agentConfig.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/hostFeed.h"
#include "agent/stopSync.h"
#include "bench/processorTime.h"
#include "diagnosis/LX_DAQ_Subs.h"
#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "prediction/trendFileFormat.h"
#include "resources/resourceText.h"
#include "resources/windowSizing.h"
#include "support/clock.h"
#include "support/wholeFile.h"
#include "trendviewer/trendFiles.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace obrin::bench {
namespace {

/// A period goes by between two cycles, though nobody waits for it.
class PacedClock : public Clock {
public:
    std::time_t wallTime() override { return Clock::wallTime() + ahead_.count(); }
    Moment now() override { return Clock::now() + ahead_; }
    void goOn(std::chrono::seconds time) { ahead_ += time; }

private:
    std::chrono::seconds ahead_{0};
};

/// One line of the answer.
void tell(const char* what, ProcessorTime time) {
    std::printf(" %s %.7f %.7f", what, time.own, time.children);
}

int failed(const char* what) {
    std::fprintf(stderr, "cycleBench: %s failed\n", what);
    return 1;
}

/// A disk's history: a daily wave with noise.
double historicValue(std::uint32_t resource, std::uint32_t sample) {
    const std::uint32_t noise = (resource * 2654435761U + sample) * 2246822519U >> 16;
    return 45.0 + 30.0 * std::sin(sample * 0.0044 + resource) + noise % 256 / 256.0;
}

class Agent {
public:
    Agent() { setSystemClock(&clock_); }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    ~Agent() { setSystemClock(nullptr); }

    /// A start, and its first sampling.
    void start(int /*argument*/) {
        beginExecuting();
        initLogFile();
        openLogFile();
        openHostFeed();
        beginInstanceRun();
        tell("start", timeOf([&] {
                 takeUp();
                 RawDataRetrievalAndArchive(&clasp_);
             }));
    }

    /// Fills each ring with so many samples, less the one that the next cycle takes.
    void fill(int samples) {
        MutexLock lock(chainLock);
        std::uint32_t resource = 0;
        for (Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink, ++resource) {
            link->SampleCount = 0;
            link->NextSlot = 0;
            for (int i = 1; i < samples; ++i)
                pushSample(*link, double(TimeStamp) - period() * double(samples - 1 - i),
                           historicValue(resource, static_cast<std::uint32_t>(i)));
        }
    }

    void cycle(int /*argument*/) {
        clock_.goOn(std::chrono::seconds(period()));
        tell("sampling", timeOf([&] { RawDataRetrievalAndArchive(&clasp_); }));
        // Made by the forecasts, too: here by themselves, so that they can be told apart.
        tell("reports", timeOf([&] { makeReports(); }));
        tell("forecasts", timeOf([&] {
                 const TrendFileGuard lock;
                 predictor(&clasp_);
             }));
        tell("writing", timeOf([&] {
                 update_autoresource_file(&clasp_);
                 trim(clasp_.HardDriveArchive, megabytes_);
             }));
        tell("publishing", timeOf([&] { publishCycle(clasp_, {}); }));
    }

    void reports(int /*argument*/) {
        tell("reports", timeOf([&] { makeReports(); }));
    }

    void listing(int /*argument*/) {
        beginListingCycle(std::chrono::milliseconds(clasp_.MillisecondsPerSample));
        tell("listing", timeOf([] { takeDiskListing(DiskCounter::space); }));
    }

    /// As a program does that knows no better way.
    void shellListing(int /*argument*/) {
        tell("listing", timeOf([] {
                 std::string words[] = {"sh", "-c", "df > ../tempdata/shell.txt"};
                 char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
                 pid_t child = -1;
                 if (::posix_spawnp(&child, "sh", nullptr, nullptr, arguments, environ) == 0)
                     ::waitpid(child, nullptr, 0);
                 readWholeFile("../tempdata/shell.txt");
             }));
    }

    void resources(int /*argument*/) {
        std::size_t count = 0;
        for (const Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink)
            count += isTemplate(*link) ? 0U : 1U;
        std::printf(" resources %zu 0", count);
    }

private:
    int period() const { return clasp_.MillisecondsPerSample / 1000; }

    void takeUp() {
        const std::string path = "../config/AutoConfig.ini";
        if (!readConfiguration(readWholeFile(path).value_or(""), path, &clasp_, &megabytes_))
            std::exit(failed("readConfiguration"));
        {
            MutexLock lock(chainLock);
            pResourceClasp = &clasp_;
        }
        if (validateResourceText(&clasp_) != 1 || AutoSizeWindows(&clasp_) != 1)
            std::exit(failed("the start"));
        SanityCheckChain(&clasp_);
        if (allocatecircularbuffers(&clasp_) != 1)
            std::exit(failed("allocatecircularbuffers"));
        setInitialEventStates();
    }

    void makeReports() {
        char text[culpritTextSize] = "";
        CulpritText culprits{text};
        const SharedCensus census;
        for (Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink)
            diagnose(link, &culprits);
    }

    PacedClock clock_;
    Clasp clasp_;
    int megabytes_ = 0;
};

// --- trend files, the agent's way and the plain way
// --------------------------------------------------------------------------------

struct Curves {
    std::vector<float> forecastTimes, forecast, sampleTimes, samples;
};

Curves curvesOf(std::uint32_t resource, int samples) {
    Curves curves;
    for (int i = 0; i < samples; ++i) {
        curves.sampleTimes.push_back(static_cast<float>(10 * i));
        curves.samples.push_back(static_cast<float>(historicValue(resource, static_cast<std::uint32_t>(i))));
    }
    for (int i = 0; i < forecastPoints; ++i) {
        curves.forecastTimes.push_back(curves.sampleTimes.back() + static_cast<float>(868 * i));
        curves.forecast.push_back(curves.samples.back() + 0.01F * static_cast<float>(i));
    }
    return curves;
}

std::string displayName(int resource) {
    return "Disk" + std::to_string(resource);
}

const TrendHeadline headline{100.0, 1'700'000'000, 36.5, "simple linear regression", 75.25F};

void replaceByPrintf(const std::string& path, const std::vector<float>& times,
                     const std::vector<float>& values) {
    const std::string side = path + ".next";
    std::FILE* file = std::fopen(side.c_str(), "w");
    if (file == nullptr)
        return;
    for (std::size_t i = 0; i < times.size(); ++i)
        std::fprintf(file, "%f %f \n", static_cast<double>(times[i]), static_cast<double>(values[i]));
    std::fclose(file);
    std::rename(side.c_str(), path.c_str());
}

/// The same three files, each printed into a side file and renamed.
void writePlainly(const std::string& home, const std::string& name, const Curves& curves) {
    const TrendFileNames names = trendFileNames(home, name, "");
    const std::string side = names.script + ".next";
    std::FILE* file = std::fopen(side.c_str(), "w");
    if (file == nullptr)
        return;
    std::fprintf(file, "%s", trendScriptText(headline, home, name, "").c_str());
    std::fclose(file);
    std::rename(side.c_str(), names.script.c_str());
    replaceByPrintf(names.forecast, curves.forecastTimes, curves.forecast);
    replaceByPrintf(names.samples, curves.sampleTimes, curves.samples);
}

/// Writes the trend files of so many resources with so many samples into two directories.
class TrendWriter {
public:
    TrendWriter(const std::string& agentHome, const std::string& plainHome, int resources, int samples)
        : agentHome_(agentHome + "/"), plainHome_(plainHome + "/") {
        beginExecuting();
        for (int i = 0; i < resources; ++i)
            curves_.push_back(curvesOf(static_cast<std::uint32_t>(i), samples));
    }

    void agent(int times) {
        tell("files", timeOf([&] {
                 for (int round = 0; round < times; ++round) {
                     const TrendFileGuard lock;
                     for (std::size_t i = 0; i < curves_.size(); ++i)
                         writeTrendFiles(headline, agentHome_, displayName(static_cast<int>(i)), "",
                                         curves_[i].forecastTimes, curves_[i].forecast,
                                         curves_[i].sampleTimes, curves_[i].samples);
                 }
             }));
    }

    void plain(int times) {
        tell("files", timeOf([&] {
                 for (int round = 0; round < times; ++round)
                     for (std::size_t i = 0; i < curves_.size(); ++i)
                         writePlainly(plainHome_, displayName(static_cast<int>(i)), curves_[i]);
             }));
    }

private:
    std::string agentHome_, plainHome_;
    std::vector<Curves> curves_;
};

// --- commands
// ---------------------------------------------------------------------------------------------------------------------------

/// Obeys the lines "name [number]" of standard input.
template <class Subject>
int obey(Subject& subject, const std::map<std::string, void (Subject::*)(int)>& commands) {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string name;
        int number = 1;
        words >> name >> number;
        const auto found = commands.find(name);
        if (found == commands.end())
            return failed(name.c_str());
        (subject.*found->second)(number);
        std::printf("\n");
        std::fflush(stdout);
    }
    return 0;
}

int serveCycles() {
    Agent agent;
    return obey<Agent>(agent, {{"start", &Agent::start},
                               {"fill", &Agent::fill},
                               {"cycle", &Agent::cycle},
                               {"reports", &Agent::reports},
                               {"listing", &Agent::listing},
                               {"shell-listing", &Agent::shellListing},
                               {"resources", &Agent::resources}});
}

int serveTrendFiles(char** arguments) {
    TrendWriter writer(arguments[0], arguments[1], std::atoi(arguments[2]), std::atoi(arguments[3]));
    return obey<TrendWriter>(writer, {{"agent", &TrendWriter::agent}, {"plain", &TrendWriter::plain}});
}

[[noreturn]] void sleepWith(int descriptors) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (int open = 3; open < descriptors; ++open)
        if (::open("/dev/null", O_RDONLY) < 0)
            ::_exit(1);
    while (true)
        ::pause();
}

int makeCrowd(int processes, int descriptors) {
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = ::fork();
        if (child == 0)
            sleepWith(descriptors);
        if (child < 0)
            return failed("fork");
        children.push_back(child);
    }
    std::printf("ready\n");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
        // until the caller has had enough
    }
    for (const pid_t child : children)
        ::kill(child, SIGKILL);
    while (::wait(nullptr) > 0) {
        // all of them
    }
    return 0;
}

} // namespace
} // namespace obrin::bench

int main(int count, char** arguments) {
    using namespace obrin::bench;
    ::tzset();
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "cycles")
        return serveCycles();
    if (what == "trendfiles" && count == 6)
        return serveTrendFiles(arguments + 2);
    if (what == "crowd" && count == 4)
        return makeCrowd(std::atoi(arguments[2]), std::atoi(arguments[3]));
    std::fprintf(
        stderr, "usage: cycleBench cycles | trendfiles HOME OTHER RESOURCES SAMPLES | crowd N DESCRIPTORS\n");
    return 2;
}
