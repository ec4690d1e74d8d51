// The native methods of the host that comes with the library, registered in a Java machine that is none.

#include "agent/hostFeed.h"
#include "agent/resume.h"
#include "agent/serviceNotice.h"
#include "tests/acquisition/testMachine.h"
#include "tests/support/feedReading.h"
#include "tests/support/nativeDoor.h"
#include "tests/support/serviceSocket.h"
#include "tests/support/temporaryDirectory.h"

#include <gmock/gmock.h>
#include <jni.h>
#include <limits>

namespace obrin::test {
namespace {

using ::testing::IsEmpty;

constexpr const char* hostClass = "com/quorin/sysmgt/tavl/LumetraAgent/HostFeed";

using Version = jint (*)(JNIEnv*, jclass);
using Await = jbyteArray (*)(JNIEnv*, jclass, jlong, jlong);
using Curves = jbyteArray (*)(JNIEnv*, jclass, jint);

class HostDoor : public NativeDoor {
protected:
    HostDoor() : NativeDoor(hostClass) {}

    void declareHost(jint version) {
        declare(version, {{"await", "(JJ)[B"},
                          {"curves", "(I)[B"},
                          {"counters", "()[B"},
                          {"resume", "(Z)V"},
                          {"tellService", "([BJ)Z"},
                          {"skip", "([B)V"},
                          {"reading", "()[B"}});
    }
};

TEST_F(HostDoor, WithoutTheHostsClassNothingIsRegistered) {
    java.setBehaviour(hostClass, {JavaBehaviour::Mode::missing});
    load();
    EXPECT_EQ(native<Version>("libraryVersion"), nullptr);
}

TEST_F(HostDoor, AHostOfThisVersionGetsItsMethods) {
    declareHost(hostFeedVersion);
    load();
    ASSERT_NE(native<Version>("libraryVersion"), nullptr);
    EXPECT_EQ(native<Version>("libraryVersion")(java.env(), nullptr), hostFeedVersion);
    EXPECT_NE(native<Await>("await"), nullptr);
    EXPECT_NE(native<Curves>("curves"), nullptr);
}

TEST_F(HostDoor, AHostOfAnotherVersionIsToldTheLibrarysAndGetsNothingElse) {
    declareHost(hostFeedVersion + 1);
    load();
    ASSERT_NE(native<Version>("libraryVersion"), nullptr);
    EXPECT_EQ(native<Version>("libraryVersion")(java.env(), nullptr), hostFeedVersion);
    EXPECT_EQ(native<Await>("await"), nullptr);
    EXPECT_EQ(native<Curves>("curves"), nullptr);
}

TEST_F(HostDoor, AClassOfThatNameWithoutTheVersionOrTheMethodsIsLeftAlone) {
    java.declareMethod(hostClass, "libraryVersion", "()I", true);
    load();
    EXPECT_EQ(native<Await>("await"), nullptr);
}

TEST_F(HostDoor, AHostThatLacksAMethodIsLeftAlone) {
    java.declareMethod(hostClass, "libraryVersion", "()I", true);
    java.declareMethod(hostClass, "await", "(J)[B", true);
    java.setStaticNumber(hostClass, "VERSION", hostFeedVersion);
    load();
    EXPECT_EQ(native<Curves>("curves"), nullptr);
}

TEST_F(HostDoor, NoMemoryForALocalFrameCostsTheHostOnly) {
    declareHost(hostFeedVersion);
    java.failLocalFrames(true);
    load();
    EXPECT_EQ(native<Version>("libraryVersion"), nullptr);
}

TEST_F(HostDoor, AwaitHandsOverTheBytesThatWerePublished) {
    declareHost(hostFeedVersion);
    load();
    openHostFeed();
    publishEnd();
    const Publication published = awaitPublication(0, std::chrono::milliseconds(0));
    ASSERT_NE(published, nullptr);
    jbyteArray bytes = native<Await>("await")(java.env(), nullptr, 0, 0);
    EXPECT_EQ(java.bytesOf(bytes), *published);
    EXPECT_THAT(java.misuses(), IsEmpty());
}

TEST_F(HostDoor, NothingIsPublishedBeforeTheFirstAwait) {
    openHostFeed(false);
    declareHost(hostFeedVersion);
    load();
    const auto newest = [] {
        const Publication bytes = awaitPublication(0, std::chrono::milliseconds(0));
        return bytes == nullptr ? 0 : readState(*bytes).serial;
    };
    const std::int64_t before = newest();
    publishEnd();
    EXPECT_EQ(newest(), before);
    native<Await>("await")(java.env(), nullptr, 0, 0);
    publishEnd();
    EXPECT_EQ(newest(), before + 1);
}

TEST_F(HostDoor, AwaitComesBackWithNothingAfterItsTimeAndTakesAnyNumbers) {
    declareHost(hostFeedVersion);
    load();
    const auto await = native<Await>("await");
    EXPECT_EQ(await(java.env(), nullptr, std::numeric_limits<jlong>::max(), 1), nullptr);
    EXPECT_EQ(
        await(java.env(), nullptr, std::numeric_limits<jlong>::max(), std::numeric_limits<jlong>::min()),
        nullptr);
    EXPECT_EQ(java.pendingException(), std::nullopt);
}

TEST_F(HostDoor, NoJavaMemoryForTheBytesIsJavasOwnException) {
    declareHost(hostFeedVersion);
    load();
    openHostFeed();
    publishEnd();
    java.failNewArrays(true);
    EXPECT_EQ(native<Await>("await")(java.env(), nullptr, 0, 0), nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/OutOfMemoryError: Java heap space");
    EXPECT_THAT(java.misuses(), IsEmpty());
}

TEST_F(HostDoor, CountersAreHandedOver) {
    declareHost(hostFeedVersion);
    load();
    using Counters = jbyteArray (*)(JNIEnv*, jclass);
    EXPECT_EQ(java.bytesOf(native<Counters>("counters")(java.env(), nullptr)), describeCounters());
}

TEST_F(HostDoor, ARunResumesOnlyAfterTheHostHasSaidSo) {
    declareHost(hostFeedVersion);
    load();
    EXPECT_FALSE(isResumeWanted());
    const auto resume = native<void (*)(JNIEnv*, jclass, jboolean)>("resume");
    resume(java.env(), nullptr, JNI_TRUE);
    EXPECT_TRUE(isResumeWanted());
    resume(java.env(), nullptr, JNI_FALSE);
    EXPECT_FALSE(isResumeWanted());
}

TEST_F(HostDoor, SkipRulesAreInForceInARunThatBeginsLaterAndNoneWithoutAny) {
    declareHost(hostFeedVersion);
    load();
    TestMachine machine;
    machine.installDf("echo heading; echo 'tmpfs 1 2 3 4% /run'; echo '/dev/a 1 2 3 4% /'\n");
    systemPaths().mountInfo = machine.path("mountinfo");
    writeFile(systemPaths().mountInfo,
              "1 0 0:5 / /run rw - tmpfs tmpfs rw\n2 0 8:1 / / rw - ext4 /dev/a rw\n");
    std::vector<DiskName> names;
    const auto skip = native<void (*)(JNIEnv*, jclass, jbyteArray)>("skip");
    skip(java.env(), nullptr, java.makeBytes("no rule\nfstype tmpfs\n"));
    EXPECT_EQ(Retrievedisks(2, &names), 2) << "the run that is on";
    beginInstanceRun();
    EXPECT_EQ(Retrievedisks(2, &names), 1);
    skip(java.env(), nullptr, nullptr);
    EXPECT_EQ(Retrievedisks(2, &names), 1) << "the run that is on";
    beginInstanceRun();
    EXPECT_EQ(Retrievedisks(2, &names), 2);
    EXPECT_EQ(java.pendingException(), std::nullopt);
    EXPECT_THAT(java.misuses(), IsEmpty());
}

TEST_F(HostDoor, HowFarTheReadingIsIsHandedOver) {
    declareHost(hostFeedVersion);
    load();
    tellReading(3000000000, 5000000000);
    const std::string bytes =
        java.bytesOf(native<jbyteArray (*)(JNIEnv*, jclass)>("reading")(java.env(), nullptr));
    tellReading(0, 0);
    FeedReading in(bytes);
    EXPECT_EQ(in.number(), hostFeedVersion);
    EXPECT_EQ(in.longNumber(), 3000000000);
    EXPECT_EQ(in.longNumber(), 5000000000);
    EXPECT_TRUE(in.atEnd());
}

TEST_F(HostDoor, TheHostSaysWhichServiceManagerIsTold) {
    declareHost(hostFeedVersion);
    load();
    const auto tellService = native<jboolean (*)(JNIEnv*, jclass, jbyteArray, jlong)>("tellService");
    const TemporaryDirectory directory;
    const ServiceSocket manager(directory.path("notify"));
    EXPECT_EQ(tellService(java.env(), nullptr, java.makeBytes(directory.path("notify")), 20000000), JNI_TRUE);
    tellCycle("x");
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1\nSTATUS=x");
    for (const jlong any : {std::numeric_limits<jlong>::min(), std::numeric_limits<jlong>::max()}) {
        EXPECT_EQ(tellService(java.env(), nullptr, java.makeBytes(directory.path("notify")), any), JNI_TRUE);
        tellCycle("x");
        EXPECT_GT(nextSignOfLife(), systemClock().now());
    }
    EXPECT_EQ(tellService(java.env(), nullptr, java.makeBytes("nowhere"), 0), JNI_FALSE);
    EXPECT_FALSE(isServiceNoticeOpen());
    EXPECT_EQ(tellService(java.env(), nullptr, nullptr, 0), JNI_FALSE);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: an argument is missing");
}

TEST_F(HostDoor, ANumberThatNoLinkHasGivesNoCurves) {
    declareHost(hostFeedVersion);
    load();
    EXPECT_EQ(native<Curves>("curves")(java.env(), nullptr, 4711), nullptr);
    EXPECT_EQ(java.pendingException(), std::nullopt);
}

} // namespace
} // namespace obrin::test
