// The security state of the service, fixed at start by InitSecurity, and the process-wide values
// that go with it.
#pragma once

#include <atomic>
#include <cstdint>

namespace vx {

enum SecurityStateValue : int32_t {
    kSecurityRequired = 2,          // only secured sessions are served ("snc_mode" 2)
    kSecurityOffered = 1,           // secured sessions are offered ("snc_mode" 1)
    kSecurityUnused = 0,            // a product is there but not used, or "snc_mode" is invalid
    kSecurityNone = -1,             // no security product: connections are plain
    kSecurityRequiredMissing = -2,  // security is required but no product is installed
};

// Protection levels of a secured session: 1 authentication, 2 integrity, 3 privacy (sealed).
constexpr int32_t kQopPrivacy = 3;

extern std::atomic<int32_t> g_SecurityState;
// The least protection level a session is set up with ("snc_min_qop").
extern std::atomic<int32_t> g_SncMinQop;
// How many packets an unsecured session may send while security is required ("snc_cmdmax").
extern std::atomic<int32_t> g_SncCmdMax;
// 1 while a real security product is active; the highest protection level it gives then.
extern std::atomic<int32_t> g_SecurityAvailable;
extern std::atomic<int32_t> g_SncMaxQop;

}  // namespace vx
