// Which kind of data a queued job holds, told from its first bytes the way the service tells it
// for PrintFile: the print-library marker (ESC "%ZELWIN"), else "%PDF" (or "XTG" at the very
// start), else raw. Both markers count in single-byte and in UTF-16LE form.
#pragma once

#include <cstddef>

namespace zel {

// How many leading bytes are looked at.
constexpr size_t kStreamProbeSize = 999;

// ZEL_STREAM_* for the first bytes of a job; *wide is 1 when the marker was found only in its
// UTF-16LE form.
int StreamTypeOf(const unsigned char* data, size_t size, int* wide);

// The same for a file; -1 when the file cannot be read.
int StreamTypeOfFile(const char* path, int* wide);

}  // namespace zel
