// Unscrambles a data block with a key from the first four bytes, as a K1 session does, and checks
// that the sender's scrambling inverts it byte for byte.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "protocol/k1_scrambler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    uint32_t key = 0;
    memcpy(&key, data, sizeof key);
    std::vector<uint8_t> block(data + 4, data + size);
    vx::UnscrambleBlock(key, block.data(), block.size());
    vx::ScrambleBlock(key, block.data(), block.size());
    if (!std::equal(block.begin(), block.end(), data + 4)) __builtin_trap();
    return 0;
}
