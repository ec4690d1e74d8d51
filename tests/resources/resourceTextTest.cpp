#include "resources/resourceText.h"

#include "support/handles.h"
#include "tests/resources/chainFixture.h"
#include "tests/support/sanitizers.h"
#include "tests/support/timeZone.h"
#include "tests/support/turnedClock.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <locale.h>
#include <random>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#if LUMETRA_UNDER_ASAN
#include <sanitizer/lsan_interface.h>
#endif

namespace obrin::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::string input(const std::string& object, const std::string& window = "-1.",
                  const std::string& name = "Name") {
    return "BeginResourceInput\n\tFindObject (" + object +
           ")\n\tFindInstance (inst)\n\tFindCounter (count)\n\tWindowSize " + window + "\n\tNameIs (" + name +
           ")\n\tAnalyticalMethod 1\n\tUpperLimitAbs -1.000000\n\tUpperLimitCalc 2.500000\n\tLowerLimitAbs "
           "0.000000\n"
           "\tLowerLimitCalc -1.000000\n\tCulpritMarker (mark)\nEndResourceInput\n\n";
}

std::string declaration(const std::string& inputs) {
    return "BeginResourceDeclaration\n\n" + inputs + "EndResourceDeclaration\n";
}

const std::string timeText = "Sat Nov 21 01:54:19 2026\n";

/// An installed locale, or one compiled into `directory`; none when neither can be had.
locale_t localeWithDecimalComma(const std::string& directory) {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8"})
        if (const locale_t found = ::newlocale(LC_NUMERIC_MASK, name, locale_t{}))
            return found;
    std::filesystem::create_directory(directory);
    const std::string command = "localedef -i de_DE -f UTF-8 " + directory + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(command.c_str()) == -1)
        return locale_t{};
#if LUMETRA_UNDER_ASAN
    const __lsan::ScopedDisabler libraryLosesItsCopyOfThePath;
#endif
    ::setenv("LOCPATH", directory.c_str(), 1);
    const locale_t found = ::newlocale(LC_NUMERIC_MASK, "de_DE.UTF-8", locale_t{});
    ::unsetenv("LOCPATH");
    return found;
}

class ResourceText : public ChainTest {
protected:
    ResourceText() {
        machine.numberOfDisks = [] { return 2; };
        machine.disks = [](int, std::vector<DiskName>* names) {
            *names = {DiskName("/dev/a /"), DiskName("/dev/b /home")};
            return 2;
        };
    }

    int parse(const std::string& text) {
        writeFile(clasp.ResourceText, text);
        return validateResourceText(&clasp, machine);
    }

    std::string file() { return readFile(clasp.ResourceText); }

    /// Whether the file is as it was after an attempt to rewrite it.
    bool leftAlone() {
        const std::string before = file();
        EXPECT_EQ(update_autoresource_file(&clasp), 1);
        return file() == before;
    }

    InstanceEnumeration machine;
};

TEST_F(ResourceText, ADeclarationOfAllKindsBuildsTheChain) {
    EXPECT_EQ(parse("title\n" + declaration(input("Swap") + input("LogicalDisk") + input("Process"))), 1);
    EXPECT_THAT(chain(),
                ElementsAre("Swap 1", "LogicalDisk 2", "LogicalDisk 3", "LogicalDisk 4", "Process 5"));
    EXPECT_EQ(log.text(),
              "Entering validateResourceText\n after aScratchPad=0x00000001\n after rScratchPad=0x00000001\n"
              " after ResourceText=0x00000001\nLeaving validateResourceText\n");
    EXPECT_TRUE(clasp.declarationsComplete);
}

TEST_F(ResourceText, AFileThatCannotBeOpenedFails) {
    EXPECT_EQ(validateResourceText(&clasp, machine), -1);
    EXPECT_THAT(log.text(), EndsWith(" after ResourceText=0x00000000\nError opening Resource text file " +
                                     clasp.ResourceText + "\n"));
    EXPECT_FALSE(clasp.declarationsComplete);
}

TEST_F(ResourceText, AScratchPadThatCannotBeMadeIsZeroInTheLogAndStopsNothing) {
    clasp.ScratchPad = directory.path("none/pad");
    EXPECT_EQ(parse(declaration(input("Swap"))), 1);
    EXPECT_THAT(log.text(), HasSubstr(" after aScratchPad=0x00000000\n after rScratchPad=0x00000000\n"));
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
}

