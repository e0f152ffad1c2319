#include "base/api_trace.h"

#include <atomic>
#include <cstdarg>

#include "base/text.h"

namespace vx {

namespace {
struct SinkSlot {
    ApiTraceSink sink;
    void* context;
};
std::atomic<SinkSlot*> g_slot{nullptr};
SinkSlot g_slots[2];
std::atomic<int> g_next{0};
}  // namespace

void SetApiTraceSink(ApiTraceSink sink, void* context) {
    if (sink == nullptr) {
        g_slot.store(nullptr);
        return;
    }
    // Two alternating slots: a reader that loaded the previous slot still sees consistent data.
    SinkSlot* slot = &g_slots[g_next.fetch_add(1) & 1];
    slot->sink = sink;
    slot->context = context;
    g_slot.store(slot);
}

void ApiTrace(const char* fmt, ...) {
    SinkSlot* slot = g_slot.load();
    if (slot == nullptr) return;
    char line[1024];
    va_list args;
    va_start(args, fmt);
    FormatTextV(line, sizeof line, fmt, args);
    va_end(args);
    slot->sink(slot->context, line);
}

}  // namespace vx
