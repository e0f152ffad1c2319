// Auto-reset events over a mutex, a condition variable and a flag. Named events live in a
// process-wide table and are shared by name with a reference count, so that every creator of
// the same name gets the same event, as a named Win32 event would give.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <unordered_map>

#include "base/api_trace.h"
#include "base/sync.h"

namespace vx {

namespace {

struct EventRecord {
    std::mutex mutex;
    std::condition_variable wake;
    bool signaled = false;
    int references = 1;  // handles open on a named event; always 1 for an unnamed one
    std::string name;    // empty for an unnamed event
};

struct NamedEvents {
    std::mutex mutex;
    std::unordered_map<std::string, EventRecord*> byName;
};

NamedEvents& TheNamedEvents() {
    // Never destroyed: threads may still close events while the process exits.
    static NamedEvents* table = new NamedEvents;
    return *table;
}

EventRecord* CreateRecord(const char* name) {
    // An empty name makes an unnamed event, as on Windows.
    if (name == nullptr || name[0] == '\0') return new EventRecord;
    NamedEvents& table = TheNamedEvents();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = table.byName.find(name);
    if (found != table.byName.end()) {
        ++found->second->references;
        return found->second;
    }
    auto* record = new EventRecord;
    record->name = name;
    table.byName.emplace(record->name, record);
    return record;
}

// Drops one reference; the record goes when the last handle is closed.
void ReleaseRecord(EventRecord* record) {
    if (!record->name.empty()) {
        NamedEvents& table = TheNamedEvents();
        std::lock_guard<std::mutex> hold(table.mutex);
        if (--record->references > 0) return;
        table.byName.erase(record->name);
    }
    delete record;
}

}  // namespace

EventHandle EvCreate(const char* name) {
    EventRecord* record = CreateRecord(name);
    ApiTrace("CreateEvent(..,%s) = %p\n", name != nullptr ? name : "NULL",
             static_cast<void*>(record));
    return record;
}

int EvSet(EventHandle event) {
    ApiTrace("SetEvent(%p)\n", event);
    if (event == nullptr) return -1;
    auto* record = static_cast<EventRecord*>(event);
    std::lock_guard<std::mutex> hold(record->mutex);
    record->signaled = true;
    // Auto-reset: one set releases one waiter, so one wake-up is enough. Notified under the lock:
    // a waiter that wakes may close the event at once, and must not find it still in use here.
    record->wake.notify_one();
    return 0;
}

WaitResult EvWait(EventHandle event, uint32_t timeoutMs) {
    ApiTrace("WaitForSingleObject(%p)\n", event);
    if (event == nullptr) return kWaitFailed;
    auto* record = static_cast<EventRecord*>(event);
    std::unique_lock<std::mutex> hold(record->mutex);
    auto isSet = [record] { return record->signaled; };
    if (timeoutMs == kWaitInfinite) {
        record->wake.wait(hold, isSet);
    } else if (!record->wake.wait_for(hold, std::chrono::milliseconds(timeoutMs), isSet)) {
        return kWaitTimeout;
    }
    record->signaled = false;
    return kWaitSignaled;
}

int EvClose(EventHandle event) {
    ApiTrace("CloseHandle(%p)\n", event);
    if (event == nullptr) return -1;
    ReleaseRecord(static_cast<EventRecord*>(event));
    return 0;
}

}  // namespace vx
