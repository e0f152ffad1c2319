// K1 scrambling of the extended protocol's data blocks. The service makes a key per session and
// tells it to the sender; each block is scrambled from the key's low two bytes afresh, every byte
// changing the mask for the next one, so a block unscrambles only from its first byte on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// A new session key from the C library's generator seeded with seed (the current time):
// the first draw in the high half, the low 16 bits of the second in the low half.
uint32_t MakeScrambleKey(uint32_t seed);

// Unscrambles a block in place: with k the key's low byte and k2 its second byte, each byte b
// becomes b ^ k, then k becomes k ^ b ^ k2 with the unscrambled b.
void UnscrambleBlock(uint32_t key, uint8_t* data, size_t length);

// The sender's side: the inverse of UnscrambleBlock.
void ScrambleBlock(uint32_t key, uint8_t* data, size_t length);

}  // namespace vx
