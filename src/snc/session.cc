#include "snc/session.h"

#include <cstdarg>

#include "snc/trace.h"

namespace vx::snc {

void ClearErrorLines(ErrorLines* errors) {
    errors->count = 0;
}

void AddErrorLine(ErrorLines* errors, const char* format, ...) {
    if (errors->count >= kMaxErrorLines) return;
    va_list args;
    va_start(args, format);
    FormatTextV(errors->lines[errors->count], SNC_ERROR_LINE_MAX, format, args);
    va_end(args);
    ++errors->count;
}

const char* FirstErrorLine(const ErrorLines& errors) {
    return errors.count > 0 ? errors.lines[0] : "no detail";
}

void TraceErrorLines(const char* what, const ErrorLines& errors) {
    TraceLine("%s: %s", what, FirstErrorLine(errors));
    for (int i = 1; i < errors.count; ++i) TraceLine("  %s", errors.lines[i]);
}

}  // namespace vx::snc
