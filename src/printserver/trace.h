// Tracing for code that only traces: the levels, and Trace / TraceError, which write through the
// print-server object's trace log and do nothing while there is none.
#pragma once

#include <cstddef>

#include "base/text.h"

namespace vx {

// Trace levels used throughout the service.
enum TraceLevel {
    kTraceError = -1,
    kTraceBanner = 0,
    kTraceNormal = 1,
    kTraceNotable = 5,
    kTraceDetail = 9,
    kTraceData = 10,
};

constexpr size_t kTraceLineSize = 1024;

// "Th 04412: (14.11.2026 21:59:02) ": how every trace line begins, for the calling thread, now.
void FormatTracePrefix(char* out, size_t cap);

// Trace through the print-server object; nothing happens while there is none.
void Trace(int level, const char* fmt, ...) VX_PRINTF(2, 3);
void TraceError(const char* fmt, ...) VX_PRINTF(1, 2);

}  // namespace vx
