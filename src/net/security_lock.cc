#include "net/security_lock.h"

namespace vx {

RecursiveLock& SecurityLock() {
    static RecursiveLock lock;
    return lock;
}

}  // namespace vx
