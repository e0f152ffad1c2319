#include "protocol/compression_trace.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "base/fileops.h"
#include "base/text.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr char kTraceFileName[] = "cstrace.trc";

// The open trace file and where it lies: a new trace directory opens a new file.
struct CompressionTraceFile {
    std::mutex lock;
    StreamPtr file;
    char path[kMaxPath] = {};
};

CompressionTraceFile& TraceFile() {
    static CompressionTraceFile* file = new CompressionTraceFile;
    return *file;
}

}  // namespace

void TraceDecompression(size_t in, size_t out, int rc) {
    Czelprsrv* prsrv = g_prsrv;
    if (prsrv == nullptr || !prsrv->TraceOn(kTraceDetail)) return;
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", prsrv->TempDirectory(), kTraceFileName);
    char prefix[64];
    FormatTracePrefix(prefix, sizeof prefix);

    CompressionTraceFile& trace = TraceFile();
    std::lock_guard<std::mutex> hold(trace.lock);
    if (trace.file == nullptr || strcmp(trace.path, path) != 0) {
        trace.file.reset(FsOpenStream(path, "a"));
        CopyText(trace.path, path);
        if (trace.file == nullptr) return;
    }
    fprintf(trace.file.get(), "%sCsRDecompress: %zu Bytes -> %zu Bytes, rc = %d\n", prefix, in, out,
            rc);
    fflush(trace.file.get());
}

}  // namespace vx
