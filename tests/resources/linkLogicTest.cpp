#include "resources/linkLogic.h"

#include "resources/resourceText.h"
#include "tests/resources/chainFixture.h"

#include <gmock/gmock.h>

namespace obrin::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// An input from behind its object argument to the end.
const std::vector<std::string> inputParts = {
    " FindInstance",   " (inst)", " FindCounter",      " (count)", " WindowSize",     " 1.5",
    " NameIs",         " (Name)", " AnalyticalMethod", " 3",       " UpperLimitAbs",  " 1.25",
    " UpperLimitCalc", " 2.5",    " LowerLimitAbs",    " -1",      " LowerLimitCalc", " -2",
    " CulpritMarker",  " (mark)", " EndResourceInput"};

std::string inputText() {
    std::string text;
    for (const auto& part : inputParts)
        text += part;
    return text;
}

class LinkLogic : public ChainTest {
protected:
    LinkLogic() : pad(clasp.ScratchPad) {
        machine.numberOfDisks = [this] { return static_cast<int>(disks.size()); };
        machine.disks = [this](int count, std::vector<DiskName>* names) {
            names->clear();
            for (int i = 0; i < count && i < static_cast<int>(disks.size()); ++i)
                names->emplace_back(disks[static_cast<std::size_t>(i)]);
            return static_cast<int>(names->size());
        };
        machine.numberOfProcesses = [](const char*, const char*) { return 0; };
        machine.processes = [](const char*, const char*, int, std::int32_t*) { return 0; };
    }

    int run(char engine, const std::string& text) {
        TextScanner scanner(text);
        InputReading input{scanner, pad, &clasp};
        const int result = engine == '1'   ? Type1ResourceLinkLogic(input, "Object")
                           : engine == 'P' ? ProcessLinkLogicEngine(input, machine)
                                           : DiskLinkLogicEngine(input, machine);
        rest = scanner.rest();
        linkMissing = input.linkMissing;
        return result;
    }

    std::vector<std::string> identifiers() const {
        std::vector<std::string> found;
        for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
            found.push_back(std::to_string(link->RID) + " " + link->Descriptor1.c_str() + " " +
                            link->Descriptor3.c_str());
        return found;
    }

    ScratchPad pad;
    InstanceEnumeration machine;
    std::vector<std::string> disks;
    std::string rest;
    bool linkMissing = false;
};

TEST_F(LinkLogic, AnInputIsReadIntoItsLink) {
    EXPECT_EQ(run('1', inputText() + " tail"), 1);
    EXPECT_EQ(rest, " tail");
    ASSERT_THAT(chain(), ElementsAre("Object 1"));
    const Link& link = *clasp.pFirstLink;
    EXPECT_EQ(link.ResourceType, 1);
    EXPECT_EQ(link.Descriptor1, "inst");
    EXPECT_EQ(link.Descriptor2, "count");
    EXPECT_EQ(link.Descriptor3, "-2");
    EXPECT_EQ(link.WindowSize, 1.5);
    EXPECT_EQ(link.NameIs, "Name");
    EXPECT_EQ(link.AnalyticalMethod, 3);
    EXPECT_EQ(link.UpperLimitAbs, 1.25);
    EXPECT_EQ(link.UpperLimitCalc, 2.5);
    EXPECT_EQ(link.LowerLimitAbs, -1);
    EXPECT_EQ(link.LowerLimitCalc, -2);
    EXPECT_EQ(link.CulpritMarker, "mark");
    EXPECT_EQ(link.pClasp, &clasp);
}

TEST_F(LinkLogic, AMalformedNumberLeavesItsFieldAtZero) {
    std::string text = inputText();
    text.replace(text.find("1.25"), 4, "many");
    EXPECT_EQ(run('1', text), 1);
    EXPECT_EQ(clasp.pFirstLink->UpperLimitAbs, 0);
    EXPECT_EQ(clasp.pFirstLink->UpperLimitCalc, 2.5);
}

TEST_F(LinkLogic, AType1InputDeclaredTwiceYieldsOneLink) {
    EXPECT_EQ(run('1', inputText()), 1);
    EXPECT_EQ(run('1', inputText()), 1);
    EXPECT_THAT(chain(), ElementsAre("Object 1"));
    EXPECT_EQ(occurrences(readFile(clasp.ScratchPad), "Event:"), 1U);
}

struct Row {
    std::size_t part; ///< the first part that is missing
    const char* type1;
    const char* type2;
};

