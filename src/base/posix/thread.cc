// The calling thread's kernel id and plain sleeping.
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "base/sync.h"

namespace vx {

uint32_t CurrentThreadId() {
    return static_cast<uint32_t>(gettid());
}

void SleepMs(uint32_t ms) {
    timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    // A signal cuts the sleep short; sleep on for what remains.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace vx
