// What a host is told of a configuration and of declarations: the bytes, and the native methods that hand
// them over in a Java machine that is none.

#include "agent/checkFeed.h"

#include "agent/agentState.h"
#include "prediction/modelSelection.h"
#include "support/systemPaths.h"
#include "tests/support/feedReading.h"
#include "tests/support/nativeDoor.h"
#include "tests/support/temporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <jni.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace obrin::test {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string configurationText = "data/ archive pad log resources 60000 1 48h";
const std::string declarationsText =
    "BeginResourceDeclaration\n/* once */ FindObject (Object) FindInstance (inst)\nFindCounter (count) "
    "WindowSize 1.5\nNameIs (Name) AnalyticalMethod 1 word\nUpperLimitAbs 0.25 UpperLimitCalc 0 "
    "LowerLimitAbs 0 "
    "LowerLimitCalc 0 CulpritMarker (none)\nEndResourceInput EndResourceDeclaration\n";

/// Each as "LINE:COLUMN what".
std::string placed(FeedReading& in, const std::string& what) {
    const std::int32_t line = in.number();
    return std::to_string(line) + ":" + std::to_string(in.number()) + " " + what;
}

std::vector<std::string> readFindings(FeedReading& in) {
    std::vector<std::string> findings;
    for (std::int32_t i = in.number(); i > 0; --i) {
        std::string finding = placed(in, in.text());
        for (int text = 0; text < 3; ++text)
            finding += "|" + in.text();
        finding += "|" + std::to_string(in.number());
        findings.push_back(finding + "|" + std::to_string(in.longNumber()));
    }
    return findings;
}

struct FedConfiguration {
    std::vector<std::string> findings;
    bool accepted = false;
    std::vector<std::string> items;
};

FedConfiguration readConfigurationFeed(std::string_view bytes) {
    FeedReading in(bytes);
    EXPECT_EQ(in.number(), checkFeedVersion);
    FedConfiguration read{readFindings(in), in.flag(), {}};
    for (std::int32_t i = in.number(); i > 0; --i)
        read.items.push_back(placed(in, in.text()));
    for (std::int32_t i = in.number(); i > 0; --i)
        read.items.push_back(placed(in, std::to_string(in.number())));
    EXPECT_TRUE(in.atEnd());
    return read;
}

struct FedDeclarations {
    std::vector<std::string> findings;
    bool accepted = false;
    bool rewritten = false;
    std::string comment;
    std::int32_t samples = 0;
    std::string automatic;          ///< "PERIOD ms: HOURS h, SAMPLES"
    std::vector<std::string> parts; ///< of all inputs
    std::vector<std::string> ends;  ///< of each input "FATE SAMPLES FILE"
};

FedDeclarations readDeclarationsFeed(std::string_view bytes) {
    FeedReading in(bytes);
    EXPECT_EQ(in.number(), checkFeedVersion);
    FedDeclarations read{readFindings(in), in.flag(), in.flag(), placed(in, ""), in.number(), {}, {}, {}};
    read.automatic = std::to_string(in.number());
    read.automatic += " ms: " + std::to_string(in.real());
    read.automatic += " h, " + std::to_string(in.longNumber());
    for (std::int32_t i = in.number(); i > 0; --i) {
        for (int text = 0; text < 4; ++text)
            read.parts.push_back(placed(in, in.text()));
        read.parts.push_back(placed(in, std::to_string(in.real())));
        read.parts.push_back(placed(in, std::to_string(in.number())));
        read.parts.push_back(placed(in, std::to_string(in.real())));
        std::string end = std::to_string(in.number());
        end += " " + std::to_string(in.longNumber());
        read.ends.push_back(end + " " + in.text());
    }
    EXPECT_TRUE(in.atEnd());
    return read;
}

TEST(CheckFeed, AConfigurationsFindingsAndItemsAreHandedOverInTheirOrder) {
    const FedConfiguration read = readConfigurationFeed(configurationFeed(configurationText + "\n9 9 9"));
    EXPECT_THAT(read.findings, ElementsAre("1:41 number-with-rest|48h|||8|48"));
    EXPECT_TRUE(read.accepted);
    EXPECT_THAT(read.items, ElementsAre("1:1 data/", "1:7 archive", "1:15 pad", "1:19 log", "1:23 resources",
                                        "1:33 60000", "1:39 1", "1:41 48"));
}

TEST(CheckFeed, ARefusedConfigurationHasTheItemsUpToTheMissingOne) {
    const FedConfiguration read = readConfigurationFeed(configurationFeed("data/ archive"));
    EXPECT_THAT(read.findings, ElementsAre("1:13 item-missing||||3|0"));
    EXPECT_FALSE(read.accepted);
    EXPECT_THAT(read.items, ElementsAre("1:1 data/", "1:7 archive", "0:0 ", "0:0 ", "0:0 "));
}

