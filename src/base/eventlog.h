// The system event log: the Windows event log (source with a message table) or syslog.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

enum EventType { kEventError = 1, kEventWarning = 2, kEventInformation = 4 };

// The one event the service reports: "Error in %1 occurred: %2".
constexpr uint32_t kEventIdApiError = 0xC0020100u;

// The text of an event as the service's message table words it: kEventIdApiError gives
// "Error in <insert1> occurred: <insert2>", any other id the two strings joined by ": ".
// Used where the system log has no message table (syslog). Cut at cap.
void EventMessageText(uint32_t eventId, const char* insert1, const char* insert2, char* out,
                      size_t cap);

// Reports one event under the given source with two insertion strings. 0 or -1.
int ReportSystemEvent(const char* source, EventType type, uint16_t category, uint32_t eventId,
                      const char* insert1, const char* insert2);

}  // namespace vx
