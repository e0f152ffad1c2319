#include "snc/trace.h"

#include <cstdarg>
#include <mutex>

namespace vx::snc {

namespace {

constexpr size_t kTraceLineSize = 1024;

// Sessions on several threads trace at once while the service may swap the writer.
std::mutex g_traceLock;
SncTraceWriter g_writer = nullptr;
void* g_context = nullptr;

}  // namespace

void SetTraceWriter(SncTraceWriter writer, void* context) {
    std::lock_guard<std::mutex> hold(g_traceLock);
    g_writer = writer;
    g_context = context;
}

void TraceLine(const char* format, ...) {
    char line[kTraceLineSize];
    size_t length = CopyText(line, "vorlixsnc: ");
    va_list args;
    va_start(args, format);
    FormatTextV(line + length, sizeof line - length, format, args);
    va_end(args);
    std::lock_guard<std::mutex> hold(g_traceLock);
    if (g_writer != nullptr) g_writer(g_context, line);
}

}  // namespace vx::snc
