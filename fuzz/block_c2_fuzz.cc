// Feeds a C2 data block, as a sender transmits it, to the raw-deflate inflater through an output
// buffer of the session's size, calling again while it fills. A block inflates to at most about
// a thousand times its size, so the calls end; the inflater must stay inside its buffers.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "protocol/block_result.h"
#include "protocol/c2_inflater.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kOutputSize = 30024;
    vx::C2BlockPtr block = vx::BeginC2Block(data, size);
    if (!block) __builtin_trap();
    std::vector<uint8_t> out(kOutputSize);
    size_t total = 0;
    for (;;) {
        size_t produced = 0;
        int rc = vx::InflateC2Block(*block, out.data(), out.size(), &produced);
        if (produced > out.size()) __builtin_trap();
        total += produced;
        if (rc != vx::kBlockOutputFull) break;
        if (total > 1100 * (size + 64)) __builtin_trap();  // beyond what deflate can expand to
    }
    return 0;
}
