#include "config/process_state.h"

namespace vx {

std::atomic<int32_t> g_StopReason{kStopNone};
std::atomic<int32_t> g_ProcessedJobs{0};

}  // namespace vx
