// The compression library's own trace file, "cstrace.trc" in the trace directory: one line per
// C2 block decompressed, written only at trace level 9 and above (it costs a write per block).
#pragma once

#include <cstddef>

namespace vx {

// "CsRDecompress: <in> Bytes -> <out> Bytes, rc = <rc>" for one block.
void TraceDecompression(size_t in, size_t out, int rc);

}  // namespace vx
