#include "net/security_state.h"

namespace vx {

std::atomic<int32_t> g_SecurityState{0};

}  // namespace vx
