// Time from clock_gettime: CLOCK_MONOTONIC for ticks and the counter, the wall clock for the
// local date and time.
#include "base/clock.h"

#include <ctime>

namespace vx {

namespace {
uint64_t MonotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}
}  // namespace

uint64_t TickCountMs() {
    return MonotonicNanoseconds() / 1000000u;
}

uint64_t TickCountUs() {
    return MonotonicNanoseconds() / 1000u;
}

uint64_t HighResCounter() {
    return MonotonicNanoseconds();
}

uint64_t HighResFrequency() {
    return 1000000000u;
}

int GetLocalDateTime(LocalDateTime* out) {
    if (out == nullptr) return -1;
    *out = LocalDateTime{};
    timespec now{};
    tm local{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0 || localtime_r(&now.tv_sec, &local) == nullptr)
        return -1;
    out->year = local.tm_year + 1900;
    out->month = local.tm_mon + 1;
    out->day = local.tm_mday;
    out->hour = local.tm_hour;
    out->minute = local.tm_min;
    // A leap second shows as 60 in struct tm; the pictures know only 0..59.
    out->second = local.tm_sec > 59 ? 59 : local.tm_sec;
    out->millisecond = static_cast<int>(now.tv_nsec / 1000000);
    return 0;
}

}  // namespace vx
