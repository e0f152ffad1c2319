// The checksum a sender may give with a data block: the sum of the block's decoded bytes, of which
// the low 15 bits count. A checksum of 0 is never checked.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// Adds data to a running sum (start with 0).
inline uint32_t AddToBlockSum(uint32_t sum, const uint8_t* data, size_t length) {
    for (size_t i = 0; i < length; ++i) sum += data[i];
    return sum;
}

inline uint32_t BlockChecksum(uint32_t sum) {
    return sum & 0x7FFFu;
}

}  // namespace vx
