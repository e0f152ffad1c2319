// The data of one job: a file, or standard input for "-". Closed when the record goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "base/fileops.h"
#include "tools/send_result.h"

namespace vx {

struct JobInput {
    StreamPtr file;            // an opened file; null for standard input
    FILE* stream = nullptr;    // what is read: the file or stdin
    int64_t size = -1;         // -1 when not known beforehand (standard input)
    char name[kMaxPath] = {};  // the file's name without its directory ("stdin" for "-")
};

// Opens path ("-": standard input, switched to binary reads). 0, or -1 with kExitNoInput.
int OpenJobInput(const char* path, JobInput* input, SendResult* result);

// Reads up to length bytes; the count, 0 at the end, -1 on a read error (recorded).
long ReadJobInput(JobInput& input, void* buffer, size_t length, SendResult* result);

// Reads what is left into *data (for LPD, which announces the size before the bytes).
int ReadAllJobInput(JobInput& input, std::vector<uint8_t>* data, SendResult* result);

}  // namespace vx
