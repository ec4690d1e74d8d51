#pragma once

#include <jni.h>
#include <optional>
#include <string>

namespace obrin {

/// Local references made while it lives are gone when it goes, so a call that runs for months does not gather
/// any.
class LocalFrame {
public:
    explicit LocalFrame(JNIEnv* env, jint capacity = 16);
    LocalFrame(const LocalFrame&) = delete;
    LocalFrame& operator=(const LocalFrame&) = delete;
    ~LocalFrame();

    /// False when Java had no memory for it; its exception is then pending.
    explicit operator bool() const { return pushed_; }

private:
    JNIEnv* env_;
    bool pushed_;
};

/// A Java text of `text`, valid whatever its bytes; a null reference for an absent text. Null with an
/// exception pending when Java has no memory.
jstring makeJavaText(JNIEnv* env, const char* text);

/// The characters of a Java text as UTF-8; empty for a null reference and when Java has no memory (the
/// exception is then cleared). Characters that Java did not copy are not released, those that it did always.
std::string takeJavaText(JNIEnv* env, jstring text);

/// Throws an exception of that class, unless one is pending already.
void throwJava(JNIEnv* env, const char* className, const char* message);

/// Java's class of errors for want of memory, found early: when memory is short, Java can look nothing up and
/// describe nothing. Must not outlive the Java environment.
class MemoryError {
public:
    explicit MemoryError(JNIEnv* env);
    MemoryError(const MemoryError&) = delete;
    MemoryError& operator=(const MemoryError&) = delete;
    ~MemoryError();

    /// Whether an exception is of that class. Takes no memory of Java.
    bool is(jthrowable exception) const;

private:
    JNIEnv* env_;
    jobject type_ = nullptr;
};

/// Looks for a pending exception and clears it. Its own text ("java.lang.IllegalStateException: why"), or a
/// replacement when even that cannot be had; nothing when none was pending. Needs a local frame around it.
/// When memory is refused to the text, the exception is cleared all the same or another one is pending.
std::optional<std::string> takePendingException(JNIEnv* env, const MemoryError& memoryError);

} // namespace obrin
