#include "agent/errorExit.h"

#include "prediction/eventDelivery.h"

namespace obrin {

void error_exit(const char* eventType, const char* message) {
    sendEvent(eventType, 0.0, message, nullptr, nullptr);
}

} // namespace obrin
