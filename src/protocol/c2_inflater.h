// C2 data blocks: each block is one complete raw deflate stream (RFC 1951), inflated with zlib.
// A block is set up once and inflated in as many calls as its output needs: a call that fills the
// output buffer returns kBlockOutputFull and the next call goes on where it stopped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vx {

struct C2Block;  // the inflate state of one block
struct C2BlockDeleter {
    void operator()(C2Block* block) const;
};
using C2BlockPtr = std::unique_ptr<C2Block, C2BlockDeleter>;

// Sets up the inflation of in[0..inLength), which must stay unchanged until the block is done.
// Null when zlib could not be set up (kBlockNoDecoder).
C2BlockPtr BeginC2Block(const uint8_t* in, size_t inLength);

// Inflates the next part of the block into out[0..outSize); *produced receives the bytes made.
// kBlockDone once the stream ended with the block's last byte, kBlockOutputFull when out is full
// and more may follow, a negative zlib code when the block is not one whole deflate stream
// (corrupt, cut off, or followed by further bytes).
int InflateC2Block(C2Block& block, uint8_t* out, size_t outSize, size_t* produced);

}  // namespace vx
