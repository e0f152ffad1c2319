// Results of the data-block decoders of the extended protocol: a block is decoded into the
// session's output buffer in one or more calls.
#pragma once

namespace vx {

enum BlockResult {
    kBlockDone = 0,          // the whole block is decoded
    kBlockOutputFull = 2,    // the output buffer is full: write it out and call again for the rest
    kBlockMalformed = -1,    // the block breaks its code (cut off inside a code, or not that code)
    kBlockNoDecoder = -400,  // the decompressor could not be set up
};

}  // namespace vx
