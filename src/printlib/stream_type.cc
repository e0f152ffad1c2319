#include "printlib/stream_type.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "printlib/zelwin.h"

namespace zel {

namespace {

// The single-byte search ends at the first NUL, as a C string search would.
bool FindNarrow(const unsigned char* data, size_t size, const char* marker) {
    size_t length = strlen(marker);
    const void* nul = memchr(data, 0, size);
    size_t end =
        nul != nullptr ? static_cast<size_t>(static_cast<const unsigned char*>(nul) - data) : size;
    for (size_t i = 0; i + length <= end; ++i) {
        if (memcmp(data + i, marker, length) == 0) return true;
    }
    return false;
}

bool FindWide(const unsigned char* data, size_t size, const char* marker) {
    size_t length = strlen(marker);
    for (size_t i = 0; i + 2 * length <= size; ++i) {
        size_t k = 0;
        while (k < length && data[i + 2 * k] == static_cast<unsigned char>(marker[k]) &&
               data[i + 2 * k + 1] == 0) {
            ++k;
        }
        if (k == length) return true;
    }
    return false;
}

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};

}  // namespace

int StreamTypeOf(const unsigned char* data, size_t size, int* wide) {
    static const char kZelwinMarker[] = "\x1b%ZELWIN";
    *wide = 0;
    if (size > kStreamProbeSize) size = kStreamProbeSize;
    bool zelwin = FindNarrow(data, size, kZelwinMarker);
    if (!zelwin && FindWide(data, size, kZelwinMarker)) zelwin = true, *wide = 1;
    bool pdf = FindNarrow(data, size, "%PDF");
    if (!pdf && FindWide(data, size, "%PDF")) pdf = true, *wide = 1;
    if (!pdf) pdf = size >= 3 && memcmp(data, "XTG", 3) == 0;
    if (zelwin) return ZEL_STREAM_ZELWIN;
    return pdf ? ZEL_STREAM_PDF : ZEL_STREAM_RAW;
}

int StreamTypeOfFile(const char* path, int* wide) {
    *wide = 0;
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (file == nullptr) return -1;
    unsigned char head[kStreamProbeSize];
    size_t got = fread(head, 1, sizeof head, file.get());
    return StreamTypeOf(head, got, wide);
}

}  // namespace zel
