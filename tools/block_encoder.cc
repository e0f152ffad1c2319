#include "tools/block_encoder.h"

#include <zlib.h>

#include <cstring>

#include "protocol/block_checksum.h"
#include "protocol/k1_scrambler.h"

namespace vx {

struct DeflateState {
    z_stream stream{};
};

void DeflateStateDeleter::operator()(DeflateState* state) const {
    deflateEnd(&state->stream);
    delete state;
}

namespace {

constexpr size_t kMinBlockSize = 20;
constexpr size_t kLongestRun = 255;

size_t RunLength(const uint8_t* in, size_t length) {
    size_t n = 1;
    while (n < length && n < kLongestRun && in[n] == in[0]) ++n;
    return n;
}

// Repetitions of the pair in[0], in[1] (two different bytes).
size_t PairCount(const uint8_t* in, size_t length) {
    if (length < 2 || in[0] == in[1]) return 0;
    size_t pairs = 1;
    while (pairs < kLongestRun && 2 * pairs + 1 < length && in[2 * pairs] == in[0] &&
           in[2 * pairs + 1] == in[1])
        ++pairs;
    return pairs;
}

}  // namespace

void EncodeC1(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize, size_t* consumed,
              size_t* produced) {
    size_t i = 0;
    size_t o = 0;
    while (i < inLength) {
        uint8_t code[4];
        size_t codeLength = 0;
        size_t taken = 0;
        size_t run = RunLength(in + i, inLength - i);
        size_t pairs = run >= 3 ? 0 : PairCount(in + i, inLength - i);
        if (run >= 3 && run <= 9) {
            code[0] = static_cast<uint8_t>(run);
            code[1] = in[i];
            codeLength = 2;
            taken = run;
        } else if (run > 9) {
            code[0] = 0;
            code[1] = static_cast<uint8_t>(run);
            code[2] = in[i];
            codeLength = 3;
            taken = run;
        } else if (pairs >= 3) {
            code[0] = 2;
            code[1] = static_cast<uint8_t>(pairs);
            code[2] = in[i];
            code[3] = in[i + 1];
            codeLength = 4;
            taken = 2 * pairs;
        } else if (in[i] < 10) {  // a code byte of its own: escaped
            code[0] = 1;
            code[1] = in[i];
            codeLength = 2;
            taken = 1;
        } else {
            code[0] = in[i];
            codeLength = 1;
            taken = 1;
        }
        if (o + codeLength > outSize) break;
        memcpy(out + o, code, codeLength);
        o += codeLength;
        i += taken;
    }
    *consumed = i;
    *produced = o;
}

int BlockEncoder::Open(const BlockCoding& coding, size_t blockSize) {
    if (blockSize < kMinBlockSize) return -1;
    coding_ = coding;
    blockSize_ = blockSize;
    inputPerBlock_ = blockSize;
    deflate_.reset();
    if (coding.compression != kCompressC2) return 0;
    auto state = std::make_unique<DeflateState>();
    // Raw deflate (no zlib header or trailer): what the server's C2 decoder inflates.
    if (deflateInit2(&state->stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8,
                     Z_DEFAULT_STRATEGY) != Z_OK)
        return -1;
    deflate_.reset(state.release());
    // As many original bytes as compress into one block even when they do not compress at all.
    uLong input = blockSize;
    while (input > 0 && deflateBound(&deflate_->stream, input) > blockSize)
        input -= deflateBound(&deflate_->stream, input) - blockSize;
    inputPerBlock_ = input;
    return input > 0 ? 0 : -1;
}

int BlockEncoder::Encode(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize,
                         EncodedBlock* block) {
    *block = EncodedBlock{};
    if (outSize < blockSize_) return -1;
    size_t offered = inLength < inputPerBlock_ ? inLength : inputPerBlock_;
    switch (coding_.compression) {
        case kCompressNone:
            memcpy(out, in, offered);
            block->consumed = offered;
            block->length = offered;
            break;
        case kCompressC1:
            EncodeC1(in, offered, out, blockSize_, &block->consumed, &block->length);
            break;
        case kCompressC2: {
            z_stream& z = deflate_->stream;
            if (deflateReset(&z) != Z_OK) return -1;
            z.next_in = const_cast<Bytef*>(in);
            z.avail_in = static_cast<uInt>(offered);
            z.next_out = out;
            z.avail_out = static_cast<uInt>(blockSize_);
            // One complete stream per block: the server inflates each block on its own.
            if (deflate(&z, Z_FINISH) != Z_STREAM_END) return -1;
            block->consumed = offered;
            block->length = blockSize_ - z.avail_out;
            break;
        }
    }
    if (coding_.checksum) block->checksum = BlockChecksum(AddToBlockSum(0, in, block->consumed));
    if (coding_.scramble) ScrambleBlock(coding_.key, out, block->length);
    return 0;
}

}  // namespace vx
