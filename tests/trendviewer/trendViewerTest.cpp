#include "trendviewer/trendViewer.h"

#include "agent/agentState.h"
#include "agent/stopSync.h"
#include "prediction/trendFileFormat.h"
#include "tests/resources/chainFixture.h"
#include "tests/support/fakeJavaEnvironment.h"
#include "tests/support/sanitizers.h"
#include "tests/support/turnedClock.h"
#include "trendviewer/trendFiles.h"

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <locale.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace obrin {
namespace {

using test::JavaBehaviour;
using test::writeFile;
using Mode = JavaBehaviour::Mode;
using Words = std::vector<std::string>;

constexpr const char* listClass = "com/quorin/sysmgt/tavl/LumetraAgent/TrendReader$Values";
constexpr const char* script = "limit(x) = 9.250000e+01\n"
                               " set label '@ 1700000000, 12.35 hours to exhaustion, hinge regression, notif "
                               "level=87.50' at graph .1,.5\n"
                               "show label\nplot 'a' with lines";

/// Whether another thread gets the trend-file lock.
bool lockIsFree() {
    return std::async(std::launch::async,
                      [] {
                          const bool taken = trendViewerLockFiles() == 0;
                          trendViewerUnlockFiles();
                          return taken;
                      })
        .get();
}

/// A run with a chain and a data directory, and a Java machine that has a class with the three methods. Every
/// test ends with the books balanced.
class TrendViewer : public test::ChainTest {
protected:
    TrendViewer() {
        beginExecuting();
        clasp.DataHomeDirectory = directory.path("data/");
        std::filesystem::create_directory(clasp.DataHomeDirectory);
        declareMethods(listClass);
        publish(&clasp);
    }
    ~TrendViewer() override {
        publish(nullptr);
        trendViewerUnlockFiles();
    }
    void TearDown() override {
        EXPECT_EQ(java.misuses(), Words{});
        EXPECT_EQ(java.localReferences(), mine);
        EXPECT_EQ(java.openFrames(), 0U);
        EXPECT_EQ(java.unreleasedCharacters(), 0U);
        EXPECT_EQ(log.text(), logBefore) << "the viewer logs nothing";
    }

    static void publish(Clasp* run) {
        const MutexLock lock(chainLock);
        pResourceClasp = run;
    }

    void declareMethods(const std::string& className) {
        java.declareMethod(className, "AppendCompUnicode", "(Ljava/lang/String;)V", false);
        java.declareMethod(className, "AppendInt", "(I)V", false);
        java.declareMethod(className, "AppendFloat", "(F)V", false);
    }

    void add(std::int32_t rid, std::string_view name, std::string_view instance,
             std::string_view identifier = "-2") {
        Link link = makeLink(identifier == "-1" ? 2 : 1, "object", instance, "counter", identifier);
        link.NameIs = name;
        link.RID = rid;
        ASSERT_EQ(CreateLinkInChainAndCopyData(&link), 1);
        logBefore = log.text();
    }
    void addOne() { add(1, "Swap", "none"); }

    jobject object(const char* className = listClass) {
        ++mine;
        return java.makeObject(className);
    }
    jstring text(std::string_view characters) {
        ++mine;
        return java.makeText(characters);
    }

    std::string path(const std::string& name) const { return clasp.DataHomeDirectory + name; }

    // The five methods.

    jint descriptors(jobject list) {
        return Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors(
            env, nullptr, list);
    }
    jint label(jobject intOut, jobject textOut, jobject floatOut, std::string_view name = "Swap",
               std::string_view instance = "none") {
        return Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel(
            env, nullptr, text(name), text(instance), intOut, textOut, floatOut);
    }
    jint label(std::string_view name = "Swap", std::string_view instance = "none") {
        jobject out = object();
        return label(out, out, out, name, instance);
    }
    jint limit(std::string_view name = "Swap", std::string_view instance = "none") {
        return Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(
            env, nullptr, text(name), text(instance), object());
    }
    jint pairs(std::string_view kind = "PRD", std::string_view name = "Swap",
               std::string_view instance = "none") {
        return Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(
            env, nullptr, text(name), text(instance), text(kind), object());
    }
    static jint unlock() {
        return Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerUnlockFiles(nullptr,
                                                                                               nullptr);
    }

    jint pairsOf(const std::string& content) {
        writeFile(path("SwapnoneBMPRD.gnp"), content);
        return pairs();
    }

    /// "method argument" of each call so far, oldest first.
    Words called() const {
        Words found;
        for (const auto& call : java.calls())
            found.push_back(call.method + " " + call.arguments.at(0));
        return found;
    }
    Words texts() const {
        Words found;
        for (const auto& call : java.callsOf("AppendCompUnicode"))
            found.push_back(call.arguments.at(0));
        return found;
    }

    void setAll(JavaBehaviour behaviour) {
        for (const char* method : {"AppendCompUnicode", "AppendInt", "AppendFloat"})
            java.setBehaviour(method, behaviour);
    }

    /// From the n-th call of any method on, counted from now, it throws.
    void throwFrom(int n) {
        if (n == 1)
            setAll({Mode::raise});
        java.onCall([this, left = std::make_shared<int>(n)](const test::JavaCall&) {
            if (--*left == 1) // what is told during a call holds from the next one on
                setAll({Mode::raise});
        });
    }
    void throwNoMore() {
        java.onCall(nullptr);
        setAll({Mode::answer});
    }

    /// The class of the pending exception; cleared.
    std::string caught() {
        const auto pending = java.pendingException();
        env->ExceptionClear();
        return pending ? pending->substr(0, pending->find(':')) : "";
    }

    test::TurnedClock clock; ///< a lock that stays busy costs no seconds
    test::FakeJavaEnvironment java;
    JNIEnv* env = java.env();
    std::size_t mine = 0;
    std::string logBefore;
};

TEST_F(TrendViewer, WithNoDeclaredResourcesEveryMethodReturnsOneAndCallsNothingBack) {
    for (Clasp* run : {static_cast<Clasp*>(nullptr), &clasp}) {
        publish(run);
        writeFile(path("SwapnoneBM.ini"), script);
        writeFile(path("SwapnoneBMPRD.gnp"), "1 2 3 4 ");
        EXPECT_EQ(descriptors(object()), 1);
        EXPECT_EQ(label(), 1);
        EXPECT_TRUE(lockIsFree());
        EXPECT_EQ(limit(), 1);
        EXPECT_EQ(pairs(), 1);
        EXPECT_EQ(unlock(), 0);
        EXPECT_EQ(label(nullptr, nullptr, nullptr), 1) << "asked before the objects are looked at";
    }
    EXPECT_EQ(called(), Words{});
    EXPECT_EQ(java.pendingException(), std::nullopt);
}

TEST_F(TrendViewer, AStoppingAgentMakesTrendViewerLockAndGetTimeStampLabelReturnTwoWithoutTouchingTheLock) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    pleaseStop();
    EXPECT_EQ(label(), 2);
    EXPECT_EQ(called(), Words{});
    beginExecuting();
    EXPECT_TRUE(lockIsFree());
    ASSERT_EQ(trendViewerLockFiles(), 0);
    pleaseStop();
    EXPECT_EQ(label(), 2);
    beginExecuting();
    EXPECT_FALSE(lockIsFree()) << "the caller's own lock stays as it was";
    EXPECT_EQ(unlock(), 0);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(TrendViewer, ABmIniWithoutALabelLineGivesResultZeroWithMinusOneUnknownHoursToExhaustionAndMinusTwo) {
    addOne();
    for (const char* content : {"", "limit(x) = 1\n set lable '@ 1, 2, 3, notif level=4' at\n"}) {
        writeFile(path("SwapnoneBM.ini"), content);
        EXPECT_EQ(label(), 0);
        EXPECT_EQ(unlock(), 0);
    }
    const Words once{"AppendInt -1", "AppendCompUnicode Unknown hours to exhaustion.", "AppendFloat -2"};
    Words twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(called(), twice);
}

TEST_F(TrendViewer, AMissingGnpFileGivesThreeTheSameNumberAThreeTokenFileGives) {
    addOne();
    EXPECT_EQ(pairs(), 3);
    EXPECT_EQ(called(), Words{});
    EXPECT_EQ(pairsOf("1.5 2.5 \n3.5"), 3);
    EXPECT_EQ(texts(), (Words{"1.5", "2.5", "3.5"}));
}

TEST_F(TrendViewer, DescriptorsComeInChainOrderWithTheirTemplatesNameFirst) {
    add(7, "Disk space", "/dev/sda1 /");
    add(3, "Disk space", "*", "-1");
    add(9, "Swap", "none");
    EXPECT_EQ(descriptors(object()), 0);
    EXPECT_EQ(called(),
              (Words{"AppendCompUnicode Disk space", "AppendCompUnicode *", "AppendCompUnicode Disk space",
                     "AppendCompUnicode /dev/sda1 /", "AppendCompUnicode Swap", "AppendCompUnicode none"}));
}

TEST_F(TrendViewer, JavaIsCalledWithTheChainLockLetGo) {
    addOne();
    bool free = false;
    java.onCall([&](const test::JavaCall&) { // another thread: a mutex does not tell its own holder
        free = std::async(std::launch::async, [] { return getFirstLink() != nullptr; }).get();
    });
    EXPECT_EQ(descriptors(object()), 0);
    EXPECT_TRUE(free);
}

TEST_F(TrendViewer, HeadlineGoesToItsThreeObjectsInOrderAndTheLockStaysHeld) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    EXPECT_EQ(label(object(), object(), object()), 0);
    EXPECT_EQ(called(),
              (Words{"AppendInt 1700000000",
                     "AppendCompUnicode Algorithm: hinge regression.      12.35 hours to exhaustion.",
                     "AppendFloat 87.5"}));
    EXPECT_FALSE(lockIsFree());
    EXPECT_EQ(unlock(), 0);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(TrendViewer, FilesAsTheAgentWritesThemAreReadBack) {
    addOne();
    const std::vector<float> times{0.0F, 1.0F};
    const std::vector<float> values{10.5F, 11.25F};
    writeTrendFiles({90.75, 1700000001, -1.0, "simple linear regression", 0.0F}, clasp.DataHomeDirectory,
                    "Swap", "none", times, values, times, values);
    EXPECT_EQ(label(), 0);
    EXPECT_EQ(limit(), 0);
    EXPECT_EQ(pairs("SMP"), 4);
    EXPECT_EQ(
        called(),
        (Words{"AppendInt 1700000001",
               "AppendCompUnicode Algorithm: simple linear regression.      no exhaustion within horizon.",
               "AppendFloat -1", "AppendInt 90", "AppendCompUnicode 0.000000", "AppendCompUnicode 10.500000",
               "AppendCompUnicode 1.000000", "AppendCompUnicode 11.250000"}));
}

TEST_F(TrendViewer, TimeBeyondThirtyTwoBitsIsTheLargestNumber) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), "label '@ 99999999999, a, b, notif level=x'");
    EXPECT_EQ(label(), 0);
    EXPECT_EQ(called(),
              (Words{"AppendInt 2147483647", "AppendCompUnicode Algorithm: b.      a.", "AppendFloat -3"}));
}

