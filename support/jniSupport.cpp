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
    return takeJavaText(env, static_cast<jstring>(text));
}

} // namespace

std::optional<std::string> takePendingException(JNIEnv* env) {
    if (env->ExceptionCheck() == JNI_FALSE)
        return std::nullopt;
    jthrowable exception = env->ExceptionOccurred();
    env->ExceptionClear();
    auto text = exception == nullptr ? std::nullopt : describe(env, exception);
    env->ExceptionClear();
    return text ? *text : std::string("an exception that cannot be described");
}

} // namespace obrin
