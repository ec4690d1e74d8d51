#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <jni.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace obrin::test {

/// What a Java method does when it is called (or, for `missing`, when it is looked up).
struct JavaBehaviour {
    enum class Mode { answer, refuse, raise, missing, block };
    Mode mode = Mode::answer;
    std::chrono::seconds blocking{0}; ///< for `block`: how long before it answers, by the system clock
};

/// One call of a Java method. A text argument stands as its characters, a null reference as "(null)", a
/// number in decimal.
struct JavaCall {
    std::string method;
    std::vector<std::string> arguments;
};

/// True when `text` is a text that NewStringUTF accepts: modified UTF-8 (no byte above EF, U+0000 only as C0
/// 80, no overlong forms, nothing cut off).
bool isJavaEncoded(std::string_view text);

/// Whether the calling thread is in a function of such an environment: what it does there Java does, and not
/// the agent.
bool insideFakeJava();

/// A Java environment without a Java machine: enough of the function table to run the agent, and a strict
/// clerk of how it is used. It counts references and characters that were not given back, and notes as
/// misuse: a call from another thread than the owner, a call that is not allowed while an exception is
/// pending, a dead reference, a text that is no modified UTF-8, a method looked up on the wrong class or
/// called in the wrong form. A function that it does not have ends the process with that function's place in
/// the table.
///
/// The thread that constructs it owns it, until attach() moves it.
class FakeJavaEnvironment {
public:
    FakeJavaEnvironment();
    FakeJavaEnvironment(const FakeJavaEnvironment&) = delete;
    FakeJavaEnvironment& operator=(const FakeJavaEnvironment&) = delete;
    ~FakeJavaEnvironment();

    JNIEnv* env();
    /// The Java machine, which gives the environment to whoever loads a library.
    JavaVM* machine();

    /// Makes the calling thread the owner.
    void attach();

    // Objects of the Java side. Each result is a local reference of the outermost frame.

    /// An object whose class has the six static methods of the events side.
    jobject makeEvents();
    /// An object of a class of that name; its methods are declared with declareMethod.
    jobject makeObject(const std::string& className);
    jstring makeText(std::string_view javaEncoded);
    /// An array of bytes.
    jbyteArray makeBytes(std::string_view bytes);
    void declareMethod(const std::string& className, const std::string& name, const std::string& signature,
                       bool isStatic);

    void setStaticNumber(const std::string& className, const std::string& field, jint value);

    // What it is told to do.

    void setBehaviour(const std::string& method, JavaBehaviour behaviour);
    /// Whether GetStringUTFChars says that it made a copy (and then expects it back).
    void setCopiesCharacters(bool copies);
    /// From the n-th text on (counted from now, 1 is the next) NewStringUTF finds no memory; 0 for never.
    void failNewTextsFrom(std::size_t n);
    /// NewByteArray finds no memory.
    void failNewArrays(bool fail);
    /// PushLocalFrame finds no memory.
    void failLocalFrames(bool fail);
    /// The answers of getOs_support, getPrev_time and getPrev_tte.
    void setAnswers(jint osSupport, jlong previousTime, jdouble previousTimeToExhaustion);
    /// Called at each Java method call, on the calling thread, before the method behaves as told.
    void onCall(std::function<void(const JavaCall&)> listener);
    /// Whether calls() and functionCalls() are kept; a run of many cycles does without.
    void keepRecords(bool keep);

    // What it has seen. Any thread.

    std::vector<JavaCall> calls() const;
    /// Calls of one Java method.
    std::vector<JavaCall> callsOf(const std::string& method) const;
    /// Names of the environment's functions in the order in which they were called.
    std::vector<std::string> functionCalls() const;
    std::vector<std::string> misuses() const;
    std::size_t localReferences() const;
    std::size_t mostLocalReferences() const;
    std::size_t globalReferences() const;
    std::size_t openFrames() const;
    /// Character copies that were handed out and not given back.
    std::size_t unreleasedCharacters() const;
    /// The function that was registered for a native method; null for none.
    void* registered(const std::string& className, const std::string& method) const;
    std::string bytesOf(jbyteArray array) const;
    /// Text of the pending exception, nothing when none is.
    std::optional<std::string> pendingException() const;

private:
    friend struct FakeFunctions;
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace obrin::test
