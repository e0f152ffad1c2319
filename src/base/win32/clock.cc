// Time from the system: GetTickCount64, the performance counter and the local time.
#include "base/clock.h"

#include <windows.h>

namespace vx {

uint64_t TickCountMs() {
    return GetTickCount64();
}

uint64_t TickCountUs() {
    uint64_t count = HighResCounter();
    uint64_t frequency = HighResFrequency();
    // Split so that the counter times a million never overflows.
    return count / frequency * 1000000u + count % frequency * 1000000u / frequency;
}

uint64_t HighResCounter() {
    LARGE_INTEGER count{};
    QueryPerformanceCounter(&count);
    return static_cast<uint64_t>(count.QuadPart);
}

uint64_t HighResFrequency() {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return static_cast<uint64_t>(frequency.QuadPart);
}

int GetLocalDateTime(LocalDateTime* out) {
    if (out == nullptr) return -1;
    SYSTEMTIME now{};
    GetLocalTime(&now);
    out->year = now.wYear;
    out->month = now.wMonth;
    out->day = now.wDay;
    out->hour = now.wHour;
    out->minute = now.wMinute;
    out->second = now.wSecond;
    out->millisecond = now.wMilliseconds;
    return 0;
}

}  // namespace vx