TEST_F(TrendViewer, MissingBmIniGivesThreeWithTheLockHeld) {
    addOne();
    EXPECT_EQ(label(), 3);
    EXPECT_EQ(called(), Words{});
    EXPECT_FALSE(lockIsFree());
    EXPECT_EQ(unlock(), 0);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(TrendViewer, LockThatStaysBusyGivesFiveAndCallsNothingBack) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    ASSERT_EQ(trendViewerLockFiles(), 0);
    std::thread other([this] {
        java.attach();
        EXPECT_EQ(label(), 5);
        EXPECT_EQ(unlock(), 0) << "an unlock by one that has no lock";
    });
    other.join();
    java.attach();
    EXPECT_EQ(called(), Words{});
    EXPECT_FALSE(lockIsFree());
}

TEST_F(TrendViewer, LimitIsTruncatedZeroWithoutOneAndThreeWithoutAFile) {
    addOne();
    EXPECT_EQ(limit(), 3);
    EXPECT_EQ(called(), Words{});
    for (const char* content : {script, "limit(x) = -1.000000e+00\n", "no limit", ""}) {
        writeFile(path("SwapnoneBM.ini"), content);
        EXPECT_EQ(limit(), 0);
    }
    EXPECT_EQ(called(), (Words{"AppendInt 92", "AppendInt -1", "AppendInt 0", "AppendInt 0"}));
    ASSERT_EQ(trendViewerLockFiles(), 0);
    EXPECT_EQ(limit(), 0);
    EXPECT_FALSE(lockIsFree()) << "takes no lock and lets none go";
}