TEST(CheckFeed, DeclarationsFindingsAndInputsAreHandedOverInTheirOrder) {
    const FedDeclarations read = readDeclarationsFeed(declarationsFeed(declarationsText, 60000, 48));
    EXPECT_THAT(read.findings, ElementsAre("4:34 word-ignored|word|UpperLimitAbs||0|0"));
    EXPECT_TRUE(read.accepted);
    EXPECT_TRUE(read.rewritten);
    EXPECT_EQ(read.comment, "2:1 ");
    EXPECT_EQ(read.samples, samplesForForecast);
    EXPECT_THAT(read.parts, ElementsAre("2:12 Object", "2:32 inst", "3:1 count", "4:1 Name", "3:32 1.500000",
                                        "4:32 1", "5:15 0.250000"));
    EXPECT_EQ(read.automatic, "60000 ms: 4.800000 h, 288");
    EXPECT_THAT(read.ends, ElementsAre("0 90 NameinstBMPRD.gnp"));
}

std::string declared(const std::string& object, const std::string& instance, const std::string& window) {
    return " BeginResourceInput FindObject (" + object + ") FindInstance (" + instance +
           ") FindCounter (c) WindowSize " + window +
           " NameIs (n) AnalyticalMethod 1 UpperLimitAbs 0 UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 "
           "CulpritMarker (none) EndResourceInput";
}

FedDeclarations readInputs(const std::string& inputs, std::int32_t period, std::int32_t maxForecastHours) {
    return readDeclarationsFeed(declarationsFeed(
        "BeginResourceDeclaration" + inputs + " EndResourceDeclaration", period, maxForecastHours));
}

TEST(CheckFeed, EachInputComesWithItsWindowAndTheNameOfItsForecast) {
    const std::string inputs = declared("o", "/dev/a: b", "-1") + declared("o", "b", "1e9") +
                               declared("o", "d", "0.01") + declared("LogicalDisk", "/x", "12");
    const FedDeclarations read = readInputs(inputs, 60000, 48);
    EXPECT_THAT(read.findings, IsEmpty());
    EXPECT_THAT(read.ends, ElementsAre("1 288 n_dev_a__bBMPRD.gnp", "3 -1 nbBMPRD.gnp", "2 288 ndBMPRD.gnp",
                                       "0 720 nBMPRD.gnp"));
    EXPECT_EQ(readInputs(inputs, 1, 99999999).automatic, "1 ms: 9999999.900000 h, -1");
}

TEST(CheckFeed, ARepeatedInputDoesNotSetThePeriod) {
    const std::string inputs = declared("o", "a", "3") + declared("o", "a", "30");
    EXPECT_EQ(readInputs(inputs, -1, 48).automatic, "36000 ms: 4.800000 h, 480");
    EXPECT_EQ(readInputs(inputs + declared("o", "b", "30"), -1, 48).automatic, "360000 ms: 4.800000 h, 48");
}

TEST(CheckFeed, RefusedDeclarationsHaveTheInputsThatAreWhole) {
    const FedDeclarations read =
        readDeclarationsFeed(declarationsFeed("BeginResourceDeclaration FindObject (x", 60000, 48));
    EXPECT_THAT(read.findings, ElementsAre("1:26 argument-missing||FindObject||0|0"));
    EXPECT_FALSE(read.accepted);
    EXPECT_FALSE(read.rewritten);
    EXPECT_THAT(read.parts, IsEmpty());
}

TEST(CheckFeed, LongTextsAreCutButNotSoThatTheyLookWhole) {
    const std::string word(100000, 'w');
    const FedConfiguration configuration =
        readConfigurationFeed(configurationFeed("d/ " + word + " p l r 1 2 3 " + word));
    EXPECT_EQ(configuration.items[1], "1:4 " + word.substr(0, longestName));
    EXPECT_THAT(configuration.findings,
                ElementsAre("1:100017 number-malformed|" + word.substr(0, longestTold) + "|||9|0"));
}

TEST(CheckFeed, NoMoreOfATextCountsThanARunReadsOfIt) {
    const std::size_t limit = declarationsText.size();
    EXPECT_TRUE(readDeclarationsFeed(declarationsFeed(declarationsText, 60000, 48, limit)).rewritten);
    const FedDeclarations longer =
        readDeclarationsFeed(declarationsFeed(declarationsText + "\xFF", 60000, 48, limit));
    EXPECT_FALSE(longer.rewritten);
    EXPECT_TRUE(longer.accepted);
    EXPECT_EQ(longer.findings.size(), 1U) << "the byte behind the limit is not read";
    EXPECT_THAT(readConfigurationFeed(configurationFeed(configurationText, 13)).findings,
                ElementsAre("1:13 item-missing||||3|0"));
}

