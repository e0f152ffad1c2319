#include "net/security_state.h"

namespace vx {

std::atomic<int32_t> g_SecurityState{0};
std::atomic<int32_t> g_SncMinQop{kQopPrivacy};
std::atomic<int32_t> g_SncCmdMax{10};
std::atomic<int32_t> g_SecurityAvailable{0};
std::atomic<int32_t> g_SncMaxQop{0};

}  // namespace vx
