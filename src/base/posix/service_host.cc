#include "base/service_host.h"

namespace vx {

int RunServiceDispatcher(const char*, ServiceEntry entry) {
    entry();
    return 0;
}

}  // namespace vx
