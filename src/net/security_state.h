// The security state of the service, as the security layer sets it at start: 0 no security
// product, 1 security available, 2 security required, -2 required but not available.
#pragma once

#include <atomic>
#include <cstdint>

namespace vx {

enum SecurityStateValue : int32_t {
    kSecurityRequired = 2,          // only secured sessions are served
    kSecurityRequiredMissing = -2,  // security is required but no product is installed
};

extern std::atomic<int32_t> g_SecurityState;

}  // namespace vx
