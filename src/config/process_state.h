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

}  // namespace vx
