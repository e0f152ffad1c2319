// Tracked heap blocks and the memory report: every block of the service can be followed in the
// trace by its tag, source file and line.
#include <cstdlib>
#include <cstring>

#include "base/process.h"
#include "printserver/zelprsrv.h"

namespace vx {

void* Czelprsrv::TrackedAlloc(size_t size, const char* file, int line, const char* tag,
                              int always) {
    // Zeroed by calloc: a large block taken fresh from the system is zero already, so its pages
    // stay untouched (and out of the resident set) until they are used.
    void* block = calloc(1, size == 0 ? 1 : size);
    bool traced =
        (always != 0 && logLevel_ >= 1) || (always == 0 && memoryLog_ != 0 && logLevel_ >= 9);
    if (traced) {
        int level = always != 0 ? kTraceNormal : kTraceDetail;
        if (tag != nullptr)
            Trace(level, "malloc %p (%s) of size %i in file %s in line %i\n", block, tag,
                  static_cast<int>(size), file, line);
        else
            Trace(level, "malloc %p of size %i in file %s in line %i\n", block,
                  static_cast<int>(size), file, line);
    }
    if (block == nullptr) {
        ReportLastError("malloc", 1);
        TraceError("Out of memory: %s failed.\n", "malloc");
        return nullptr;
    }
    return block;
}

void Czelprsrv::TrackedFree(void* block, const char* file, int line, const char* tag, int always) {
    bool traced =
        (always != 0 && logLevel_ >= 1) || (always == 0 && memoryLog_ != 0 && logLevel_ >= 9);
    if (traced) {
        int level = always != 0 ? kTraceNormal : kTraceDetail;
        if (tag != nullptr)
            Trace(level, "free %p (%s) in file %s in line %i\n", block, tag, file, line);
        else
            Trace(level, "free %p in file %s in line %i\n", block, file, line);
    }
    free(block);
}

void Czelprsrv::ReportMemoryUsage(int jobCount, uint32_t listBytes) {
    if (memoryLog_ == 0) return;
    ProcessMemory mem;
    if (GetProcessMemory(&mem) != 0) return;
    if (jobCount == 0)
        Trace(kTraceNormal, "Initial memory usage\n");
    else if (jobCount == 1)
        Trace(kTraceNormal, "Last memory usage\n");
    else if (jobCount >= 2)
        Trace(kTraceNormal, "Memory usage after %d jobs\n", jobCount);
    if (jobCount >= 0) Trace(kTraceNormal, "\n");
    // Kilobytes of 1000 bytes, as the counters have always been shown.
    Trace(kTraceNormal, "\tAllocated list memory: %u K\n", listBytes / 1000u);
    Trace(kTraceNormal, "\tPeakWorkingSetSize: %u K\n",
          static_cast<unsigned>(mem.peakWorkingSet / 1000u));
    Trace(kTraceNormal, "\tWorkingSetSize: %u K\n", static_cast<unsigned>(mem.workingSet / 1000u));
    Trace(kTraceNormal, "\tPagefileUsage: %u K\n",
          static_cast<unsigned>(mem.pagefileUsage / 1000u));
    Trace(kTraceNormal, "\n");
}

}  // namespace vx