TEST_F(TrendViewer, EveryNumberOfTokensIsHandedOverExceptASingleOne) {
    addOne();
    const std::vector<std::pair<std::string, jint>> cases{
        {"", 0},           {" \n\t", 0},  {"one", 0},           {"one \n", 0},  {"  one\v\f\r\n  ", 0},
        {"one two", 2},    {"1 2 \n", 2}, {"\n\n 1\t2\n\n", 2}, {"1 2 3 4", 4}, {"1 2 \n3 4 \n", 4},
        {"1\xc2\xa0 5", 2}};
    for (const auto& [content, count] : cases)
        EXPECT_EQ(pairsOf(content), count) << content;
    EXPECT_EQ(texts(), (Words{"one", "two", "1", "2", "1", "2", "1", "2", "3", "4", "1", "2", "3", "4",
                              "1\xc2\xa0", "5"}));
}

TEST_F(TrendViewer, TokenEndsAtANulAndIsValidWhateverItsBytes) {
    addOne();
    EXPECT_EQ(pairsOf(std::string("ab\0cd \0x \xff\xfe \xf0\x9f\x98\x80", 17)), 4);
    EXPECT_EQ(texts(), (Words{"ab", "", "\xef\xbf\xbd\xef\xbf\xbd", "\xed\xa0\xbd\xed\xb8\x80"}));
}

