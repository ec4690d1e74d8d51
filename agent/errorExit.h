#pragma once

namespace obrin {

/// Tells Java of a condition of the given type (always "fatal") through sendEvent, with the value 0.0, the
/// message as the name and no further text. It ends nothing, despite its name. Agent thread only.
void error_exit(const char* eventType, const char* message);

} // namespace obrin
