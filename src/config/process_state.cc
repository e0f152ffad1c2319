#include "config/process_state.h"

#include "base/clock.h"

namespace vx {

std::atomic<int32_t> g_StopReason{kStopNone};
std::atomic<int32_t> g_ProcessedJobs{0};

namespace {

std::atomic<uint64_t> g_stopRequestedAtMs{0};

}  // namespace

void RequestStop(int32_t reason) {
    if (reason == kStopNone) {
        // Running again (a test's next case): the next request is a first one.
        g_StopReason = kStopNone;
        g_stopRequestedAtMs = 0;
        return;
    }
    uint64_t none = 0;
    // A tick of 0 would read as "no request": the first millisecond counts as the next.
    uint64_t now = TickCountMs();
    g_stopRequestedAtMs.compare_exchange_strong(none, now == 0 ? 1 : now);
    g_StopReason = reason;
}

uint64_t StopRequestedAtMs() {
    return g_stopRequestedAtMs;
}

}  // namespace vx
