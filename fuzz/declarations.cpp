// The declaration file: the check, the engines, and what is written back.

#include "fuzz/feedFindings.h"
#include "resources/declarationFindings.h"
#include "resources/resourceChain.h"
#include "resources/resourceText.h"

#include <cmath>
#include <map>
#include <set>
#include <unistd.h>

namespace obrin::fuzz::declarations {
namespace {

constexpr std::string_view date = "Thu Jan  1 00:00:00 1970\n";

/// A run's chain over a scratch pad.
class Run {
public:
    Run(const std::string& padPath, std::string_view text) : pad_(padPath) {
        clasp_.ResourceText = "resources.txt";
        clasp_.MillisecondsPerSample = -1; // a ring of one slot for any window
        clasp_.MaxForecastHours = 48;
        parsed_ = parseResourceText(text, &clasp_, pad_, machine());
        checkNumbers();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() { ScanUpChainDeletingAllLinks(&clasp_); }

    const ParseResult& parsed() const { return parsed_; }
    std::string written() const { return resourceTextFromChain(clasp_, date); }
    const Link* first() const { return clasp_.pFirstLink; }
    bool has(const DeclaredInput& input) const {
        for (const Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink)
            if (link->Descriptor0 == input.object && link->Descriptor1 == input.instance &&
                link->Descriptor2 == input.counter)
                return true;
        return false;
    }

    /// The numbers that the scratch pad has kept, and whether these are all.
    std::map<std::string, std::int32_t> keptNumbers(bool* areAll) {
        std::map<std::string, std::int32_t> numbers;
        *areAll = true;
        for (const Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink) {
            std::int32_t rid = 0;
            if (CheckForDuplicateLinkInFileAndGetRID(pad_, link, &rid) == 2)
                numbers[linkIdentity(*link)] = link->RID;
            *areAll = *areAll && rid == link->RID;
        }
        return numbers;
    }

private:
    static InstanceEnumeration machine() {
        InstanceEnumeration instances;
        instances.numberOfDisks = [] { return 2; };
        instances.disks = [](int, std::vector<DiskName>* names) {
            *names = {"/dev/sda1 /", "tmpfs /mnt/a )   (b"};
            return 2;
        };
        instances.numberOfProcesses = [](const char*, const char*) { return 1; };
        instances.processes = [](const char*, const char*, int, std::int32_t* pids) {
            pids[0] = 4711;
            return 1;
        };
        return instances;
    }

    void checkNumbers() const {
        std::int32_t before = 0;
        for (const Link* link = clasp_.pFirstLink; link != nullptr; link = link->pNextLink) {
            require(link->RID > before, "no number is given twice");
            before = link->RID;
        }
    }

    Clasp clasp_;
    ScratchPad pad_;
    ParseResult parsed_;
};

void checkAgainstReport(const Run& run, const DeclarationReport& report) {
    const auto& parsed = run.parsed();
    require(report.accepted == (parsed.result == 1), "the check accepts what a run accepts");
    bool everyRingCanBe = true;
    for (const DeclaredInput& input : report.inputs) {
        const bool ringCanBe = !(std::isinf(input.window) && input.window > 0);
        everyRingCanBe = everyRingCanBe && ringCanBe;
        require(!ringCanBe || run.has(input), "every input that is read whole is watched");
    }
    if (report.accepted)
        require((parsed.loss == nullptr) == (report.rewritten && everyRingCanBe),
                "the check knows what is replaced");
}

/// To the six decimals that are written.
bool isSame(double a, double b) {
    return std::fabs(a - b) <= 1e-6 || a == b || (std::isnan(a) && std::isnan(b));
}

bool isSame(const Link& a, const Link& b) {
    return a.NameIs == b.NameIs && a.CulpritMarker == b.CulpritMarker &&
           a.AnalyticalMethod == b.AnalyticalMethod && isSame(a.UpperLimitAbs, b.UpperLimitAbs) &&
           isSame(a.UpperLimitCalc, b.UpperLimitCalc) && isSame(a.LowerLimitAbs, b.LowerLimitAbs) &&
           isSame(a.LowerLimitCalc, b.LowerLimitCalc);
}

/// The resources of both runs, which the chain has in the order of their numbers.
void checkSameLinks(const Link* before, const Link* now) {
    for (; before != nullptr && now != nullptr; before = before->pNextLink, now = now->pNextLink)
        require(CompareLinks(before, now) == 2 && isSame(*before, *now), "a resource is declared as it was");
    require(before == nullptr && now == nullptr, "the same resources are declared");
}

void checkWrittenBack(Run& run, const std::string& pad) {
    const std::string text = run.written();
    bool areAllKept = true;
    const auto numbers = run.keptNumbers(&areAllKept);
    Run again(pad, text);
    require(again.parsed().result == 1 && again.parsed().loss == nullptr,
            "what is written back is understood whole");
    bool areAllKeptAgain = true;
    for (const auto& [identity, rid] : again.keptNumbers(&areAllKeptAgain)) {
        const auto before = numbers.find(identity);
        require(before == numbers.end() || before->second == rid, "a known resource keeps its number");
    }
    if (!areAllKept)
        return;
    checkSameLinks(run.first(), again.first());
    require(again.written() == text, "what is written back parses to the same");
}

void checkFeed(std::string_view input, std::int32_t period, std::int32_t maxForecastHours) {
    const std::string feed = declarationsFeed(input, period, maxForecastHours);
    BytesReader bytes(feed);
    passFindings(bytes);
    bytes.flag();
    bytes.flag();
    bytes.longNumber(); // a place
    bytes.number();
    bytes.number();
    bytes.longNumber(); // hours
    require(bytes.longNumber() >= -1, "a number of samples is one, or -1");
    for (std::int32_t left = bytes.number(); left > 0 && bytes.isWhole(); --left) {
        for (int text = 0; text < 4; ++text) {
            bytes.text();
            bytes.longNumber();
        }
        bytes.longNumber(), bytes.longNumber(); // window, place
        bytes.number(), bytes.longNumber();     // method, place
        bytes.longNumber(), bytes.longNumber(); // limit, place
        require(bytes.number() <= 3, "a window has a fate");
        require(bytes.longNumber() >= -1, "a number of samples is one, or -1");
        bytes.text();
    }
    require(bytes.isWhole() && bytes.atEnd(), "the bytes for the host are whole");
}

void check(std::string_view input) {
    static const std::string pad = workFile("ScratchPad.txt");
    ::unlink(pad.c_str());
    Run run(pad, input);
    checkAgainstReport(run, checkDeclarations(input));
    if (run.parsed().result == 1 && run.parsed().loss == nullptr)
        checkWrittenBack(run, pad);
    checkFeed(input, -1, 48);
    checkFeed(input, 10000, 0);
    checkFeed(input, 0, 2147483647);
}

const Target target("declarations", check);

} // namespace
} // namespace obrin::fuzz::declarations
