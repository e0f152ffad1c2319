#include "tools/send_result.h"

#include <cstdarg>

#include "base/text.h"

namespace vx {

int Fail(SendResult* result, int exitCode, const char* fmt, ...) {
    if (result == nullptr || result->exitCode != kExitDelivered) return -1;
    result->exitCode = exitCode;
    va_list args;
    va_start(args, fmt);
    FormatTextV(result->reason, sizeof result->reason, fmt, args);
    va_end(args);
    return -1;
}

}  // namespace vx
