#include "snc/session.h"

#include <cstdarg>

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

}  // namespace vx::snc