TEST(CheckFeed, AnyThreadMayAskAtAnyTime) {
    const CapturedLog log;
    const std::string configuration = configurationFeed(configurationText);
    const std::string declarations = declarationsFeed(declarationsText, -1, 48);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                EXPECT_EQ(configurationFeed(configurationText), configuration);
                EXPECT_EQ(declarationsFeed(declarationsText, -1, 48), declarations);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(pResourceClasp, nullptr);
}

constexpr const char* checkClass = "com/quorin/sysmgt/tavl/LumetraAgent/CheckFeed";

/// The findings on these rules on a machine with this table of mounts.
std::vector<std::string> findingsOnRules(std::string_view rules, std::string_view table) {
    TemporaryDirectory directory;
    const SystemPaths before = systemPaths();
    systemPaths().mountInfo = directory.path("mountinfo");
    if (!table.empty())
        writeFile(systemPaths().mountInfo, std::string(table));
    const std::string bytes = skipRulesFeed(rules);
    systemPaths() = before;
    FeedReading in(bytes);
    EXPECT_EQ(in.number(), checkFeedVersion);
    auto findings = readFindings(in);
    EXPECT_TRUE(in.atEnd());
    return findings;
}

TEST(CheckFeed, ARuleThatMatchesNoMountIsToldAndSoIsALineThatIsNone) {
    constexpr std::string_view table =
        "1 0 8:1 / / rw - ext4 /dev/a rw\n2 1 0:7 / /run/user/0 rw - tmpfs tmpfs rw\n";
    constexpr std::string_view rules =
        "# none\nfstype ext4\nfstype xfs\n mount /run/*/*\nmount /run/*\nmounts /a\n";
    EXPECT_THAT(findingsOnRules(rules, table),
                UnorderedElementsAre("6:1 skip-line-malformed|mounts /a|||0|0",
                                     "3:1 skip-matches-nothing|fstype xfs|||0|0",
                                     "5:1 skip-matches-nothing|mount /run/*|||0|0"));
}

TEST(CheckFeed, WithoutATableOfMountsNoRuleMatchesNothing) {
    EXPECT_THAT(findingsOnRules("fstype xfs\nmount x\n", ""),
                ElementsAre("2:1 skip-pattern-relative|x|||0|0"));
}

/// What others could turn against the agent of `user` that runs in the directory's "bin".
std::vector<std::string> foreign(const TemporaryDirectory& home, std::int64_t user) {
    const std::string bytes = placesFeed(home.path("bin"), home.path("config/AutoConfig.ini"), user);
    FeedReading in(bytes);
    EXPECT_EQ(in.number(), checkFeedVersion);
    auto findings = readFindings(in);
    EXPECT_TRUE(in.atEnd());
    return findings;
}

