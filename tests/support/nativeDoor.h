#pragma once

#include "tests/support/fakeJavaEnvironment.h"

#include <gmock/gmock.h>
#include <initializer_list>
#include <jni.h>
#include <string>

extern "C" jint JNI_OnLoad(JavaVM* machine, void* reserved);

namespace obrin::test {

/// A class of the host's in a Java machine that is none, and what the library registers for it when loaded.
class NativeDoor : public testing::Test {
protected:
    explicit NativeDoor(const char* className) : className_(className) {}

    struct NativeMethod {
        const char* name;
        const char* signature;
    };

    /// The class is there, with its version and these methods besides that which tells the library's version.
    void declare(jint version, std::initializer_list<NativeMethod> methods) {
        java.declareMethod(className_, "libraryVersion", "()I", true);
        for (const NativeMethod& method : methods)
            java.declareMethod(className_, method.name, method.signature, true);
        java.setStaticNumber(className_, "VERSION", version);
    }

    template <class Function>
    Function native(const char* name) const {
        return reinterpret_cast<Function>(java.registered(className_, name));
    }

    /// Loading never fails, leaves no exception, no reference and no misuse behind.
    void load() {
        EXPECT_EQ(JNI_OnLoad(java.machine(), nullptr), JNI_VERSION_1_8);
        EXPECT_EQ(java.pendingException(), std::nullopt);
        EXPECT_EQ(java.localReferences(), 0U);
        EXPECT_EQ(java.openFrames(), 0U);
        EXPECT_THAT(java.misuses(), testing::IsEmpty());
    }

    FakeJavaEnvironment java;

private:
    std::string className_;
};

} // namespace obrin::test
