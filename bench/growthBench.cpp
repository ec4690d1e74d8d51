#include "acquisition/circularBuffers.h"
#include "acquisition/diskListing.h"
#include "acquisition/textForms.h"
#include "agent/hostFeed.h"
#include "bench/ratios.h"
#include "bench/stopwatch.h"
#include "diagnosis/processCensus.h"
#include "resources/linkLogic.h"
#include "resources/resourceChain.h"
#include "resources/resourceTokens.h"
#include "resources/scratchPad.h"
#include "support/clock.h"
#include "support/systemPaths.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

namespace obrin::bench {
namespace {

std::string numbered(const char* text, int number) {
    return text + std::to_string(number);
}

double searchOfKeyword(int words) {
    std::string text;
    for (int i = 0; i < words; ++i)
        text += "ab ";
    return nanosecondsPerCall([&] {
        TextScanner scanner(text);
        benchmark::DoNotOptimize(ScanForKeyCode(findObjectKey, scanner));
    });
}

double listingAndLookUps(int disks) {
    std::string text = "heading\n";
    for (int i = 0; i < disks; ++i)
        text += numbered("/dev/", i) + " 1000 300 600 34% " + numbered("/mnt/", i) + "\n";
    return nanosecondsPerCall([&] {
        const DiskListing listing(text);
        for (int i = 0; i < disks; ++i)
            benchmark::DoNotOptimize(
                listing.find(cleanfilename(numbered("/dev/", i) + numbered(" /mnt/", i))));
    });
}

std::string temporaryFile() {
    const char* directory = std::getenv("TMPDIR");
    return std::string(directory == nullptr ? "/tmp" : directory) + numbered("/lumetra-bench-", ::getpid());
}

/// Reads a scratch pad and looks up every disk of it.
double scratchPadLookUps(int records) {
    const std::string path = temporaryFile();
    std::ofstream file(path);
    for (int i = 1; i <= records; ++i)
        file << "\nEvent: ResourceDefinition - Informational \n2   " << i << "   (LogicalDisk)   (/dev/" << i
             << ")   (PercentFreeSpaceUsed)   -2   \n";
    file.close();
    Link link;
    link.ResourceType = 2;
    link.Descriptor0 = "LogicalDisk";
    link.Descriptor2 = "PercentFreeSpaceUsed";
    link.Descriptor3 = "-2";
    const double time = nanosecondsPerCall([&] {
        ScratchPad pad(path);
        for (int i = 1; i <= records; ++i) {
            link.Descriptor1.assign(numbered("/dev/", i));
            std::int32_t rid = 0;
            benchmark::DoNotOptimize(CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid));
        }
    });
    ::unlink(path.c_str());
    return time;
}

/// Adds disks; without a window they have no rings.
void watch(Clasp* clasp, int disks, double windowHours) {
    Link link;
    link.ResourceType = 2;
    link.Descriptor0 = "LogicalDisk";
    link.Descriptor2 = "PercentFreeSpaceUsed";
    link.Descriptor3 = "-2";
    link.NameIs = "PercentFreeSpaceUsed";
    link.WindowSize = windowHours;
    link.pClasp = clasp;
    for (int i = 1; i <= disks; ++i) {
        link.Descriptor1.assign(numbered("/dev/", i) + numbered(" /mnt/", i));
        link.RID = i;
        CreateLinkInChainAndCopyData(&link);
    }
}

/// Fills the rings of so many resources from an archive of a hundred cycles.
double readingBack(int resources) {
    Clasp clasp;
    clasp.MillisecondsPerSample = 60000;
    clasp.HardDriveArchive = temporaryFile();
    watch(&clasp, resources, 24);
    std::ofstream file(clasp.HardDriveArchive);
    for (int line = 100; line > 0; --line) {
        file << systemClock().wallTime() - line * 60 << ' ';
        for (int rid = 1; rid <= resources; ++rid)
            file << rid << " 0 " << (line + rid) % 100 << ".25 ";
        file << '\n';
    }
    file.close();
    const double time = nanosecondsPerCall([&] { refreshcircularbuffers(&clasp); });
    ::unlink(clasp.HardDriveArchive.c_str());
    ScanUpChainDeletingAllLinks(&clasp);
    return time;
}

/// The state after a cycle, made for the host.
double publication(int disks) {
    Clasp clasp;
    watch(&clasp, disks, 0);
    openHostFeed();
    const double time = nanosecondsPerCall([&] { publishCycle(clasp, {}); });
    ScanUpChainDeletingAllLinks(&clasp);
    return time;
}

using Count = std::int32_t;
using Record = ProcessResourceInformation;

double children(int processes, void (*calculate)(Count, Record*), const std::function<Record(Count)>& make) {
    std::vector<Record> census;
    for (Count i = 0; i < processes; ++i)
        census.push_back(make(i));
    return nanosecondsPerCall([&] {
        std::vector<Record> records = census;
        calculate(processes, records.data());
        benchmark::DoNotOptimize(records.data());
    });
}

Record process(Count pid, Count parent) {
    Record record;
    record.pid = pid;
    record.ppid = parent;
    return record;
}

template <class Work>
Growth growth(const char* what, int size, Work work) {
    return {what, size, work(size), work(4 * size)};
}

} // namespace

std::vector<Growth> growths() {
    systemPaths().log = "/dev/null";
    const auto siblings = [](int size) {
        return children(size, calculateimmediatechildren, [](Count i) { return process(i + 1, 1); });
    };
    const auto sharedNumber = [](int size) {
        return children(size, calculateimmediatechildren, [](Count) { return process(7, 7); });
    };
    const auto chain = [](int size) {
        return children(size, calculatepenultimatechildren, [](Count i) { return process(i + 1, i); });
    };
    return {growth("search of a keyword among words", 100000, searchOfKeyword),
            growth("disk listing, every disk looked up", 2500, listingAndLookUps),
            growth("scratch pad, every record looked up", 2500, scratchPadLookUps),
            growth("a hundred cycles of the archive, read back", 500, readingBack),
            growth("children of processes with one parent", 7500, siblings),
            growth("children of processes that share one number", 7500, sharedNumber),
            growth("families of a chain of processes", 2500, chain),
            growth("state of a cycle for the host", 2500, publication)};
}

} // namespace obrin::bench