TEST(CheckFeed, PlacesThatOthersThanTheAgentsUserCanChangeAreTold) {
    const TemporaryDirectory home;
    for (const char* name : {"bin", "config", "data", "log", "declared"})
        std::filesystem::create_directory(home.path(name));
    writeFile(home.path("config/AutoConfig.ini"),
              "../data/ archive ../data/pad log ../declared/resources 60000 1 48");
    writeFile(home.path("declared/resources"), "");
    const std::string root = std::filesystem::canonical(home.path()).string();
    const auto me = std::to_string(::geteuid());
    EXPECT_THAT(foreign(home, -1), IsEmpty());
    EXPECT_THAT(foreign(home, ::geteuid()), IsEmpty());
    ASSERT_EQ(::chmod(home.path("declared/resources").c_str(), 0664), 0);
    ASSERT_EQ(::chmod(home.path("log").c_str(), 0770), 0);
    ASSERT_EQ(::chmod(home.path("data").c_str(), 0706), 0); // nobody else may search it
    EXPECT_THAT(foreign(home, -1),
                ElementsAre("0:0 place-open-to-others|" + root + "/declared/resources|||0|" + me,
                            "0:0 place-open-to-others|" + root + "/log|||0|" + me));
    // Directories above: to all is told, unless only owners take things away there.
    ASSERT_EQ(::chmod(home.path("log").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(home.path("declared/resources").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(home.path().c_str(), 0777), 0);
    EXPECT_THAT(foreign(home, -1), ElementsAre("0:0 place-open-to-others|" + root + "|||0|" + me));
    if (::geteuid() != 0)
        GTEST_SKIP() << "whose a place is can be tried with another user only";
    ASSERT_EQ(::chmod(home.path().c_str(), 0755), 0);
    ASSERT_EQ(::chown(home.path("data").c_str(), 1234, 0), 0);
    EXPECT_THAT(foreign(home, 0), ElementsAre("0:0 place-of-another|" + root + "/data|||0|1234"));
    EXPECT_THAT(foreign(home, 1234), IsEmpty()) << "what is root's may be";
}

TEST(CheckFeed, AHomeBelowADirectoryThatIsOpenToAllIsSafeOnlyWhereOwnersAloneTakeAway) {
    const TemporaryDirectory outer;
    for (const char* name : {"home", "home/bin", "home/config"})
        std::filesystem::create_directory(outer.path(name));
    const std::string root = std::filesystem::canonical(outer.path()).string();
    for (const auto& [mode, isTold] : {std::pair(0777U, true), {01777U, false}, {0775U, false}}) {
        ASSERT_EQ(::chmod(outer.path().c_str(), mode), 0);
        const std::string bytes =
            placesFeed(outer.path("home/bin"), outer.path("home/config/AutoConfig.ini"), -1);
        EXPECT_EQ(bytes.find("place-open-to-others") != std::string::npos, isTold) << mode;
    }
}

using Version = jint (*)(JNIEnv*, jclass);
using Check = jbyteArray (*)(JNIEnv*, jclass, jbyteArray);
using CheckOfDeclarations = jbyteArray (*)(JNIEnv*, jclass, jbyteArray, jint, jint);

class CheckDoor : public NativeDoor {
protected:
    CheckDoor() : NativeDoor(checkClass) {
        // The other class of the host is not there.
        java.setBehaviour("com/quorin/sysmgt/tavl/LumetraAgent/HostFeed", {JavaBehaviour::Mode::missing});
    }

    void declareCheck(jint version) {
        declare(version, {{"configuration", "([B)[B"},
                          {"skipRules", "([B)[B"},
                          {"declarations", "([BII)[B"},
                          {"places", "([B[BJ)[B"}});
    }
};

TEST_F(CheckDoor, WithoutTheClassNothingIsRegistered) {
    java.setBehaviour(checkClass, {JavaBehaviour::Mode::missing});
    load();
    EXPECT_EQ(native<Version>("libraryVersion"), nullptr);
}

TEST_F(CheckDoor, AClassOfAnotherVersionIsToldTheLibrarysAndGetsNothingElse) {
    declareCheck(checkFeedVersion + 1);
    load();
    ASSERT_NE(native<Version>("libraryVersion"), nullptr);
    EXPECT_EQ(native<Version>("libraryVersion")(java.env(), nullptr), checkFeedVersion);
    EXPECT_EQ(native<Check>("configuration"), nullptr);
    EXPECT_EQ(native<Check>("declarations"), nullptr);
}

TEST_F(CheckDoor, TheMethodsHandOverWhatIsSaidOfTheirTexts) {
    declareCheck(checkFeedVersion);
    load();
    EXPECT_EQ(native<Version>("libraryVersion")(java.env(), nullptr), checkFeedVersion);
    for (const std::string& text : {""s, configurationText, declarationsText, "a\0\xFF"s}) {
        jbyteArray array = java.makeBytes(text);
        EXPECT_EQ(java.bytesOf(native<Check>("configuration")(java.env(), nullptr, array)),
                  configurationFeed(text));
        EXPECT_EQ(java.bytesOf(native<Check>("skipRules")(java.env(), nullptr, array)), skipRulesFeed(text));
        EXPECT_EQ(
            java.bytesOf(native<CheckOfDeclarations>("declarations")(java.env(), nullptr, array, 10000, 48)),
            declarationsFeed(text, 10000, 48));
    }
    EXPECT_EQ(java.pendingException(), std::nullopt);
    EXPECT_THAT(java.misuses(), IsEmpty());
}

TEST_F(CheckDoor, NoTextAndNoJavaMemoryAreJavasOwnExceptions) {
    declareCheck(checkFeedVersion);
    load();
    EXPECT_EQ(native<Check>("configuration")(java.env(), nullptr, nullptr), nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: an argument is missing");
    java.env()->ExceptionClear();
    jbyteArray array = java.makeBytes(declarationsText);
    java.failNewArrays(true);
    EXPECT_EQ(native<CheckOfDeclarations>("declarations")(java.env(), nullptr, array, 10000, 48), nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/OutOfMemoryError: Java heap space");
    EXPECT_THAT(java.misuses(), IsEmpty());
}

} // namespace
} // namespace obrin::test
