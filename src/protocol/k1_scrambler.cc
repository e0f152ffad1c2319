#include "protocol/k1_scrambler.h"

#include <cstdlib>

namespace vx {

uint32_t MakeScrambleKey(uint32_t seed) {
    srand(seed);
    uint32_t high = static_cast<uint32_t>(rand());
    uint32_t low = static_cast<uint32_t>(rand());
    return (high << 16) | (low & 0xFFFFu);
}

void UnscrambleBlock(uint32_t key, uint8_t* data, size_t length) {
    uint8_t k = static_cast<uint8_t>(key & 0xFFu);
    const uint8_t k2 = static_cast<uint8_t>((key >> 8) & 0xFFu);
    for (size_t i = 0; i < length; ++i) {
        data[i] ^= k;
        k = static_cast<uint8_t>(k ^ data[i] ^ k2);
    }
}

void ScrambleBlock(uint32_t key, uint8_t* data, size_t length) {
    uint8_t k = static_cast<uint8_t>(key & 0xFFu);
    const uint8_t k2 = static_cast<uint8_t>((key >> 8) & 0xFFu);
    for (size_t i = 0; i < length; ++i) {
        uint8_t plain = data[i];
        data[i] = static_cast<uint8_t>(plain ^ k);
        k = static_cast<uint8_t>(k ^ plain ^ k2);
    }
}

}  // namespace vx