TEST_F(ResourceText, TheScratchPadIsMadeWhenMissing) {
    parse("");
    EXPECT_TRUE(std::filesystem::exists(clasp.ScratchPad));
}

TEST_F(ResourceText, WithoutBeginResourceDeclarationItFails) {
    EXPECT_EQ(parse(input("Swap")), -1);
    EXPECT_THAT(log.text(), EndsWith("\n\nStr 'BeginResourceDeclaration' not found res.txt " +
                                     clasp.ResourceText + ".\n\n"));
}

TEST_F(ResourceText, WithoutFindObjectItFails) {
    EXPECT_EQ(parse("BeginResourceDeclaration EndResourceDeclaration"), -1);
    EXPECT_THAT(log.text(), EndsWith("\n\nThe string 'FindObject' not found in resource text " +
                                     clasp.ResourceText + ".\n"));
}

TEST_F(ResourceText, WithoutAnObjectArgumentItFails) {
    EXPECT_EQ(parse("BeginResourceDeclaration FindObject (Swap"), -1);
    EXPECT_THAT(log.text(), EndsWith("\n\nArgument post 'FindObject' not found resource.txt " +
                                     clasp.ResourceText + ".\n\n"));
}

TEST_F(ResourceText, ASevereFailureOfAnEngineIsToldInItsWords) {
    parse(declaration("FindObject (Swap)"));
    EXPECT_THAT(log.text(), EndsWith("\n\nSevere err processing link with Swap in res.txt " +
                                     clasp.ResourceText + ".\n"));
    parse(declaration("FindObject (Process)"));
    EXPECT_THAT(log.text(), EndsWith("\n\nSevere err processing this process link.\n\n"));
    parse(declaration("FindObject (LogicalDisk)"));
    EXPECT_THAT(log.text(), EndsWith("\n\nSevere err processing this disk link.\n\n"));
    EXPECT_FALSE(clasp.declarationsComplete);
}

TEST_F(ResourceText, AFailureThatIsNotSevereGoesOnWithTheNextInput) {
    machine.disks = [](int, std::vector<DiskName>*) { return -1; };
    machine.numberOfProcesses = [](const char*, const char*) { return 1; };
    machine.processes = [](const char*, const char*, int, std::int32_t*) { return -1; };
    EXPECT_EQ(parse(declaration(input("LogicalDisk") + input("Process") + input("Swap"))), 1);
    EXPECT_THAT(log.text(), HasSubstr("\n\nProblem processing this disk link (not severe).\n\n"));
    EXPECT_THAT(log.text(), HasSubstr("\n\nProblem processing process link (not severe).\n\n"));
    EXPECT_THAT(chain(), ElementsAre("LogicalDisk 1", "Process 2", "Swap 3"));
    EXPECT_TRUE(clasp.declarationsComplete);
}

TEST_F(ResourceText, AnObjectOfProcessAndABlankIsAnOrdinaryObject) {
    EXPECT_EQ(parse(declaration(input("Process "))), 1);
    EXPECT_EQ(clasp.pFirstLink->ResourceType, 1);
    EXPECT_EQ(clasp.pFirstLink->Descriptor0, "Process ");
    EXPECT_EQ(clasp.pFirstLink->Descriptor3, "-2");
}

