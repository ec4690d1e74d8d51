#pragma once

#include "prediction/eventDelivery.h"

#include <string>
#include <vector>

namespace obrin::test {

/// An event sink that remembers what it was told, and is the process's sink for as long as it lives.
class RecordingSink : public EventSink {
public:
    struct Event {
        std::string timeText;
        double seconds;
        std::string name; ///< "<absent>" for a null text, as for the two below
        std::string instance;
        std::string culprit;
    };

    RecordingSink() { setEventSink(this); }
    ~RecordingSink() override { setEventSink(nullptr); }

    std::int32_t getOs_support() override { return 0; }
    std::int64_t getPrev_time() override { return 0; }
    double getPrev_tte() override { return 0.0; }
    bool sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                   const char* culprit) override {
        events.push_back({text(timeText), seconds, text(name), text(instance), text(culprit)});
        return accepts;
    }

    bool sendUpperToleranceEvent(const char* name, const char* instance, double limit) override {
        upperEvents.push_back({text(name), text(instance), limit});
        return accepts;
    }
    bool sendInnerToleranceEvent(const char* name, const char* instance, double limit) override {
        innerEvents.push_back({text(name), text(instance), limit});
        return accepts;
    }

    struct ToleranceEvent {
        std::string name;
        std::string instance;
        double limit;
    };
    std::vector<Event> events;
    std::vector<ToleranceEvent> upperEvents;
    std::vector<ToleranceEvent> innerEvents;
    bool accepts = false;

private:
    static std::string text(const char* text) { return text == nullptr ? "<absent>" : text; }
};

} // namespace obrin::test