TEST_F(TrendViewer, TwentyThousandTokensLeaveNoReferencesAndHoldOnlyAFew) {
    addOne();
    std::string content;
    for (int i = 0; i < 10000; ++i)
        content += std::to_string(i) + " " + std::to_string(i) + ".5 \n";
    EXPECT_EQ(pairsOf(content), 20000);
    EXPECT_EQ(java.callsOf("AppendCompUnicode").size(), 20000U);
    EXPECT_LE(java.mostLocalReferences(), mine + 4);
}

TEST_F(TrendViewer, ThousandsOfDescriptorsHoldOnlyAFewReferences) {
    for (int i = 1; i <= 2000; ++i)
        add(i, "Disk", "d" + std::to_string(i));
    EXPECT_EQ(descriptors(object()), 0);
    EXPECT_EQ(texts().size(), 4000U);
    EXPECT_EQ(texts().back(), "d2000");
    EXPECT_LE(java.mostLocalReferences(), mine + 4);
}

TEST_F(TrendViewer, ACallbackThatThrowsInTheMiddleEndsTheListsWithItsExceptionPending) {
    add(1, "a", "x");
    add(2, "b", "y");
    throwFrom(3);
    descriptors(object());
    EXPECT_EQ(java.pendingException(),
              "java/lang/IllegalStateException: AppendCompUnicode was told to throw");
    EXPECT_EQ(texts(), (Words{"a", "x", "b"}));
    env->ExceptionClear();
    throwNoMore();
    throwFrom(2);
    writeFile(path("SwapnoneBMPRD.gnp"), "1 2 3 4 ");
    EXPECT_EQ(pairs(), 1) << "as many as were taken";
    EXPECT_EQ(java.pendingException(),
              "java/lang/IllegalStateException: AppendCompUnicode was told to throw");
    EXPECT_EQ(texts().size(), 5U);
    env->ExceptionClear();
    throwNoMore();
    EXPECT_EQ(pairs(), 4) << "the next call works";
}

