#include "printserver/process_locks.h"

namespace vx {

RecursiveLock& ProcessFileLock() {
    static RecursiveLock lock;
    return lock;
}

}  // namespace vx
