// The native methods of the host that comes with the library, registered when the library is loaded by a
// program that has the classes for them. This room translates and lets agent/hostFeed, agent/resume and
// agent/checkFeed work; no C++ exception leaves it.

#include "acquisition/diskSelection.h"
#include "agent/checkFeed.h"
#include "agent/hostFeed.h"
#include "agent/resume.h"
#include "agent/serviceNotice.h"
#include "replay/replayFeed.h"
#include "support/jniSupport.h"

#include <algorithm>
#include <exception>
#include <initializer_list>
#include <jni.h>
#include <optional>
#include <string>
#include <string_view>

namespace obrin {
namespace {

constexpr const char* hostClass = "com/quorin/sysmgt/tavl/LumetraAgent/HostFeed";
constexpr const char* replayClass = "com/quorin/sysmgt/tavl/LumetraAgent/ReplayFeed";
constexpr const char* checkClass = "com/quorin/sysmgt/tavl/LumetraAgent/CheckFeed";

/// A time that a clock can be ahead of another without an overflow: 100 years.
constexpr jlong longestMicroseconds = 100L * 365 * 24 * 3600 * 1000000;

/// A Java array of the bytes; null with an exception pending when Java has no memory for it.
jbyteArray makeJavaBytes(JNIEnv* env, const std::string& bytes) {
    const auto length = static_cast<jsize>(bytes.size());
    jbyteArray array = env->NewByteArray(length);
    if (array != nullptr)
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    return array;
}

/// What `make` makes. Refused memory is Java's OutOfMemoryError.
template <class Make>
jbyteArray answer(JNIEnv* env, Make make) {
    try {
        return make();
    } catch (const std::exception& failure) {
        throwJava(env, "java/lang/OutOfMemoryError", failure.what());
    }
    return nullptr;
}

template <jint version>
jint JNICALL libraryVersion(JNIEnv*, jclass) {
    return version;
}

jbyteArray JNICALL await(JNIEnv* env, jclass, jlong after, jlong milliseconds) {
    constexpr jlong longest = 24L * 3600 * 1000;
    openHostFeed();
    return answer(env, [&]() -> jbyteArray {
        const std::chrono::milliseconds patience(std::clamp<jlong>(milliseconds, 0, longest));
        const Publication newest = awaitPublication(after, patience);
        return newest == nullptr ? nullptr : makeJavaBytes(env, *newest);
    });
}

jbyteArray JNICALL curves(JNIEnv* env, jclass, jint rid) {
    return answer(env, [&]() -> jbyteArray {
        const auto bytes = curvesOf(rid);
        return bytes ? makeJavaBytes(env, *bytes) : nullptr;
    });
}

std::string bytesOf(JNIEnv* env, jbyteArray array) {
    std::string bytes(static_cast<std::size_t>(env->GetArrayLength(array)), '\0');
    env->GetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()),
                            reinterpret_cast<jbyte*>(bytes.data()));
    return bytes;
}

/// Whether none is missing. If one is, an exception is pending.
bool areThere(JNIEnv* env, std::initializer_list<jobject> arguments) {
    if (std::ranges::none_of(arguments, [](jobject argument) { return argument == nullptr; }))
        return true;
    throwJava(env, "java/lang/NullPointerException", "an argument is missing");
    return false;
}

/// What `feed` makes of the bytes of a Java array.
template <class Feed>
jbyteArray answerOn(JNIEnv* env, jbyteArray text, Feed feed) {
    if (!areThere(env, {text}))
        return nullptr;
    return answer(env, [&] { return makeJavaBytes(env, feed(bytesOf(env, text))); });
}

jbyteArray JNICALL configuration(JNIEnv* env, jclass, jbyteArray text) {
    return answerOn(env, text, [](std::string_view bytes) { return configurationFeed(bytes); });
}

jbyteArray JNICALL declarations(JNIEnv* env, jclass, jbyteArray text, jint period, jint maxForecastHours) {
    return answerOn(env, text, [period, maxForecastHours](std::string_view bytes) {
        return declarationsFeed(bytes, period, maxForecastHours);
    });
}

jbyteArray JNICALL skipRules(JNIEnv* env, jclass, jbyteArray text) {
    return answerOn(env, text, [](std::string_view bytes) { return skipRulesFeed(bytes); });
}

/// What others could turn against an agent: its working directory, its configuration file, its user.
jbyteArray JNICALL places(JNIEnv* env, jclass, jbyteArray bin, jbyteArray configuration, jlong user) {
    if (!areThere(env, {bin, configuration}))
        return nullptr;
    return answer(env, [&] {
        return makeJavaBytes(env, placesFeed(bytesOf(env, bin), bytesOf(env, configuration), user));
    });
}

void JNICALL wantResume(JNIEnv*, jclass, jboolean wanted) {
    setResume(wanted != JNI_FALSE);
}

/// Rules of acquisition/diskSelection.h, or null: every disk is watched.
void JNICALL skip(JNIEnv* env, jclass, jbyteArray rules) {
    try {
        TextFindings findings; // whoever sets rules has asked for them before
        setSkipRules(rules == nullptr ? std::nullopt
                                      : std::optional(parseSkipRules(bytesOf(env, rules), findings)));
    } catch (const std::exception& failure) {
        throwJava(env, "java/lang/OutOfMemoryError", failure.what());
    }
}

jbyteArray JNICALL reading(JNIEnv* env, jclass) {
    return answer(env, [env] { return makeJavaBytes(env, describeReading()); });
}

