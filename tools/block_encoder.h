// The data blocks of an extended-protocol job as the sender makes them: the job's bytes cut into
// blocks, each compressed (C1 byte runs, or C2: one complete raw deflate stream per block), then
// scrambled (K1, from the session key afresh for every block), with the checksum of the block's
// original bytes. A block is never longer than the packet size the server announced, and never
// stands for more original bytes than that either: the server then decodes every block in one
// pass through its output buffer and always checks its checksum.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "tools/send_options.h"

namespace vx {

// Encodes C1 codes for in[0..inLength) into out[0..outSize) for as long as whole codes fit:
// runs of one byte (3 to 9 as "count value", longer as "0 count value"), repeated pairs as
// "2 count a b", bytes 0 to 9 as "1 byte", all other bytes as themselves. *consumed receives the
// input bytes taken, *produced the output bytes made.
void EncodeC1(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize, size_t* consumed,
              size_t* produced);

struct BlockCoding {
    SendCompression compression = kCompressNone;
    bool scramble = false;
    uint32_t key = 0;  // the K1 key the server answered
    bool checksum = false;
};

struct EncodedBlock {
    size_t consumed = 0;    // original bytes the block carries
    size_t length = 0;      // bytes on the wire
    uint32_t checksum = 0;  // of the original bytes; 0 when none is sent
};

struct DeflateState;
struct DeflateStateDeleter {
    void operator()(DeflateState* state) const;
};

class BlockEncoder {
  public:
    // 0, or -1 when zlib could not be set up or the block size is below 20 bytes.
    int Open(const BlockCoding& coding, size_t blockSize);

    // The most original bytes one block carries: offer at least this many while there are.
    size_t InputPerBlock() const { return inputPerBlock_; }

    // Makes the next block from the front of in[0..inLength) into out[0..outSize), where outSize
    // is at least the block size. 0, or -1 when the compressor failed.
    int Encode(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize,
               EncodedBlock* block);

  private:
    BlockCoding coding_;
    size_t blockSize_ = 0;
    size_t inputPerBlock_ = 0;
    std::unique_ptr<DeflateState, DeflateStateDeleter> deflate_;
};

}  // namespace vx
