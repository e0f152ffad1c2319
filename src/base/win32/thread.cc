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

void SleepUs(uint64_t us) {
    Sleep(static_cast<DWORD>((us + 999) / 1000));
}

}  // namespace vx
