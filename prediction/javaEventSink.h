#pragma once

#include "prediction/eventDelivery.h"
#include "support/jniSupport.h"

#include <jni.h>
#include <string>
#include <utility>

namespace obrin {

/// Delivers events to the static methods of the events object's class, on the thread of the given Java
/// environment, which must outlive the sink. The class and its methods are looked up once at construction,
/// while the process still has the descriptors to load a class with; a method that was not found is looked
/// for again at each call. A missing method, an exception and a shortage of memory, Java's or the process's,
/// are described in the log, cleared, and count as a refusal. No local reference outlives a call.
class JavaEventSink : public EventSink {
public:
    JavaEventSink(JNIEnv* env, jobject events);

    std::int32_t getOs_support() override;
    std::int64_t getPrev_time() override;
    double getPrev_tte() override;
    bool sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                   const char* culprit) override;

    bool sendUpperToleranceEvent(const char* name, const char* instance, double limit) override;
    bool sendInnerToleranceEvent(const char* name, const char* instance, double limit) override;

private:
    struct Method {
        const char* name;
        const char* signature;
        jmethodID id = nullptr;
    };

    /// Runs `call` with the class and the method inside a local frame. `refused` when Java could not be
    /// asked.
    template <class Result, class Call>
    Result ask(Method& method, Result refused, Call call);
    bool find(jclass type, Method& method);
    bool failed(const char* where);
    bool sendTolerance(Method& method, const char* name, const char* instance, double limit);
    bool makeText(const char* text, jstring* out);

    JNIEnv* env_;
    jobject events_;
    MemoryError memoryError_;
    Method osSupport_{"getOs_support", "()I"};
    Method previousTime_{"getPrev_time", "()J"};
    Method previousTimeToExhaustion_{"getPrev_tte", "()D"};
    Method sendEvent_{"sendEvent",
                      "(Ljava/lang/String;DLjava/lang/String;Ljava/lang/String;Ljava/lang/String;)Z"};
    Method upperTolerance_{"sendUpperToleranceEvent", "(Ljava/lang/String;Ljava/lang/String;D)Z"};
    Method innerTolerance_{"sendInnerToleranceEvent", "(Ljava/lang/String;Ljava/lang/String;D)Z"};
};

} // namespace obrin
