#include "prediction/javaEventSink.h"

#include "agent/debugLog.h"

#include <new>

namespace obrin {

JavaEventSink::JavaEventSink(JNIEnv* env, jobject events) : env_(env), events_(events), memoryError_(env) {
    for (Method* method : {&osSupport_, &previousTime_, &previousTimeToExhaustion_, &sendEvent_,
                           &upperTolerance_, &innerTolerance_})
        ask(*method, false, [](jclass) { return true; });
}

bool JavaEventSink::failed(const char* where) {
    if (env_->ExceptionCheck() == JNI_FALSE)
        return false;
    try {
        DEBUGMSG("Java exception in %s: %s\n", where, takePendingException(env_, memoryError_)->c_str());
    } catch (const std::bad_alloc&) {
        env_->ExceptionClear();
        DEBUGMSG("Java exception in %s, and no memory to describe it\n", where);
    }
    return true;
}

bool JavaEventSink::find(jclass type, Method& method) {
    if (method.id == nullptr)
        method.id = env_->GetStaticMethodID(type, method.name, method.signature);
    return !failed(method.name) && method.id != nullptr;
}

template <class Result, class Call>
Result JavaEventSink::ask(Method& method, Result refused, Call call) {
    if (events_ == nullptr) {
        DEBUGMSG("No events object to call %s on\n", method.name);
        return refused;
    }
    LocalFrame frame(env_);
    if (!frame) {
        env_->ExceptionClear();
        DEBUGMSG("No Java memory to call %s\n", method.name);
        return refused;
    }
    jclass type = env_->GetObjectClass(events_);
    if (type == nullptr || !find(type, method))
        return refused;
    try {
        const Result result = call(type);
        return failed(method.name) ? refused : result;
    } catch (const std::bad_alloc&) {
        DEBUGMSG("No memory to call %s\n", method.name);
        return refused;
    }
}

std::int32_t JavaEventSink::getOs_support() {
    return ask(osSupport_, std::int32_t{0},
               [this](jclass type) { return env_->CallStaticIntMethod(type, osSupport_.id); });
}

std::int64_t JavaEventSink::getPrev_time() {
    return ask(previousTime_, std::int64_t{0}, [this](jclass type) {
        return static_cast<std::int64_t>(env_->CallStaticLongMethod(type, previousTime_.id));
    });
}

double JavaEventSink::getPrev_tte() {
    return ask(previousTimeToExhaustion_, 0.0, [this](jclass type) {
        return env_->CallStaticDoubleMethod(type, previousTimeToExhaustion_.id);
    });
}

/// False when Java had no memory for the text (its exception is then described and cleared).
bool JavaEventSink::makeText(const char* text, jstring* out) {
    *out = makeJavaText(env_, text);
    return !failed("NewStringUTF") && (text == nullptr || *out != nullptr);
}

bool JavaEventSink::sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                              const char* culprit) {
    return ask(sendEvent_, false, [&](jclass type) {
        jstring texts[4] = {};
        const char* sources[4] = {instance, timeText, name, culprit};
        for (int i = 0; i < 4; ++i)
            if (!makeText(sources[i], &texts[i]))
                return false;
        // Only the low byte is Java's answer.
        return (env_->CallStaticBooleanMethod(type, sendEvent_.id, texts[1], seconds, texts[2], texts[0],
                                              texts[3]) &
                0xFF) != 0;
    });
}

bool JavaEventSink::sendTolerance(Method& method, const char* name, const char* instance, double limit) {
    return ask(method, false, [&](jclass type) {
        jstring nameText = nullptr;
        jstring instanceText = nullptr;
        if (!makeText(name, &nameText) || !makeText(instance, &instanceText))
            return false;
        return (env_->CallStaticBooleanMethod(type, method.id, nameText, instanceText, limit) & 0xFF) != 0;
    });
}

bool JavaEventSink::sendUpperToleranceEvent(const char* name, const char* instance, double limit) {
    return sendTolerance(upperTolerance_, name, instance, limit);
}

bool JavaEventSink::sendInnerToleranceEvent(const char* name, const char* instance, double limit) {
    return sendTolerance(innerTolerance_, name, instance, limit);
}

} // namespace obrin
