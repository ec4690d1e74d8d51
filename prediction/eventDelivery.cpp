#include "prediction/eventDelivery.h"

#include "agent/debugLog.h"
#include "support/clock.h"

#include <ctime>

namespace obrin {
namespace {

EventSink* eventSink = nullptr;

/// An absent text as the log shows it.
const char* shown(const char* text) {
    return text == nullptr ? "(null)" : text;
}

/// An absent instance as the events' side gets it; an absent name stays absent.
const char* instanceOrNull(const char* instance) {
    return instance == nullptr ? "Null" : instance;
}

} // namespace

void setEventSink(EventSink* sink) {
    eventSink = sink;
}

std::int32_t sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                       const char* culprit) {
    DEBUGMSG("start sendEvent %s %f %s %s\n", shown(timeText), seconds, shown(name), shown(instance));
    if (eventSink == nullptr)
        return 0;
    // The three questions are part of the conversation with Java; nothing depends on the answers.
    eventSink->getOs_support();
    eventSink->getPrev_time();
    eventSink->getPrev_tte();

    char nowText[32] = "";
    const std::time_t now = systemClock().wallTime();
    std::tm local{};
    ::localtime_r(&now, &local);
    std::strftime(nowText, sizeof nowText, "%H:%M:%S %m/%d/%Y", &local);
    DEBUGMSG("EXHAUSTION will occur within %s\tfrom %s\n", shown(timeText), nowText);

    if (!eventSink->sendEvent(timeText, seconds, name, instanceOrNull(instance), culprit))
        return 0;
    keepEventLog();
    return 1;
}

std::int32_t sendUpperToleranceEvent(const char* name, const char* instance, double limit) {
    return eventSink != nullptr && eventSink->sendUpperToleranceEvent(name, instanceOrNull(instance), limit)
               ? 1
               : 0;
}

std::int32_t sendInnerToleranceEvent(const char* name, const char* instance, double limit) {
    return eventSink != nullptr && eventSink->sendInnerToleranceEvent(name, instanceOrNull(instance), limit)
               ? 1
               : 0;
}

} // namespace obrin
