// The trace file of the network interface layer. One file per process, shared by every thread
// (and by the security layer above); a mutex keeps lines whole.
#include <atomic>
#include <cstdarg>
#include <mutex>

#include "base/clock.h"
#include "base/fileops.h"
#include "base/ni.h"
#include "base/sync.h"
#include "base/text.h"

namespace vx {

namespace {

constexpr int kLowestLevel = 1;
constexpr int kHighestLevel = 3;

struct TraceFile {
    std::mutex mutex;
    StreamPtr stream;
    std::atomic<int> level{kHighestLevel};
};

TraceFile& TheTraceFile() {
    static TraceFile file;
    return file;
}

int ClampLevel(int level) {
    if (level < kLowestLevel) return kLowestLevel;
    return level > kHighestLevel ? kHighestLevel : level;
}

}  // namespace

void NiSetTraceLevel(int level) {
    TheTraceFile().level = ClampLevel(level);
}

int NiGetTraceLevel() {
    return TheTraceFile().level;
}

int NiTraceOpen(const char* path, int flag, int level) {
    if (path == nullptr || path[0] == '\0') return -1;
    TraceFile& file = TheTraceFile();
    NiSetTraceLevel(level);
    std::lock_guard<std::mutex> hold(file.mutex);
    file.stream.reset(FsOpenStream(path, flag == kNiTraceAppend ? "a" : "w"));
    return file.stream != nullptr ? 0 : -1;
}

void NiTraceClose() {
    TraceFile& file = TheTraceFile();
    std::lock_guard<std::mutex> hold(file.mutex);
    file.stream.reset();
}

bool NiTraceIsOpen() {
    TraceFile& file = TheTraceFile();
    std::lock_guard<std::mutex> hold(file.mutex);
    return file.stream != nullptr;
}

void NiTraceWrite(int level, const char* fmt, ...) {
    TraceFile& file = TheTraceFile();
    if (level > file.level) return;
    std::lock_guard<std::mutex> hold(file.mutex);
    if (file.stream == nullptr) return;
    LocalDateTime now{};
    GetLocalDateTime(&now);
    char line[1024];
    size_t used = FormatText(line, sizeof line, "Th %5.5u: (%02d.%02d.%04d %02d:%02d:%02d.%03d) ",
                             static_cast<unsigned>(CurrentThreadId()), now.day, now.month, now.year,
                             now.hour, now.minute, now.second, now.millisecond);
    va_list args;
    va_start(args, fmt);
    FormatTextV(line + used, sizeof line - used, fmt, args);
    va_end(args);
    fputs(line, file.stream.get());
    fputc('\n', file.stream.get());
    fflush(file.stream.get());
}

}  // namespace vx
