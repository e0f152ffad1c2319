// The calling thread's kernel id and plain sleeping.
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "base/sync.h"

namespace vx {

uint32_t CurrentThreadId() {
    return static_cast<uint32_t>(gettid());
}

void SleepUs(uint64_t us) {
    timespec left{static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000L};
    // A signal cuts the sleep short; sleep on for what remains.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void SleepMs(uint32_t ms) {
    SleepUs(static_cast<uint64_t>(ms) * 1000);
}

}  // namespace vx
