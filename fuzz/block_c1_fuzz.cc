// Feeds a C1 data block, as a sender transmits it, to the byte-run decoder through an output
// buffer whose size the first byte chooses (from the longest run up), calling again while the
// buffer fills, as the session does. The decoder must stay inside its buffers and make progress.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "protocol/block_result.h"
#include "protocol/c1_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    size_t outSize = vx::kC1LongestRun + data[0] * 7;
    std::vector<uint8_t> out(outSize);
    const uint8_t* in = data + 1;
    size_t left = size - 1;
    for (;;) {
        size_t consumed = 0;
        size_t produced = 0;
        int rc = vx::DecodeC1(in, left, out.data(), out.size(), &consumed, &produced);
        if (consumed > left || produced > out.size()) __builtin_trap();
        if (rc != vx::kBlockOutputFull) break;
        if (consumed == 0) __builtin_trap();  // a fresh buffer always takes the next run
        in += consumed;
        left -= consumed;
    }
    return 0;
}
