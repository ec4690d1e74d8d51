#include "tests/support/fakeJavaEnvironment.h"

#include <gtest/gtest.h>

namespace obrin::test {
namespace {

constexpr const char* eventSignature =
    "(Ljava/lang/String;DLjava/lang/String;Ljava/lang/String;Ljava/lang/String;)Z";

class FakeJavaEnvironmentTest : public testing::Test {
protected:
    bool sendEvent(const char* name) {
        jclass type = env->GetObjectClass(events);
        jmethodID id = env->GetStaticMethodID(type, "sendEvent", eventSignature);
        return id != nullptr &&
               env->CallStaticBooleanMethod(type, id, env->NewStringUTF("fatal"), 1.5,
                                            env->NewStringUTF(name), nullptr, nullptr) == JNI_TRUE;
    }

    FakeJavaEnvironment java;
    JNIEnv* env = java.env();
    jobject events = java.makeEvents();
};

TEST(JavaEncoding, KnowsModifiedUtf8) {
    EXPECT_TRUE(isJavaEncoded(""));
    EXPECT_TRUE(isJavaEncoded("plain \xC3\xA4 \xE2\x82\xAC \xC0\x80 \xED\xA0\xBD\xED\xB8\x80"));
    for (const char* wrong :
         {"\xFF", "\x80", "\xC3", "\xC1\x81", "\xE2\x82", "\xE0\x80\x80", "\xF0\x9F\x98\x80"})
        EXPECT_FALSE(isJavaEncoded(wrong)) << wrong;
}

TEST_F(FakeJavaEnvironmentTest, RecordsACallWithItsArguments) {
    EXPECT_TRUE(sendEvent("disk"));
    ASSERT_EQ(java.callsOf("sendEvent").size(), 1u);
    EXPECT_EQ(java.calls()[0].arguments,
              (std::vector<std::string>{"fatal", "1.5", "disk", "(null)", "(null)"}));
    EXPECT_TRUE(java.misuses().empty());
}

TEST_F(FakeJavaEnvironmentTest, UnderstandsTheArrayForm) {
    jclass type = env->GetObjectClass(events);
    jmethodID id =
        env->GetStaticMethodID(type, "sendInnerToleranceEvent", "(Ljava/lang/String;Ljava/lang/String;D)Z");
    jvalue values[3];
    values[0].l = env->NewStringUTF("a");
    values[1].l = nullptr;
    values[2].d = 90;
    EXPECT_TRUE(env->CallStaticBooleanMethodA(type, id, values));
    EXPECT_EQ(java.calls()[0].arguments, (std::vector<std::string>{"a", "(null)", "90"}));
}

TEST_F(FakeJavaEnvironmentTest, AnswersTheQuestionsAsTold) {
    java.setAnswers(3, 5000000000, 0.25);
    jclass type = env->GetObjectClass(events);
    EXPECT_EQ(env->CallStaticIntMethod(type, env->GetStaticMethodID(type, "getOs_support", "()I")), 3);
    EXPECT_EQ(env->CallStaticLongMethod(type, env->GetStaticMethodID(type, "getPrev_time", "()J")),
              5000000000);
    EXPECT_EQ(env->CallStaticDoubleMethod(type, env->GetStaticMethodID(type, "getPrev_tte", "()D")), 0.25);
    EXPECT_TRUE(java.misuses().empty());
}

TEST_F(FakeJavaEnvironmentTest, CallsMethodsOfAnObjectOfItsOwnClass) {
    for (const auto* signature : {"(Ljava/lang/String;)V", "(I)V", "(F)V"})
        java.declareMethod("a/List", std::string("Append") + signature[1], signature, false);
    jobject list = java.makeObject("a/List");
    jclass type = env->GetObjectClass(list);
    env->CallVoidMethod(list, env->GetMethodID(type, "AppendL", "(Ljava/lang/String;)V"),
                        java.makeText("text"));
    env->CallVoidMethod(list, env->GetMethodID(type, "AppendI", "(I)V"), jint{-1});
    env->CallVoidMethod(list, env->GetMethodID(type, "AppendF", "(F)V"), jfloat{-2.5F});
    ASSERT_EQ(java.calls().size(), 3U);
    EXPECT_EQ(java.calls()[0].arguments, std::vector<std::string>{"text"});
    EXPECT_EQ(java.calls()[1].arguments, std::vector<std::string>{"-1"});
    EXPECT_EQ(java.calls()[2].arguments, std::vector<std::string>{"-2.5"});
    EXPECT_TRUE(java.misuses().empty());
    env->CallVoidMethod(java.makeObject("b/List"), env->GetMethodID(type, "AppendI", "(I)V"), jint{1});
    EXPECT_EQ(java.misuses().size(), 1U) << "a method of another class";
}

TEST_F(FakeJavaEnvironmentTest, KnowsInstancesOfAClass) {
    jclass type = env->FindClass("a/List");
    EXPECT_EQ(env->IsInstanceOf(java.makeObject("a/List"), type), JNI_TRUE);
    EXPECT_EQ(env->IsInstanceOf(java.makeObject("b/List"), type), JNI_FALSE);
    EXPECT_EQ(env->IsInstanceOf(nullptr, type), JNI_TRUE);
    EXPECT_EQ(env->IsInstanceOf(java.makeObject("b/List"), env->FindClass("java/lang/Object")), JNI_TRUE);
    EXPECT_TRUE(java.misuses().empty());
}

TEST_F(FakeJavaEnvironmentTest, ThrowsRefusesAndMissesAsTold) {
    java.setBehaviour("sendEvent", {JavaBehaviour::Mode::refuse});
    EXPECT_FALSE(sendEvent("x"));
    java.setBehaviour("sendEvent", {JavaBehaviour::Mode::raise});
    EXPECT_FALSE(sendEvent("x"));
    EXPECT_EQ(java.pendingException(), "java/lang/IllegalStateException: sendEvent was told to throw");
    env->ExceptionClear();
    java.setBehaviour("sendEvent", {JavaBehaviour::Mode::missing});
    EXPECT_FALSE(sendEvent("x"));
    EXPECT_EQ(java.pendingException(), "java/lang/NoSuchMethodError: sendEvent");
}

TEST_F(FakeJavaEnvironmentTest, NotesACallWhileAnExceptionIsPending) {
    env->ThrowNew(env->FindClass("java/lang/Error"), "why");
    env->ExceptionCheck();
    EXPECT_TRUE(java.misuses().empty());
    env->NewStringUTF("x");
    EXPECT_EQ(java.misuses().size(), 1u);
}

TEST_F(FakeJavaEnvironmentTest, NotesAnotherThreadADeadReferenceAndAWrongText) {
    std::thread([this] { env->GetVersion(); }).join();
    EXPECT_EQ(java.misuses().size(), 1u);
    jstring text = env->NewStringUTF("x");
    env->DeleteLocalRef(text);
    env->GetStringUTFLength(text);
    EXPECT_EQ(java.misuses().size(), 2u);
    env->NewStringUTF("\xFF");
    EXPECT_EQ(java.misuses().size(), 3u);
}

TEST_F(FakeJavaEnvironmentTest, CountsReferencesAndFrames) {
    const auto before = java.localReferences();
    env->PushLocalFrame(4);
    jobject global = env->NewGlobalRef(env->NewStringUTF("x"));
    EXPECT_EQ(java.localReferences(), before + 1);
    env->PopLocalFrame(nullptr);
    EXPECT_EQ(java.localReferences(), before);
    EXPECT_EQ(java.globalReferences(), 1u);
    env->DeleteGlobalRef(global);
    EXPECT_EQ(java.globalReferences(), 0u);
    EXPECT_EQ(java.openFrames(), 0u);
}

TEST_F(FakeJavaEnvironmentTest, CountsOnlyCopiedCharactersAsUnreleased) {
    jstring text = java.makeText("abc");
    jboolean isCopy = JNI_FALSE;
    const char* copy = env->GetStringUTFChars(text, &isCopy);
    EXPECT_EQ(isCopy, JNI_TRUE);
    EXPECT_STREQ(copy, "abc");
    EXPECT_EQ(java.unreleasedCharacters(), 1u);
    env->ReleaseStringUTFChars(text, copy);
    java.setCopiesCharacters(false);
    EXPECT_STREQ(env->GetStringUTFChars(text, &isCopy), "abc");
    EXPECT_EQ(isCopy, JNI_FALSE);
    EXPECT_EQ(java.unreleasedCharacters(), 0u);
}

TEST_F(FakeJavaEnvironmentTest, RunsOutOfMemoryForTextsAndFrames) {
    java.failNewTextsFrom(2);
    EXPECT_NE(env->NewStringUTF("x"), nullptr);
    EXPECT_EQ(env->NewStringUTF("x"), nullptr);
    EXPECT_EQ(java.pendingException(), "java/lang/OutOfMemoryError: Java heap space");
    env->ExceptionClear();
    java.failLocalFrames(true);
    EXPECT_NE(env->PushLocalFrame(1), 0);
}

TEST(FakeJavaEnvironmentDeathTest, AbsentFunctionsEndTheProcess) {
    FakeJavaEnvironment java;
    EXPECT_DEATH(java.env()->NewIntArray(1), "function [0-9]+ of the table");
}

} // namespace
} // namespace obrin::test