TEST_F(TrendViewer, ACallbackThatThrowsAtTheHeadlineEndsItWithTheLockHeld) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    for (int n = 1; n <= 3; ++n) {
        throwFrom(n);
        const std::size_t before = java.calls().size();
        label();
        EXPECT_EQ(caught(), "java/lang/IllegalStateException");
        EXPECT_EQ(java.calls().size(), before + static_cast<std::size_t>(n));
        EXPECT_FALSE(lockIsFree());
        EXPECT_EQ(unlock(), 0);
        EXPECT_TRUE(lockIsFree());
        throwNoMore();
    }
    throwFrom(1);
    limit();
    EXPECT_EQ(caught(), "java/lang/IllegalStateException");
}

TEST_F(TrendViewer, MissingMethodIsThatErrorAndLeavesTheLockFree) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    writeFile(path("SwapnoneBMPRD.gnp"), "1 2 ");
    for (const char* method : {"AppendCompUnicode", "AppendInt", "AppendFloat"}) {
        java.setBehaviour(method, {Mode::missing});
        label();
        EXPECT_EQ(java.pendingException(), std::string("java/lang/NoSuchMethodError: ") + method);
        env->ExceptionClear();
        EXPECT_TRUE(lockIsFree()) << method;
        java.setBehaviour(method, {Mode::answer});
    }
    java.setBehaviour("AppendCompUnicode", {Mode::missing});
    descriptors(object());
    EXPECT_EQ(caught(), "java/lang/NoSuchMethodError");
    pairs();
    EXPECT_EQ(caught(), "java/lang/NoSuchMethodError");
    java.setBehaviour("AppendInt", {Mode::missing});
    limit();
    EXPECT_EQ(caught(), "java/lang/NoSuchMethodError");
    EXPECT_EQ(called(), Words{});
}

