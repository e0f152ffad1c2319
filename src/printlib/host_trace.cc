#include "printlib/host_trace.h"

#include <cstdarg>

namespace zel {

namespace {

constexpr size_t kLineSize = 2048;

}  // namespace

void TraceLine(const ZelHost* host, int level, const char* format, ...) {
    if (host == nullptr || host->Trace == nullptr) return;
    char line[kLineSize];
    va_list args;
    va_start(args, format);
    vx::FormatTextV(line, sizeof line, format, args);
    va_end(args);
    host->Trace(host->context, level, line);
}

void TraceError(const ZelHost* host, const char* format, ...) {
    if (host == nullptr || host->Trace == nullptr) return;
    char line[kLineSize];
    size_t used = vx::CopyText(line, "Error: ");
    va_list args;
    va_start(args, format);
    vx::FormatTextV(line + used, sizeof line - used, format, args);
    va_end(args);
    host->Trace(host->context, kErrorLevel, line);
}

}  // namespace zel
