// The native methods of a replay, registered in a Java machine that is none.

#include "replay/replayFeed.h"
#include "tests/support/nativeDoor.h"

#include <gmock/gmock.h>

namespace obrin::test {
namespace {

using ::testing::IsEmpty;

constexpr const char* replayClass = "com/quorin/sysmgt/tavl/LumetraAgent/ReplayFeed";

using Open = jint (*)(JNIEnv*, jclass, jbyteArray);
using Step = jbyteArray (*)(JNIEnv*, jclass, jint, jlong);
using Summary = jbyteArray (*)(JNIEnv*, jclass, jint);
using Close = void (*)(JNIEnv*, jclass, jint);

class ReplayDoor : public NativeDoor {
protected:
    ReplayDoor() : NativeDoor(replayClass) {}

    void declareReplay(jint version) {
        declare(version, {{"open", "([B)I"}, {"step", "(IJ)[B"}, {"summary", "(I)[B"}, {"close", "(I)V"}});
    }

    /// A request without archives.
    static std::string request() {
        Bytes bytes(128);
        bytes.number(replayFeedVersion).number(60000).number(0).number(48).number(1).flag(false).flag(false);
        return bytes.text("").text("").number(0).number(0).take();
    }
};

TEST_F(ReplayDoor, AReplayIsOpenedSteppedThroughSummedUpAndClosed) {
    declareReplay(replayFeedVersion);
    load();
    const jint number = native<Open>("open")(java.env(), nullptr, java.makeBytes(request()));
    ASSERT_GT(number, 0);
    EXPECT_FALSE(java.bytesOf(native<Step>("step")(java.env(), nullptr, number, 10)).empty());
    EXPECT_FALSE(java.bytesOf(native<Summary>("summary")(java.env(), nullptr, number)).empty());
    native<Close>("close")(java.env(), nullptr, number);
    EXPECT_EQ(native<Step>("step")(java.env(), nullptr, number, 10), nullptr);
    EXPECT_EQ(native<Summary>("summary")(java.env(), nullptr, number), nullptr);
    EXPECT_EQ(java.pendingException(), std::nullopt);
    EXPECT_THAT(java.misuses(), IsEmpty());
}

TEST_F(ReplayDoor, AHostOfAnotherVersionGetsNothing) {
    declareReplay(replayFeedVersion + 1);
    load();
    EXPECT_EQ(native<Open>("open"), nullptr);
}

TEST_F(ReplayDoor, WhatIsNoRequestAndWantOfMemoryAreJavasOwnExceptions) {
    declareReplay(replayFeedVersion);
    load();
    EXPECT_EQ(native<Open>("open")(java.env(), nullptr, nullptr), 0);
    EXPECT_EQ(java.pendingException(), "java/lang/NullPointerException: an argument is missing");
    java.env()->ExceptionClear();
    EXPECT_EQ(native<Open>("open")(java.env(), nullptr, java.makeBytes("rubbish")), 0);
    EXPECT_EQ(java.pendingException(), "java/lang/IllegalArgumentException: the request is not understood");
    java.env()->ExceptionClear();
    const jint number = native<Open>("open")(java.env(), nullptr, java.makeBytes(request()));
    java.failNewArrays(true);
    EXPECT_EQ(native<Step>("step")(java.env(), nullptr, number, 10), nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/OutOfMemoryError: Java heap space");
    EXPECT_THAT(java.misuses(), IsEmpty());
    closeReplay(number);
}

} // namespace
} // namespace obrin::test
