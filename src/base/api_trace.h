// The platform layer echoes some OS calls (events) to the API trace log. The print-server
// object installs the sink at construction; until then, or without an API log, the lines go
// nowhere.
#pragma once

namespace vx {

using ApiTraceSink = void (*)(void* context, const char* line);

void SetApiTraceSink(ApiTraceSink sink, void* context);

// Formats one API trace line (ending in "\n") and hands it to the sink, if any.
void ApiTrace(const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

}  // namespace vx
