// The process-wide security lock: session creation and the short calls into the security library
// (error fetches, the end of a session) of all connections go through it one at a time.
#pragma once

#include "base/sync.h"

namespace vx {

RecursiveLock& SecurityLock();

}  // namespace vx
