// The service's events in the system log: their ids (the message table's) and their wording
// where the log carries plain text.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/eventlog.h"

namespace vx {

// The event source the service reports under.
constexpr const char* kServiceEventSource = "vorlix";

// The one event the service reports: "Error in %1 occurred: %2".
constexpr uint32_t kEventIdApiError = 0xC0020100u;

// The text of an event as the service's message table words it: kEventIdApiError gives
// "Error in <insert1> occurred: <insert2>", any other id the two strings joined by ": ".
// Cut at cap.
void EventMessageText(uint32_t eventId, const char* insert1, const char* insert2, char* out,
                      size_t cap);

// Reports one of the service's events under its source. 0 or -1.
int ReportServiceEvent(EventType type, uint32_t eventId, const char* insert1, const char* insert2);

}  // namespace vx