TEST_F(ResourceText, AKeywordInsideACommentWithoutWhiteSpaceIsFound) {
    EXPECT_EQ(parse("BeginResourceDeclaration /*FindObject FindObject (Swap) */" + input("x").substr(35)), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
}

TEST_F(ResourceText, CommentsAreSkippedWhereAKeywordIsSearched) {
    std::string text = declaration(input("Swap"));
    text.replace(text.find("\tNameIs"), 1, "\t/* NameIs (wrong) */ ");
    ASSERT_EQ(parse("/* BeginResourceDeclaration */ " + text), 1);
    EXPECT_EQ(clasp.pFirstLink->NameIs, "Name");
    EXPECT_TRUE(clasp.declarationsComplete);
}

TEST_F(ResourceText, ACommentThatIsNeverClosedFails) {
    EXPECT_EQ(parse("/* " + declaration(input("Swap"))), -1);
}

TEST_F(ResourceText, AFileObjectEndsTheParseAndLaterInputsAreIgnoredButNotOverwritten) {
    EXPECT_EQ(parse(declaration(input("Swap") + input("File") + input("Ignored"))), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_FALSE(clasp.declarationsComplete);
    EXPECT_THAT(log.text(),
                HasSubstr(clasp.ResourceText +
                          " is not rewritten in this run: an input of object File has no place in it\n"
                          "Leaving validateResourceText\n"));
    EXPECT_TRUE(leftAlone());
    EXPECT_TRUE(leftAlone());
    EXPECT_EQ(occurrences(log.text(), "is not rewritten"), 1U);
}

TEST_F(ResourceText, ACommentBetweenInputsEndsTheDeclarationAndTheFileIsLeftAlone) {
    for (const char* comment : {"/* c */ ", "/* never closed "}) {
        ScanUpChainDeletingAllLinks(&clasp);
        EXPECT_EQ(parse(declaration(input("Swap") + comment + input("Ignored"))), 1);
        EXPECT_THAT(chain(), ElementsAre("Swap 1"));
        EXPECT_TRUE(leftAlone());
    }
}

TEST_F(ResourceText, KeywordsBeforeAndBehindTheDeclarationDoNotKeepItFromBeingRewritten) {
    const std::string swap = declaration(input("Swap"));
    std::string withoutEnd = swap; // its last input goes on behind the declaration
    withoutEnd.replace(withoutEnd.find("EndResourceInput"), 16, "");
    for (const std::string& text :
         {swap + "written by hand /* FindObject */ /* open", swap + "BeginResourceInput FindObject (Old)",
          swap + input("Old"), "FindObject BeginResourceInput EndResourceDeclaration\n" + swap,
          input("Early") + swap, withoutEnd + "FindObject (Old) BeginResourceInput",
          swap.substr(0, swap.find("EndResourceDeclaration")) +
              "/* of one input */ EndResourceDeclaration"}) {
        ScanUpChainDeletingAllLinks(&clasp);
        EXPECT_EQ(parse(text), 1) << text;
        EXPECT_THAT(chain(), ElementsAre("Swap 1")) << text;
        EXPECT_TRUE(clasp.declarationsComplete) << text;
        EXPECT_FALSE(leftAlone()) << text;
    }
    EXPECT_THAT(log.text(), Not(HasSubstr("is not rewritten")));
}

TEST_F(ResourceText, AnEndBeforeTheFirstInputIsNone) {
    EXPECT_EQ(parse(declaration("EndResourceDeclaration " + input("Swap") + "word " + input("Ignored"))), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, AWordBetweenInputsEndsTheDeclarationAndTheFileIsLeftAlone) {
    EXPECT_EQ(parse(declaration(input("Swap") + "word " + input("Ignored"))), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, AnInputThatAnotherSwallowedKeepsTheFileFromBeingRewritten) {
    std::string text = declaration(input("Swap") + input("Swallowed"));
    text.replace(text.find("EndResourceInput"), 16, "");
    EXPECT_EQ(parse(text), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(leftAlone());
    EXPECT_THAT(log.text(), HasSubstr("is not rewritten in this run: it holds an input that was not read\n"));
}

TEST_F(ResourceText, AnInputInTheWayOfAnArgumentKeepsTheFileFromBeingRewritten) {
    std::string text = declaration(input("Swap") + input("Swallowed"));
    text.replace(text.find("(mark)"), 6, "");
    EXPECT_EQ(parse(text), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, ACutArgumentKeepsTheFileFromBeingRewritten) {
    EXPECT_EQ(parse(declaration(input("Swap", "-1.", std::string(128, 'n')))), 1);
    EXPECT_EQ(clasp.pFirstLink->NameIs.view(), std::string(127, 'n'));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, ALinkThatIsNotInTheChainKeepsTheFileFromBeingRewritten) {
    clasp.MillisecondsPerSample = 1000;
    EXPECT_EQ(parse(declaration(input("Lost", "1e300") + input("Swap"))), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 2"));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, AFailedParseIsNeverFollowedByARewrite) {
    std::string text = declaration(input("Swap") + input("Torn"));
    EXPECT_EQ(parse(text.substr(0, text.find("CulpritMarker", text.find("Torn")))), -1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(leftAlone());
}

TEST_F(ResourceText, AFileEndingWithItsLastInputEndsWell) {
    std::string text = "BeginResourceDeclaration " + input("Swap");
    EXPECT_EQ(parse(text.substr(0, text.size() - 2)), 1);
    EXPECT_TRUE(clasp.declarationsComplete);
    EXPECT_FALSE(leftAlone());
    EXPECT_THAT(file(), EndsWith("EndResourceDeclaration\n"));
}

TEST_F(ResourceText, TheWrittenFileIsExact) {
    parse(declaration(input("Swap", "12") + input("LogicalDisk")));
    EXPECT_EQ(resourceTextFromChain(clasp, timeText),
              "/** Updated on " + timeText + " **/\nBeginResourceDeclaration\n\n" + input("Swap") +
                  input("LogicalDisk") + "EndResourceDeclaration\n");
}

TEST_F(ResourceText, InstancesOfDisksAndProcessesAreNotWritten) {
    parse(declaration(input("LogicalDisk") + input("Process")));
    Link process = makeLink(2, "Process", "inst", "count", "123");
    process.RID = 9;
    ASSERT_EQ(CreateLinkInChainAndCopyData(&process), 1);
    EXPECT_EQ(resourceTextFromChain(clasp, timeText),
              "/** Updated on " + timeText + " **/\nBeginResourceDeclaration\n\n" + input("LogicalDisk") +
                  input("Process") + "EndResourceDeclaration\n");
}

TEST_F(ResourceText, AWrittenFileParsesBackToTheSameTemplateLinksWithAutomaticWindows) {
    parse(declaration(input("Swap", "12", " odd (name\n/* kept ") + input("LogicalDisk") + input("Process")));
    clasp.pFirstLink->UpperLimitAbs = 1.7976931348623157e308;
    clasp.pFirstLink->LowerLimitAbs = -123456.75;
    clasp.pFirstLink->AnalyticalMethod = -2147483647 - 1;
    ASSERT_EQ(update_autoresource_file(&clasp), 1);
    const std::string written = resourceTextFromChain(clasp, timeText);
    const auto before = chain();
    ScanUpChainDeletingAllLinks(&clasp);
    EXPECT_EQ(validateResourceText(&clasp, machine), 1);
    EXPECT_EQ(chain(), before);
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        EXPECT_EQ(link->WindowSize, -1);
    EXPECT_EQ(clasp.pFirstLink->UpperLimitAbs, 1.7976931348623157e308);
    EXPECT_EQ(clasp.pFirstLink->NameIs, " odd (name\n/* kept ");
    EXPECT_EQ(resourceTextFromChain(clasp, timeText), written);
    EXPECT_TRUE(clasp.declarationsComplete);
}

TEST_F(ResourceText, TheShippedFileIsReadWholeAndRewritten) {
    const std::string shipped = readFile(LUMETRA_SHIPPED_CONFIG "/resources.txt");
    if (shipped.empty())
        GTEST_SKIP() << "there is no shipped declaration file yet";
    EXPECT_EQ(parse(shipped), 1);
    EXPECT_TRUE(clasp.declarationsComplete);
    EXPECT_FALSE(leftAlone());
}

TEST_F(ResourceText, CutAtAnyByteItFailsOrIsReadButNothingUnreadIsLost) {
    const std::string whole = resourceTextFromChain(clasp, timeText).substr(0, 60) + "\n" +
                              declaration(input("Swap") + input("LogicalDisk"));
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        ScanUpChainDeletingAllLinks(&clasp);
        const std::string cut = whole.substr(0, length);
        const int result = parse(cut);
        if (result == 1 && clasp.declarationsComplete) {
            // What is written instead stands for every input that began in the cut file.
            EXPECT_EQ(occurrences(resourceTextFromChain(clasp, timeText), "FindObject"),
                      occurrences(cut, "FindObject"))
                << length;
        } else {
            EXPECT_TRUE(leftAlone()) << length;
        }
    }
}

TEST_F(ResourceText, GarbageOfEveryKindFailsWithOneOfTheTexts) {
    const std::vector<std::string> corpus = {"",
                                             std::string(1, '\0'),
                                             std::string(1000, '\xff'),
                                             "BeginResourceDeclaration",
                                             "BeginResourceDeclaration FindObject",
                                             "BeginResourceDeclaration FindObject \xff(Swap)",
                                             "BeginResourceDeclaration /* FindObject (x)",
                                             std::string("Begin\0ResourceDeclaration", 25),
                                             "BeginResourceDeclaration FindObject (%n%s)",
                                             "BeginResourceDeclaration " + std::string(300000, '(')};
    for (const auto& text : corpus) {
        const std::size_t before = log.text().size();
        EXPECT_EQ(parse(text), -1) << text.substr(0, 80);
        EXPECT_THAT(log.text().substr(before), HasSubstr(" after ResourceText=0x00000001\n\n\n"));
        EXPECT_THAT(chain(), IsEmpty());
        EXPECT_TRUE(leftAlone());
    }
}

TEST_F(ResourceText, MutatedFilesAreReadOrRefusedAndNeverLoseAnInputInARewrite) {
    std::mt19937 random(7);
    const std::string whole = declaration(input("Swap") + input("LogicalDisk") + input("Slots"));
    int read = 0;
    for (int round = 0; round < 1500; ++round) {
        std::string text = whole;
        for (int change = 0; change <= round % 4; ++change) {
            const std::size_t at = random() % text.size();
            switch (random() % 3) {
            case 0:
                text[at] = static_cast<char>(random());
                break;
            case 1:
                text.erase(at, 1 + random() % 30);
                break;
            default:
                text.insert(at, text.substr(random() % text.size(), random() % 40));
            }
        }
        ScanUpChainDeletingAllLinks(&clasp);
        if (parse(text) == 1 && clasp.declarationsComplete) {
            ++read;
            const std::string written = resourceTextFromChain(clasp, timeText);
            const auto before = chain();
            ScanUpChainDeletingAllLinks(&clasp);
            ASSERT_EQ(parse(written), 1) << text;
            EXPECT_TRUE(clasp.declarationsComplete) << text;
            EXPECT_EQ(chain(), before) << text;
        } else {
            EXPECT_TRUE(leftAlone());
        }
    }
    EXPECT_GT(read, 100);
}

TEST_F(ResourceText, TenMegabytesAreRead) {
    std::string words;
    while (words.size() < (10U << 20))
        words += "some free words /* a comment */ ";
    std::string comments;
    while (comments.size() < (10U << 20))
        comments += "/* ";
    writeFile(clasp.ResourceText, words + declaration(input("Swap")) + comments);
    EXPECT_EQ(validateResourceText(&clasp, machine), 1);
    EXPECT_THAT(chain(), ElementsAre("Swap 1"));
    EXPECT_TRUE(clasp.declarationsComplete);
}

TEST_F(ResourceText, AFileLongerThanATextMayBeIsLeftAlone) {
    writeFile(clasp.ResourceText, declaration(input("Swap")));
    std::filesystem::resize_file(clasp.ResourceText, (std::uintmax_t{64} << 20) + 1);
    EXPECT_EQ(validateResourceText(&clasp, machine), 1);
    EXPECT_FALSE(clasp.declarationsComplete);
    EXPECT_THAT(log.text(), HasSubstr("is not rewritten in this run: it was not read to its end\n"));
}

TEST_F(ResourceText, ALocaleWithADecimalCommaChangesNoNumber) {
    const locale_t comma = localeWithDecimalComma(directory.path("locales"));
    if (comma == locale_t{})
        GTEST_SKIP() << "no locale with a decimal comma is installed, and none can be made with localedef";
    const locale_t before = ::uselocale(comma);
    EXPECT_EQ(parse(declaration(input("Swap", "1.5"))), 1);
    const double window = clasp.pFirstLink->WindowSize;
    const double limit = clasp.pFirstLink->UpperLimitCalc;
    const std::string written = resourceTextFromChain(clasp, timeText);
    ::uselocale(before);
    ::freelocale(comma);
    EXPECT_EQ(window, 1.5);
    EXPECT_EQ(limit, 2.5);
    EXPECT_THAT(written, HasSubstr("\tUpperLimitCalc 2.500000\n"));
}

TEST_F(ResourceText, ARewriteThatDoesNotFitLeavesTheOldFile) {
    parse(declaration(input("Swap")));
    struct rlimit old = {};
    ::getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = old;
    small.rlim_cur = 100;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const std::string before = file();
    // The log must be able to grow past the limit of the file, so only the file's directory tells what
    // happened.
    ::setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(update_autoresource_file(&clasp), 1);
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(file(), before);
    const auto files = std::filesystem::directory_iterator(directory.path());
    EXPECT_EQ(std::distance(files, {}), 2) << "something is left beside declarations and scratch pad";
    EXPECT_FALSE(leftAlone());
}

TEST_F(ResourceText, TheDateOfARewrittenFileIsTheLocalTime) {
    const TimeZone zone(tellingZone);
    TurnedClock clock;
    parse(declaration(input("Swap")));
    clock.setWallTime(tellingMoment);
    EXPECT_EQ(update_autoresource_file(&clasp), 1);
    EXPECT_THAT(file(), StartsWith("/** Updated on Sat Feb 14 04:31:30 2009\n **/\n"));
}

TEST_F(ResourceText, OnlyTheDateIsWrittenWhereNothingElseHasChanged) {
    TurnedClock clock;
    parse(declaration(input("Swap")));
    const auto rewrittenInPlace = [&](std::time_t now) {
        const Descriptor before =
            Descriptor::open(clasp.ResourceText, O_RDONLY); // its number is not used again
        clock.setWallTime(now);
        EXPECT_EQ(update_autoresource_file(&clasp), 1);
        char date[32];
        EXPECT_EQ(file(), resourceTextFromChain(clasp, ::ctime_r(&now, date)));
        struct stat old = {};
        struct stat present = {};
        ::fstat(before.get(), &old);
        ::stat(clasp.ResourceText.c_str(), &present);
        return old.st_ino == present.st_ino;
    };
    EXPECT_FALSE(rewrittenInPlace(1'700'000'000)) << "as an operator wrote it";
    EXPECT_TRUE(rewrittenInPlace(1'700'000'010));
    EXPECT_TRUE(rewrittenInPlace(1'800'000'000));
    clasp.pFirstLink->UpperLimitCalc = 3.0;
    EXPECT_FALSE(rewrittenInPlace(1'800'000'010));
    EXPECT_TRUE(rewrittenInPlace(1'800'000'020));
    std::string edited = file();
    edited.replace(edited.find("Name)"), 4, "Mine");
    writeFile(clasp.ResourceText, edited);
    EXPECT_FALSE(rewrittenInPlace(1'800'000'030)) << "somebody has changed it meanwhile";
    writeFile(clasp.ResourceText, file() + "x");
    EXPECT_FALSE(rewrittenInPlace(1'800'000'040));
    std::filesystem::create_hard_link(clasp.ResourceText, directory.path("kept"));
    const std::string kept = file();
    EXPECT_FALSE(rewrittenInPlace(1'800'000'050)) << "it has a further name";
    EXPECT_EQ(readFile(directory.path("kept")), kept);
    EXPECT_TRUE(rewrittenInPlace(1'800'000'060));
}

TEST_F(ResourceText, ARewriteThatCannotBeMadeIsLogged) {
    parse(declaration(input("Swap")));
    const std::string good = clasp.ResourceText;
    for (const std::string& path :
         {directory.path(), std::string("/dev/full"), directory.path("none/file")}) {
        clasp.ResourceText = path;
        EXPECT_EQ(update_autoresource_file(&clasp), 1);
        EXPECT_THAT(log.text(), HasSubstr("Cannot rewrite " + path + ", the old file stays: "));
    }
    clasp.ResourceText = good;
    EXPECT_FALSE(leftAlone());
}

TEST_F(ResourceText, WithoutADescriptorTheOldFileStays) {
    parse(declaration(input("Swap")));
    struct rlimit old = {};
    ::getrlimit(RLIMIT_NOFILE, &old);
    struct rlimit none = old;
    none.rlim_cur = 3;
    const std::string before = file();
    ::setrlimit(RLIMIT_NOFILE, &none);
    update_autoresource_file(&clasp);
    ::setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(file(), before);
    EXPECT_FALSE(leftAlone());
}

TEST_F(ResourceText, AReadOnlyOrFullFileSystemKeepsTheOldFile) {
    const std::string mount = directory.path("small");
    std::filesystem::create_directory(mount);
    if (::mount("tmpfs", mount.c_str(), "tmpfs", 0, "size=8k") != 0)
        GTEST_SKIP() << "mounting needs a privilege that this run does not have";
    clasp.ResourceText = mount + "/resources.txt";
    EXPECT_EQ(parse(declaration(input("Swap"))), 1);
    writeFile(mount + "/hog", std::string(4096, 'h'));
    EXPECT_TRUE(leftAlone());
    EXPECT_THAT(log.text(), HasSubstr("the old file stays: No space left on device\n"));
    std::filesystem::remove(mount + "/hog");
    EXPECT_FALSE(leftAlone());
    ::mount("tmpfs", mount.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
    EXPECT_TRUE(leftAlone());
    EXPECT_THAT(log.text(), HasSubstr("the old file stays: Read-only file system\n"));
    ::umount(mount.c_str());
}

} // namespace
} // namespace obrin::test
