// Events go to the Windows event log; the source's message table words them.
#include "base/eventlog.h"

#include <windows.h>

namespace vx {

namespace {
// Deregisters the event source on every way out.
class EventSource {
  public:
    explicit EventSource(const char* name) : handle_(RegisterEventSourceA(nullptr, name)) {}
    ~EventSource() {
        if (handle_ != nullptr) DeregisterEventSource(handle_);
    }
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;
    HANDLE Get() const { return handle_; }

  private:
    HANDLE handle_;
};
}  // namespace

int ReportSystemEvent(const char* source, EventType type, uint16_t category, uint32_t eventId,
                      const char* insert1, const char* insert2, const char* /*plainText*/) {
    if (source == nullptr) return -1;
    EventSource eventSource(source);
    if (eventSource.Get() == nullptr) return -1;
    const char* strings[2] = {insert1 != nullptr ? insert1 : "", insert2 != nullptr ? insert2 : ""};
    // The event types are the system's own values (error 1, warning 2, information 4).
    BOOL reported = ReportEventA(eventSource.Get(), static_cast<WORD>(type), category, eventId,
                                 nullptr, 2, 0, strings, nullptr);
    return reported ? 0 : -1;
}

}  // namespace vx
