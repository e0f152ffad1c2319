// Process-wide locks that are not tied to one object.
#pragma once

#include "base/sync.h"

namespace vx {

// Guards renaming and naming of files that several threads may touch (trace files moved aside,
// temporary job files).
RecursiveLock& ProcessFileLock();

}  // namespace vx
