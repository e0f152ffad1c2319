// Auto-reset events: Win32 event objects; named ones are shared system-wide by the system.
#include <windows.h>

#include "base/api_trace.h"
#include "base/sync.h"

namespace vx {

EventHandle EvCreate(const char* name) {
    // An empty name makes an unnamed event.
    HANDLE event =
        CreateEventA(nullptr, FALSE, FALSE, name != nullptr && name[0] != '\0' ? name : nullptr);
    ApiTrace("CreateEvent(..,%s) = %p\n", name != nullptr ? name : "NULL",
             static_cast<void*>(event));
    return event;
}

int EvSet(EventHandle event) {
    ApiTrace("SetEvent(%p)\n", event);
    return SetEvent(event) ? 0 : -1;
}

WaitResult EvWait(EventHandle event, uint32_t timeoutMs) {
    ApiTrace("WaitForSingleObject(%p)\n", event);
    switch (WaitForSingleObject(event, timeoutMs)) {
        case WAIT_OBJECT_0:
            return kWaitSignaled;
        case WAIT_TIMEOUT:
            return kWaitTimeout;
        default:
            return kWaitFailed;
    }
}

int EvClose(EventHandle event) {
    ApiTrace("CloseHandle(%p)\n", event);
    return CloseHandle(event) ? 0 : -1;
}

}  // namespace vx
