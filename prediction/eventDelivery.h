#pragma once

#include <cstdint>

namespace obrin {

/// Who is told of events: Java while the agent runs. Texts may be absent (null) and hold any bytes. A sink
/// that cannot deliver answers false or zero; it never throws. Agent thread only.
class EventSink {
public:
    virtual ~EventSink() = default;

    /// Number that tells the events' side which system it serves; asked for before every event.
    virtual std::int32_t getOs_support() = 0;
    /// Time of the previous event in seconds since the epoch; 0 when none.
    virtual std::int64_t getPrev_time() = 0;
    /// Seconds to exhaustion that the previous event announced; 0.0 when none.
    virtual double getPrev_tte() = 0;

    /// True when the event was accepted. `seconds`: time to exhaustion.
    virtual bool sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                           const char* culprit) = 0;

    /// A resource has reached its limit (per cent). True when the event was accepted.
    virtual bool sendUpperToleranceEvent(const char* name, const char* instance, double limit) = 0;
    virtual bool sendInnerToleranceEvent(const char* name, const char* instance, double limit) = 0;
};

/// Sets the one sink of the process; null means "nobody": every event is then refused. The sink outlives its
/// use.
void setEventSink(EventSink* sink);

/// Delivers one event: logs it, asks for the previous event, hands it over. An absent instance goes out as
/// "Null". When it is accepted, the log that led up to it is kept as the event log. 1 accepted, 0 refused.
std::int32_t sendEvent(const char* timeText, double seconds, const char* name, const char* instance,
                       const char* culprit);

/// Deliver that a resource has reached a limit (per cent). An absent instance goes out as "Null". 1 accepted,
/// 0 refused.
std::int32_t sendUpperToleranceEvent(const char* name, const char* instance, double limit);
std::int32_t sendInnerToleranceEvent(const char* name, const char* instance, double limit);

} // namespace obrin
