// The native methods of the host that comes with the library, registered when the library is loaded by a
// program that has the class for them. This room translates and lets agent/hostFeed work; no C++ exception
// leaves it.

#include "agent/hostFeed.h"
#include "support/jniSupport.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <jni.h>

namespace obrin {
namespace {

constexpr const char* hostClass = "com/quorin/sysmgt/tavl/LumetraAgent/HostFeed";

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
        if (jclass type = env->FindClass("java/lang/OutOfMemoryError"))
            env->ThrowNew(type, failure.what());
    }
    return nullptr;
}

jint JNICALL libraryVersion(JNIEnv*, jclass) {
    return hostFeedVersion;
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

JNINativeMethod method(const char* name, const char* signature, void* function) {
    return {const_cast<char*>(name), const_cast<char*>(signature), function};
}

bool isOfThisVersion(JNIEnv* env, jclass type) {
    jfieldID version = env->GetStaticFieldID(type, "VERSION", "I");
    return version != nullptr && env->GetStaticIntField(type, version) == hostFeedVersion;
}

/// Without the class, or with one of another version, every other native method works as ever. The version is
/// registered by itself, so that a host of another version can tell the two.
void registerHost(JNIEnv* env) {
    jclass type = env->FindClass(hostClass);
    if (type == nullptr)
        return;
    const JNINativeMethod versionMethod =
        method("libraryVersion", "()I", reinterpret_cast<void*>(&libraryVersion));
    const JNINativeMethod methods[] = {
        method("await", "(JJ)[B", reinterpret_cast<void*>(&await)),
        method("curves", "(I)[B", reinterpret_cast<void*>(&curves)),
    };
    if (env->RegisterNatives(type, &versionMethod, 1) == JNI_OK && isOfThisVersion(env, type))
        env->RegisterNatives(type, methods, static_cast<jint>(std::size(methods)));
}

} // namespace
} // namespace obrin

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void*) {
    void* env = nullptr;
    if (machine->GetEnv(&env, JNI_VERSION_1_8) != JNI_OK)
        return JNI_ERR;
    auto* java = static_cast<JNIEnv*>(env);
    if (const obrin::LocalFrame frame(java); frame)
        obrin::registerHost(java);
    java->ExceptionClear();
    return JNI_VERSION_1_8;
}
