#include "printserver/service_events.h"

#include "base/text.h"

namespace vx {

void EventMessageText(uint32_t eventId, const char* insert1, const char* insert2, char* out,
                      size_t cap) {
    const char* first = insert1 != nullptr ? insert1 : "";
    const char* second = insert2 != nullptr ? insert2 : "";
    if (eventId == kEventIdApiError) {
        FormatText(out, cap, "Error in %s occurred: %s", first, second);
    } else {
        FormatText(out, cap, "%s: %s", first, second);
    }
}

int ReportServiceEvent(EventType type, uint32_t eventId, const char* insert1, const char* insert2) {
    char text[2048];
    EventMessageText(eventId, insert1, insert2, text, sizeof text);
    return ReportSystemEvent(kServiceEventSource, type, 0, eventId, insert1, insert2, text);
}

}  // namespace vx
