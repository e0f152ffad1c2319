// Process-wide state that several threads write and the main loop reads: why the server stops,
// and how many jobs it has taken over since start.
#pragma once

#include <atomic>
#include <cstdint>

namespace vx {

enum StopReasonValue {
    kStopNone = 0,
    kStopDeviceContext = 1,    // no device context could be created: restart
    kStopProtocol = 2,         // protocol violation: restart
    kStopScheduled = 3,        // RestartAfterJobs exceeded: restart
    kStopFromScm = 4,          // stop or shutdown request: orderly stop
    kStopConnectionThread = 5  // a connection thread could not start: restart
};

// The last writer wins: a later reason overwrites an earlier one.
extern std::atomic<int32_t> g_StopReason;
extern std::atomic<int32_t> g_ProcessedJobs;

// Sets the stop reason and, at the first request, notes when it came: the end of the service gives
// the connections still open a grace period counted from there. Lock-free, so that a signal
// handler may call it. kStopNone clears both.
void RequestStop(int32_t reason);
// The tick (TickCountMs) of the first stop request; 0 while none came.
uint64_t StopRequestedAtMs();

}  // namespace vx