const Row rows[] = {
    {0, "\n\nError parsing for 'FindInstance' in resource text F.",
     "\n\nFailure parsing for 'FindInstance' from resource text F.\n"},
    {1, "\n\nError retrieving Instance argument in resource text F.",
     "\n\nFailure retrieving Instance argument from resource text F.\n"},
    {2, "\n\nError parsing for 'FindCounter' in resource test F.",
     "\n\nFailure parsing for 'FindCounter' in resource text F.\n"},
    {3, "\n\nError retrieving Counter argument in resource text F.",
     "\n\nFailure retrieving Counter argument from resource text F.\n"},
    {4, "\n\nError parsing for 'WindowSize' in resource text F.",
     "\n\nFailure parsing for 'WindowSize' in resource text F.\n\n"},
    {6, "\n\nError parsing for 'NameIs' in resource text F.",
     "\n\nFailure parsing for 'NameIs' in resource text F.\n\n"},
    {7, "\n\nError parsing for NameIs argument in resource text F.",
     "\n\nFailure retrieving NameIs argument from resource text F.\n"},
    {8, "\n\nFailure parsing for 'AnalyticalMethod' in resource text F.\n\n",
     "\n\nFailure parsing for 'AnalyticalMethod' in resource text F.\n\n"},
    {10, "\n\nFailure parsing for 'UpperLimitAbs' in resource text F.\n\n",
     "\n\nFailure parsing for 'UpperLimitAbs' in resource text F.\n\n"},
    {12, "\n\nFailure parsing for 'UpperLimitCalc' in resource text F.\n\n",
     "\n\nFailure parsing for 'UpperLimitCalc' in resource text F.\n\n"},
    {14, "\n\nFailure parsing for 'LowerLimitAbs' in resource text F.\n\n",
     "\n\nFailure parsing for 'LowerLimitAbs' in resource text F.\n\n"},
    {16, "\n\nFailure parsing for 'LowerLimitCalc' in resource text F.\n\n",
     "\n\nFailure parsing for 'LowerLimitCalc' in resource text F.\n\n"},
    {18, "\n\nError parsing for 'CulpritMarker' in resource text F.",
     "\n\nError parsing for 'CulpritMarker' in resource text F."},
    {19, "\n\nError parsing for CulpritMarker argument in resource text F.",
     "\n\nError parsing for CulpritMarker argument in resource text F."},
    {20, nullptr, "\n\nFailure parsing for 'EndResourceInput' in resource.txt F.\n"},
};

TEST_F(LinkLogic, EachMissingPartIsLoggedInTheWordsOfItsEngine) {
    clasp.ResourceText = "F";
    for (const Row& row : rows) {
        std::string text;
        for (std::size_t i = 0; i < row.part; ++i)
            text += inputParts[i];
        for (char engine : {'1', 'P', 'D'}) {
            const char* expected = engine == '1' ? row.type1 : row.type2;
            const std::size_t before = log.text().size();
            EXPECT_EQ(run(engine, text), expected == nullptr ? 1 : -1) << row.part << engine;
            EXPECT_EQ(log.text().substr(before), expected == nullptr ? "" : expected) << row.part << engine;
        }
    }
}

TEST_F(LinkLogic, AFileNameWithPercentSignsIsTextInMessages) {
    clasp.ResourceText = "100% n";
    EXPECT_EQ(run('1', ""), -1);
    EXPECT_THAT(log.text(), HasSubstr("'FindInstance' in resource text 100"));
}

TEST_F(LinkLogic, AnInputWithoutItsEndIsTakenByTheType1EngineAndRefusedByTheOthers) {
    std::string text = inputText();
    text.erase(text.find(" EndResourceInput"));
    EXPECT_EQ(run('1', text), 1);
    EXPECT_THAT(chain(), ElementsAre("Object 1"));
    EXPECT_EQ(run('P', text), -1);
    EXPECT_EQ(run('D', text), -1);
    EXPECT_THAT(chain(), ElementsAre("Object 1"));
}

TEST_F(LinkLogic, ThreeDisksGiveATemplateAndThreeLinksWithTheSameNumbersInTheNextRun) {
    disks = {"/dev/a /", "/dev/b /home", "/dev/c /mnt/with blanks"};
    EXPECT_EQ(run('D', inputText()), 1);
    const std::vector<std::string> first = identifiers();
    EXPECT_THAT(first, ElementsAre("1 inst -1", "2 /dev/a / -2", "3 /dev/b /home -2",
                                   "4 /dev/c /mnt/with blanks -2"));
    const std::string recorded = readFile(clasp.ScratchPad);
    EXPECT_EQ(occurrences(recorded, "Event:"), 4U);
    ScanUpChainDeletingAllLinks(&clasp);
    clasp.MaximumRIDValue = 0;
    pad = ScratchPad(clasp.ScratchPad);
    EXPECT_EQ(run('D', inputText()), 1);
    EXPECT_EQ(identifiers(), first);
    EXPECT_EQ(readFile(clasp.ScratchPad), recorded);
}

TEST_F(LinkLogic, OnlyLinksWhoseNumbersTheScratchPadHadAwaitTheirHistory) {
    disks = {"/dev/a /", "/dev/b /home"};
    EXPECT_EQ(run('D', inputText()), 1);
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        EXPECT_FALSE(link->awaitsHistory) << link->RID;
    ScanUpChainDeletingAllLinks(&clasp);
    disks = {"/dev/a /", "/dev/c /new", "/dev/b /home"};
    EXPECT_EQ(run('D', inputText()), 1);
    EXPECT_THAT(identifiers(),
                ElementsAre("1 inst -1", "2 /dev/a / -2", "3 /dev/b /home -2", "4 /dev/c /new -2"));
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        EXPECT_EQ(link->awaitsHistory, link->RID != 4) << link->RID;
}

