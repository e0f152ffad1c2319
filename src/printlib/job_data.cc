#include "printlib/job_data.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include "base/text.h"

namespace zel {

int SendCopies(FILE* file, const char* fileName, int copies, ChunkWriter write, void* context,
               int64_t* sent, char* error, size_t errorSize) {
    *sent = 0;
    std::unique_ptr<char[]> buffer(new char[kJobChunkSize]);
    for (int copy = 0; copy < copies; ++copy) {
        if (fseek(file, 0, SEEK_SET) != 0) {
            vx::FormatText(error, errorSize, "fseek failed for file %s: %s", fileName,
                           strerror(errno));
            return -1;
        }
        for (;;) {
            size_t got = fread(buffer.get(), 1, kJobChunkSize, file);
            if (got > 0) {
                if (write(context, buffer.get(), got, error, errorSize) != 0) return -1;
                *sent += static_cast<int64_t>(got);
            }
            if (got < kJobChunkSize) {
                if (ferror(file)) {
                    vx::FormatText(error, errorSize, "fread failed for file %s: %s", fileName,
                                   strerror(errno));
                    return -1;
                }
                break;
            }
        }
    }
    return 0;
}

}  // namespace zel
