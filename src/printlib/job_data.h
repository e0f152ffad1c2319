// A job's data file read in pieces and passed on as many times as copies are wanted, so that
// jobs of any size print without being held in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace zel {

// The size of the pieces read and sent.
constexpr size_t kJobChunkSize = 64 * 1024;

// Takes one piece; 0 to go on, nonzero to stop (error then says why).
using ChunkWriter = int (*)(void* context, const void* data, size_t size, char* error,
                            size_t errorSize);

// Sends the whole file copies times through write, reading from the start for every copy.
// 0 when every copy went out; -1 with error set otherwise. *sent counts the bytes passed on.
int SendCopies(FILE* file, const char* fileName, int copies, ChunkWriter write, void* context,
               int64_t* sent, char* error, size_t errorSize);

}  // namespace zel
