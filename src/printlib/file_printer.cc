#include "printlib/file_printer.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "base/dirpath.h"
#include "base/fileops.h"
#include "base/sync.h"
#include "base/text.h"
#include "printlib/job_data.h"

namespace zel {

namespace {

// More files of one job id than this in one directory means something is wrong.
constexpr int kMaxNumber = 100000;
// Room left for "_<n>" and the extension when the id is cut.
constexpr size_t kMaxStem = 200;

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};

int WriteChunk(void* context, const void* data, size_t size, char* error, size_t errorSize) {
    if (fwrite(data, 1, size, static_cast<FILE*>(context)) != size) {
        vx::FormatText(error, errorSize, "fwrite failed: %s", strerror(errno));
        return -1;
    }
    return 0;
}

bool IsForbidden(unsigned char c) {
    return c < 0x20 || c == 0x7F || strchr("/\\:*?\"<>|", c) != nullptr;
}

// A name of this process's own, for the file while it is being written.
void TemporaryName(const char* directory, char* out, size_t size) {
    static std::atomic<uint32_t> counter{0};
    vx::FormatText(out, size, "%szelwin_%u_%u.part", directory, vx::CurrentThreadId(),
                   counter.fetch_add(1) + 1);
}

// Renames the finished file to the first free "<stem>_<n><extension>".
int MoveToFreeName(const char* temporary, const char* directory, const char* stem,
                   const char* extension, char* path, size_t pathSize, char* error,
                   size_t errorSize) {
    for (int n = 1; n <= kMaxNumber; ++n) {
        vx::FormatText(path, pathSize, "%s%s_%d%s", directory, stem, n, extension);
        if (vx::FsRename(temporary, path) == 0) return 0;
        // The rename refuses an existing name; any other failure will not go away.
        if (!vx::FsExists(path)) {
            vx::FormatText(error, errorSize, "rename to %s failed: %s", path, strerror(errno));
            return -1;
        }
    }
    vx::FormatText(error, errorSize, "no free file name for %s in %s", stem, directory);
    return -1;
}

}  // namespace

void SafeFileName(const char* text, char* out, size_t size) {
    if (size == 0) return;
    size_t n = 0;
    for (const char* p = text != nullptr ? text : ""; *p != '\0' && n + 1 < size; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        out[n] = (IsForbidden(c) || (n == 0 && c == '.')) ? '_' : static_cast<char>(c);
        ++n;
    }
    out[n] = '\0';
    if (n == 0) vx::CopyText(out, size, "job");
}

int WriteToFilePrinter(const char* outputDirectory, const char* jobId, const char* extension,
                       FILE* data, const char* fileName, int copies, char* path, size_t pathSize,
                       char* error, size_t errorSize) {
    char directory[vx::kMaxPath * 2];
    vx::CopyText(directory, outputDirectory);
    vx::AppendSeparator(directory, sizeof directory);
    if (directory[0] == '\0' || vx::MakeDirectoryPath(directory) != 0) {
        vx::FormatText(error, errorSize, "output directory \"%s\" cannot be created", directory);
        return -1;
    }
    char stem[kMaxStem];
    SafeFileName(jobId, stem, sizeof stem);

    char temporary[vx::kMaxPath * 2];
    TemporaryName(directory, temporary, sizeof temporary);
    {
        std::unique_ptr<FILE, FileCloser> out(fopen(temporary, "wb"));
        if (out == nullptr) {
            vx::FormatText(error, errorSize, "fopen failed for %s: %s", temporary, strerror(errno));
            return -1;
        }
        int64_t sent = 0;
        int rc = SendCopies(data, fileName, copies, WriteChunk, out.get(), &sent, error, errorSize);
        if (rc == 0 && fflush(out.get()) != 0) {
            vx::FormatText(error, errorSize, "fflush failed for %s: %s", temporary,
                           strerror(errno));
            rc = -1;
        }
        if (rc != 0) {
            out.reset();
            vx::FsRemove(temporary);
            return -1;
        }
    }
    if (MoveToFreeName(temporary, directory, stem, extension, path, pathSize, error, errorSize) !=
        0) {
        vx::FsRemove(temporary);
        return -1;
    }
    return 0;
}

}  // namespace zel