jbyteArray JNICALL counters(JNIEnv* env, jclass) {
    return answer(env, [env] { return makeJavaBytes(env, describeCounters()); });
}

/// False when nobody can be told by such a name.
jboolean JNICALL nameService(JNIEnv* env, jclass, jbyteArray socket, jlong watchdogMicroseconds) {
    if (!areThere(env, {socket}))
        return JNI_FALSE;
    try {
        const std::chrono::microseconds watchdog(
            std::clamp<jlong>(watchdogMicroseconds, 0, longestMicroseconds));
        return openServiceNotice(bytesOf(env, socket), watchdog) ? JNI_TRUE : JNI_FALSE;
    } catch (const std::exception& failure) {
        throwJava(env, "java/lang/OutOfMemoryError", failure.what());
    }
    return JNI_FALSE;
}

// --- replays

/// 0 with an exception pending when the request is not understood.
jint JNICALL openIt(JNIEnv* env, jclass, jbyteArray request) {
    if (!areThere(env, {request}))
        return 0;
    try {
        const std::int32_t number = openReplay(bytesOf(env, request));
        if (number == 0)
            throwJava(env, "java/lang/IllegalArgumentException", "the request is not understood");
        return number;
    } catch (const std::exception& failure) {
        throwJava(env, "java/lang/OutOfMemoryError", failure.what());
    }
    return 0;
}

/// Null when there is no such replay.
jbyteArray JNICALL step(JNIEnv* env, jclass, jint number, jlong forecasts) {
    return answer(env, [&]() -> jbyteArray {
        const std::string bytes = stepReplay(number, forecasts);
        return bytes.empty() ? nullptr : makeJavaBytes(env, bytes);
    });
}

jbyteArray JNICALL summary(JNIEnv* env, jclass, jint number) {
    return answer(env, [&]() -> jbyteArray {
        const std::string bytes = summariseReplay(number);
        return bytes.empty() ? nullptr : makeJavaBytes(env, bytes);
    });
}

void JNICALL closeIt(JNIEnv*, jclass, jint number) {
    closeReplay(number);
}

JNINativeMethod method(const char* name, const char* signature, void* function) {
    return {const_cast<char*>(name), const_cast<char*>(signature), function};
}

bool isOfVersion(JNIEnv* env, jclass type, jint version) {
    jfieldID field = env->GetStaticFieldID(type, "VERSION", "I");
    return field != nullptr && env->GetStaticIntField(type, field) == version;
}

/// Registers the methods of a class. Without it, or with one of another version, every other native method
/// works as ever. The version is registered by itself, so that a class of another version can tell the two.
template <jint version, std::size_t count>
void registerClass(JNIEnv* env, const char* name, const JNINativeMethod (&methods)[count]) {
    jclass type = env->FindClass(name);
    const JNINativeMethod versionMethod =
        method("libraryVersion", "()I", reinterpret_cast<void*>(&libraryVersion<version>));
    if (type != nullptr && env->RegisterNatives(type, &versionMethod, 1) == JNI_OK &&
        isOfVersion(env, type, version))
        env->RegisterNatives(type, methods, static_cast<jint>(count));
    env->ExceptionClear();
}

void registerHost(JNIEnv* env) {
    const JNINativeMethod methods[] = {
        method("await", "(JJ)[B", reinterpret_cast<void*>(&await)),
        method("curves", "(I)[B", reinterpret_cast<void*>(&curves)),
        method("counters", "()[B", reinterpret_cast<void*>(&counters)),
        method("resume", "(Z)V", reinterpret_cast<void*>(&wantResume)),
        method("tellService", "([BJ)Z", reinterpret_cast<void*>(&nameService)),
        method("skip", "([B)V", reinterpret_cast<void*>(&skip)),
        method("reading", "()[B", reinterpret_cast<void*>(&reading)),
    };
    registerClass<hostFeedVersion>(env, hostClass, methods);
}

void registerCheck(JNIEnv* env) {
    const JNINativeMethod methods[] = {
        method("configuration", "([B)[B", reinterpret_cast<void*>(&configuration)),
        method("skipRules", "([B)[B", reinterpret_cast<void*>(&skipRules)),
        method("declarations", "([BII)[B", reinterpret_cast<void*>(&declarations)),
        method("places", "([B[BJ)[B", reinterpret_cast<void*>(&places)),
    };
    registerClass<checkFeedVersion>(env, checkClass, methods);
}

void registerReplay(JNIEnv* env) {
    const JNINativeMethod methods[] = {
        method("open", "([B)I", reinterpret_cast<void*>(&openIt)),
        method("step", "(IJ)[B", reinterpret_cast<void*>(&step)),
        method("summary", "(I)[B", reinterpret_cast<void*>(&summary)),
        method("close", "(I)V", reinterpret_cast<void*>(&closeIt)),
    };
    registerClass<replayFeedVersion>(env, replayClass, methods);
}

} // namespace
} // namespace obrin

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void*) {
    void* env = nullptr;
    if (machine->GetEnv(&env, JNI_VERSION_1_8) != JNI_OK)
        return JNI_ERR;
    auto* java = static_cast<JNIEnv*>(env);
    if (const obrin::LocalFrame frame(java); frame) {
        obrin::registerHost(java);
        obrin::registerCheck(java);
        obrin::registerReplay(java);
    }
    java->ExceptionClear(); // of a frame that there was no memory for
    return JNI_VERSION_1_8;
}
