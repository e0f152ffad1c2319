// The calling thread's id and plain sleeping.
#include <windows.h>

#include "base/sync.h"

namespace vx {

uint32_t CurrentThreadId() {
    return GetCurrentThreadId();
}

void SleepMs(uint32_t ms) {
    Sleep(ms);
}

}  // namespace vx
