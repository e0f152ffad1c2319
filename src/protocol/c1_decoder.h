// The C1 byte-run code of the extended protocol's data blocks. A code byte 0 is followed by a
// count n and a value (n copies of the value); 3 to 9 is itself the count, followed by the value;
// 1 is followed by one byte taken as it is; 2 by a count n and a pair a, b (n repetitions of the
// pair); every byte from 10 up stands for itself.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// The most bytes one code produces (code 2 with count 255): an output buffer at least this large
// always takes the next code.
constexpr size_t kC1LongestRun = 510;

// Decodes in[0..inLength) into out[0..outSize). *consumed receives the input bytes taken, *produced
// the output bytes made. kBlockDone when the input is used up, kBlockOutputFull when the next code
// does not fit (call again with the rest), kBlockMalformed when the input ends inside a code.
int DecodeC1(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize, size_t* consumed,
             size_t* produced);

}  // namespace vx
