#include "support/jniSupport.h"

#include "support/javaText.h"

#include <memory>

namespace obrin {

LocalFrame::LocalFrame(JNIEnv* env, jint capacity) : env_(env), pushed_(env->PushLocalFrame(capacity) == 0) {}

LocalFrame::~LocalFrame() {
    if (pushed_)
        env_->PopLocalFrame(nullptr);
}

jstring makeJavaText(JNIEnv* env, const char* text) {
    return text == nullptr ? nullptr : env->NewStringUTF(toJavaEncoding(text).c_str());
}

std::string takeJavaText(JNIEnv* env, jstring text) {
    if (text == nullptr)
        return {};
    jboolean isCopy = JNI_FALSE;
    const char* characters = env->GetStringUTFChars(text, &isCopy);
    if (characters == nullptr) {
        env->ExceptionClear();
        return {};
    }
    const auto release = [env, text](const char* copy) { env->ReleaseStringUTFChars(text, copy); };
    const std::unique_ptr<const char, decltype(release)> copied(isCopy == JNI_TRUE ? characters : nullptr,
                                                                release);
    return fromJavaEncoding(characters);
}

void throwJava(JNIEnv* env, const char* className, const char* message) {
    if (env->ExceptionCheck() == JNI_TRUE)
        return;
    if (jclass type = env->FindClass(className)) {
        env->ThrowNew(type, message);
        env->DeleteLocalRef(type);
    }
}

namespace {

std::optional<std::string> describe(JNIEnv* env, jthrowable exception) {
    jclass type = env->GetObjectClass(exception);
    jmethodID toString =
        type == nullptr ? nullptr : env->GetMethodID(type, "toString", "()Ljava/lang/String;");
    if (toString == nullptr)
        return std::nullopt;
    jobject text = env->CallObjectMethod(exception, toString);
    if (env->ExceptionCheck() == JNI_TRUE || text == nullptr)
        return std::nullopt;
    const std::string characters = takeJavaText(env, static_cast<jstring>(text));
    return characters.empty() ? std::nullopt : std::optional(characters);
}

} // namespace

MemoryError::MemoryError(JNIEnv* env) : env_(env) {
    const LocalFrame frame(env);
    jclass type = frame ? env->FindClass("java/lang/OutOfMemoryError") : nullptr;
    env->ExceptionClear();
    if (type != nullptr)
        type_ = env->NewGlobalRef(type);
}

MemoryError::~MemoryError() {
    env_->DeleteGlobalRef(type_);
}

bool MemoryError::is(jthrowable exception) const {
    return type_ != nullptr && env_->IsInstanceOf(exception, static_cast<jclass>(type_)) == JNI_TRUE;
}

std::optional<std::string> takePendingException(JNIEnv* env, const MemoryError& memoryError) {
    if (env->ExceptionCheck() == JNI_FALSE)
        return std::nullopt;
    jthrowable exception = env->ExceptionOccurred();
    env->ExceptionClear();
    auto text = exception == nullptr ? std::nullopt : describe(env, exception);
    env->ExceptionClear();
    if (text)
        return text;
    return exception != nullptr && memoryError.is(exception) ? "java.lang.OutOfMemoryError"
                                                             : "an exception that cannot be described";
}

} // namespace obrin