TEST_F(TrendViewer, NullObjectsAreNullPointerExceptionsThatNameTheArgument) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    jobject out = object();
    label(nullptr, out, out);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: intOut must not be null");
    env->ExceptionClear();
    label(out, nullptr, out);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: textOut must not be null");
    env->ExceptionClear();
    label(out, out, nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: floatOut must not be null");
    env->ExceptionClear();
    descriptors(nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: list must not be null");
    env->ExceptionClear();
    Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(env, nullptr, nullptr,
                                                                                   nullptr, nullptr, nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: list must not be null");
    env->ExceptionClear();
    Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(env, nullptr, nullptr,
                                                                                 nullptr, nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: intOut must not be null");
    env->ExceptionClear();
    EXPECT_TRUE(lockIsFree());
    EXPECT_EQ(called(), Words{});
}

TEST_F(TrendViewer, NullTextsAreEmpty) {
    addOne();
    writeFile(path("BM.ini"), script);
    writeFile(path("BM.gnp"), "1 2 ");
    jobject out = object();
    EXPECT_EQ(Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(
                  env, nullptr, nullptr, nullptr, out),
              0);
    EXPECT_EQ(Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(
                  env, nullptr, nullptr, nullptr, nullptr, out),
              2);
    EXPECT_EQ(Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel(
                  env, nullptr, nullptr, nullptr, out, out, out),
              0);
    EXPECT_EQ(called().size(), 6U);
}

TEST_F(TrendViewer, ObjectsOfDifferentClassesAreRefusedBeforeAnythingIsCalled) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    declareMethods("other/List");
    label(object("other/List"), object(), object());
    EXPECT_EQ(java.pendingException(),
              "java/lang/IllegalArgumentException: intOut must be of the class of textOut");
    env->ExceptionClear();
    label(object(), object(), object("other/List"));
    EXPECT_EQ(java.pendingException(),
              "java/lang/IllegalArgumentException: floatOut must be of the class of textOut");
    env->ExceptionClear();
    label(object(), object("other/List"), object());
    EXPECT_EQ(caught(), "java/lang/IllegalArgumentException");
    EXPECT_TRUE(lockIsFree());
    EXPECT_EQ(called(), Words{});
}

TEST_F(TrendViewer, NoNameLeadsOutOfTheDataDirectory) {
    addOne();
    // Where each name would lead if it were taken as it is; some of the files hold what a reader would take.
    std::filesystem::create_directories(path("a"));
    for (const char* name : {"../outBM.ini", "../outBMPRD.gnp", "a/bBM.ini", "a/bBMPRD.gnp", "BMx/../c.gnp"})
        if (std::string(name) != "BMx/../c.gnp")
            writeFile(path(name), name[std::string(name).size() - 1] == 'i' ? script : "1 2 3 4 ");
    std::filesystem::create_directories(path("SwapnoneBM"));
    writeFile(path("SwapnoneBM/x.gnp"), "1 2 3 4 ");
    const std::vector<std::pair<std::string, std::string>> hostile{
        {"../out", ""}, {"..", "/out"}, {"a/b", ""}, {"a", "/b"}, {"/etc/passwd\xc0\x80", ""},
        {"", "../out"}};
    for (const auto& [name, instance] : hostile) {
        EXPECT_EQ(limit(name, instance), 3) << name << instance;
        EXPECT_EQ(pairs("PRD", name, instance), 3) << name << instance;
        EXPECT_EQ(label(name, instance), 3) << name << instance;
        EXPECT_EQ(unlock(), 0);
    }
    EXPECT_EQ(pairs("/x"), 3);
    EXPECT_EQ(pairs("/../../outBMPRD"), 3);
    EXPECT_EQ(pairs("PRD.gnp\xc0\x80"), 3);
    EXPECT_EQ(called(), Words{});
}

TEST_F(TrendViewer, NamesOfAnyKindThatLeadNowhereAreFilesThatCannotBeOpened) {
    addOne();
    for (const std::string& name :
         {std::string(5000, 'x'), std::string("%n%s"), std::string("$(touch pwned)"), std::string("*"),
          std::string("\xef\xbf\xbf"), std::string("a\nb")}) {
        EXPECT_EQ(limit(name), 3);
        EXPECT_EQ(pairs(name), 3);
    }
    std::filesystem::create_directory(path("SwapnoneBM.ini"));
    EXPECT_EQ(limit(), 0) << "a directory opens and holds nothing";
    ASSERT_EQ(::mkfifo(path("SwapnoneBMPRD.gnp").c_str(), 0600), 0);
    EXPECT_EQ(pairs(), 0) << "a pipe without a writer holds nobody up";
}

TEST_F(TrendViewer, InvalidUtf8InANameReachesJavaAsReplacements) {
    add(1, "di\xff\xc3sk", "\xe2\x82");
    EXPECT_EQ(descriptors(object()), 0);
    EXPECT_EQ(texts(), (Words{"di\xef\xbf\xbd\xef\xbf\xbdsk", "\xef\xbf\xbd\xef\xbf\xbd"}));
    writeFile(path("di\xff\xc3skBM.ini"), script);
    EXPECT_EQ(limit(texts()[0], ""), 3) << "what Java was told names no file";
}

TEST_F(TrendViewer, CharactersBeyondAsciiNameTheirFile) {
    addOne();
    writeFile(path("gr\xc3\xb6\xc3\x9f\x65\xf0\x9f\x98\x80"
                   "BM.ini"),
              script);
    EXPECT_EQ(limit("gr\xc3\xb6\xc3\x9f\x65", "\xed\xa0\xbd\xed\xb8\x80"), 0);
    EXPECT_EQ(called(), Words{"AppendInt 92"});
}

TEST_F(TrendViewer, CharactersThatJavaDidNotCopyAreNotReleased) {
    addOne();
    writeFile(path("SwapnoneBM.ini"), script);
    java.setCopiesCharacters(false);
    EXPECT_EQ(limit(), 0);
    for (const auto& function : java.functionCalls())
        EXPECT_NE(function, "ReleaseStringUTFChars");
}

TEST_F(TrendViewer, NoJavaMemoryForATextEndsTheCallWithItsError) {
    add(1, "a", "x");
    add(2, "b", "y");
    java.failNewTextsFrom(3);
    descriptors(object());
    EXPECT_EQ(caught(), "java/lang/OutOfMemoryError");
    EXPECT_EQ(texts(), (Words{"a", "x"}));
}

TEST_F(TrendViewer, NoNativeMemoryIsAnOutOfMemoryError) {
#if LUMETRA_UNDER_ASAN || LUMETRA_UNDER_TSAN
    GTEST_SKIP() << "a sanitizer needs more address space than a test can limit";
#endif
    addOne();
    writeFile(path("SwapnoneBMPRD.gnp"), "1 2 ");
    std::filesystem::resize_file(path("SwapnoneBMPRD.gnp"), 60 << 20);
    const auto starve = [this] {
        std::ifstream statm("/proc/self/statm");
        long pages = 0;
        statm >> pages;
        const rlim_t most = static_cast<rlim_t>(pages) * 4096 + (16 << 20);
        const rlimit limits{most, most};
        ::setrlimit(RLIMIT_AS, &limits);
        pairs();
        std::fputs(java.pendingException().value_or("nothing").c_str(), stderr);
        std::_Exit(0);
    };
    EXPECT_EXIT(starve(), testing::ExitedWithCode(0), "^java/lang/OutOfMemoryError: no native memory");
}

TEST_F(TrendViewer, NumbersAreReadUnderADecimalComma) {
    addOne();
    const locale_t comma = ::newlocale(LC_ALL_MASK, "de_DE.UTF-8", locale_t{});
    if (comma == locale_t{})
        GTEST_SKIP() << "no locale de_DE.UTF-8 on this machine";
    const locale_t before = ::uselocale(comma);
    const std::string point = ::localeconv()->decimal_point;
    writeFile(path("SwapnoneBM.ini"), "limit(x) = 92.5e0\n label '@ 1, a, b, notif level=87.50'");
    EXPECT_EQ(label(), 0);
    EXPECT_EQ(limit(), 0);
    EXPECT_EQ(pairsOf("1.5 2.5 "), 2);
    EXPECT_EQ(::localeconv()->decimal_point, std::string(",")) << "the caller's locale is as it was";
    ::uselocale(before);
    ::freelocale(comma);
    EXPECT_EQ(point, ",");
    EXPECT_EQ(called(), (Words{"AppendInt 1", "AppendCompUnicode Algorithm: b.      a.", "AppendFloat 87.5",
                               "AppendInt 92", "AppendCompUnicode 1.5", "AppendCompUnicode 2.5"}));
}

TEST_F(TrendViewer, ReadersOnManyThreadsSeeAChainThatChanges) {
    addOne();
    for (int i = 2; i <= 40; ++i)
        add(i, "Disk", "d" + std::to_string(i));
    std::atomic<bool> ended{false};
    std::vector<std::future<int>> readers;
    for (int i = 0; i < 4; ++i)
        readers.push_back(std::async(std::launch::async, [&ended] {
            test::FakeJavaEnvironment own;
            own.keepRecords(false);
            own.declareMethod(listClass, "AppendCompUnicode", "(Ljava/lang/String;)V", false);
            int wrong = 0;
            int seen = 0;
            own.onCall([&](const test::JavaCall& call) {
                wrong += ++seen % 2 == 1 && call.arguments[0] != "Swap" && call.arguments[0] != "Disk";
            });
            jobject list = own.makeObject(listClass);
            while (!ended)
                wrong += Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors(
                             own.env(), nullptr, list) != 0;
            return wrong + static_cast<int>(own.misuses().size());
        }));
    for (int i = 0; i < 300; ++i) {
        takeLinkFromChain(clasp.pLastLink);
        add(1000 + i, "Disk", "d");
    }
    ended = true;
    for (auto& reader : readers)
        EXPECT_EQ(reader.get(), 0);
}

} // namespace
} // namespace obrin