TEST_F(LinkLogic, OnlyTheDisksThatWereNamedAreAdopted) {
    disks = {"/dev/a /"};
    machine.numberOfDisks = [] { return 5; };
    EXPECT_EQ(run('D', inputText()), 1);
    EXPECT_THAT(identifiers(), ElementsAre("1 inst -1", "2 /dev/a / -2"));
}

TEST_F(LinkLogic, OfMoreNamesThanWereCountedOrToldOnlySoManyAreAdopted) {
    for (const auto& [counted, told] : {std::pair{2, 3}, {3, 2}}) {
        ScanUpChainDeletingAllLinks(&clasp);
        machine.numberOfDisks = [count = counted] { return count; };
        machine.disks = [namesTold = told](int, std::vector<DiskName>* names) {
            *names = {DiskName("a /a"), DiskName("b /b"), DiskName("c /c")};
            return namesTold;
        };
        EXPECT_EQ(run('D', inputText()), 1);
        EXPECT_THAT(identifiers(), ElementsAre("1 inst -1", "2 a /a -2", "3 b /b -2"));
    }
}

TEST_F(LinkLogic, NoDisksLeaveTheTemplateAlone) {
    machine.disks = [](int, std::vector<DiskName>*) -> int { throw std::runtime_error("asked"); };
    EXPECT_EQ(run('D', inputText()), 1);
    EXPECT_THAT(identifiers(), ElementsAre("1 inst -1"));
}

TEST_F(LinkLogic, ANegativeDiskCountIsSevere) {
    machine.numberOfDisks = [] { return -1; };
    EXPECT_EQ(run('D', inputText()), -1);
    EXPECT_EQ(log.text(),
              "\n\nThere is a problem with retrieving the number of disks for inst at point A. \n");
}

TEST_F(LinkLogic, AFailedDiskListConcernsThisInputOnly) {
    machine.numberOfDisks = [] { return 2; };
    machine.disks = [](int, std::vector<DiskName>*) { return -1; };
    EXPECT_EQ(run('D', inputText()), -2);
    EXPECT_EQ(log.text(),
              "\n\nThere is a problem with retrieving the number of disks for process inst at point B.");
    EXPECT_THAT(identifiers(), ElementsAre("1 inst -1"));
}

TEST_F(LinkLogic, AProcessTemplateThatIsThereAsksForNoProcesses) {
    EXPECT_EQ(run('P', inputText()), 1);
    machine.numberOfProcesses = [](const char*, const char*) -> int { throw std::runtime_error("asked"); };
    EXPECT_EQ(run('P', inputText()), 1);
    EXPECT_THAT(chain(), ElementsAre("Process 1"));
}

TEST_F(LinkLogic, ProcessesBecomeLinksByIdentifierUpToTheSmallerCount) {
    machine.numberOfProcesses = [](const char* object, const char* instance) {
        EXPECT_STREQ(object, "Process");
        EXPECT_STREQ(instance, "inst");
        return 2;
    };
    machine.processes = [](const char*, const char*, int count, std::int32_t* pids) {
        for (int i = 0; i < count; ++i)
            pids[i] = 500 + i;
        return 3;
    };
    EXPECT_EQ(run('P', inputText()), 1);
    EXPECT_THAT(identifiers(), ElementsAre("1 inst -1", "2 inst 500", "3 inst 501"));
}

TEST_F(LinkLogic, FailingProcessEnumerationsAreTold) {
    machine.numberOfProcesses = [](const char*, const char*) { return -1; };
    EXPECT_EQ(run('P', inputText()), -1);
    EXPECT_EQ(log.text(),
              "\n\nThere is a problem with retrieving the number of PIDs for process inst at point A. \n");
    ScanUpChainDeletingAllLinks(&clasp);
    machine.numberOfProcesses = [](const char*, const char*) { return 1; };
    machine.processes = [](const char*, const char*, int, std::int32_t*) { return -1; };
    EXPECT_EQ(run('P', inputText()), -2);
    EXPECT_THAT(log.text(), HasSubstr("the number of PIDs for process inst at point B."));
}

TEST_F(LinkLogic, ALinkThatFindsNoPlaceIsNotedAndDoesNotStopTheEngine) {
    clasp.MillisecondsPerSample = 1000;
    std::string text = inputText();
    text.replace(text.find("1.5"), 3, "1e300");
    EXPECT_EQ(run('1', text), 1);
    EXPECT_TRUE(linkMissing);
    EXPECT_THAT(chain(), IsEmpty());
    EXPECT_THAT(log.text(), HasSubstr("Memory cannot be allocated for new Link."));
}

} // namespace
} // namespace obrin::test
