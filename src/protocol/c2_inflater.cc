#include "protocol/c2_inflater.h"

#include <zlib.h>

#include <new>

#include "protocol/block_result.h"

namespace vx {

namespace {

// Raw deflate: no zlib or gzip wrapper, the largest window.
constexpr int kRawDeflateWindowBits = -15;

}  // namespace

struct C2Block {
    z_stream stream{};
    bool ended = false;
};

void C2BlockDeleter::operator()(C2Block* block) const {
    inflateEnd(&block->stream);
    delete block;
}

C2BlockPtr BeginC2Block(const uint8_t* in, size_t inLength) {
    if (inLength > UINT32_MAX) return nullptr;
    auto* block = new (std::nothrow) C2Block;
    if (block == nullptr) return nullptr;
    if (inflateInit2(&block->stream, kRawDeflateWindowBits) != Z_OK) {
        delete block;
        return nullptr;
    }
    // zlib's interface takes a non-const input pointer; it never writes through it.
    block->stream.next_in = const_cast<Bytef*>(in);
    block->stream.avail_in = static_cast<uInt>(inLength);
    return C2BlockPtr(block);
}

int InflateC2Block(C2Block& block, uint8_t* out, size_t outSize, size_t* produced) {
    *produced = 0;
    if (block.ended) return block.stream.avail_in == 0 ? kBlockDone : Z_DATA_ERROR;
    if (outSize > UINT32_MAX) outSize = UINT32_MAX;
    block.stream.next_out = out;
    block.stream.avail_out = static_cast<uInt>(outSize);
    int rc = inflate(&block.stream, Z_NO_FLUSH);
    *produced = outSize - block.stream.avail_out;
    if (rc == Z_STREAM_END) {
        block.ended = true;
        // Bytes after the end of the stream are not part of any stream.
        return block.stream.avail_in == 0 ? kBlockDone : Z_DATA_ERROR;
    }
    if (rc == Z_OK || rc == Z_BUF_ERROR) {
        if (block.stream.avail_out == 0) return kBlockOutputFull;
        // Output room is left and zlib wants more input: the block ends inside the stream.
        return Z_BUF_ERROR;
    }
    return rc < 0 ? rc : Z_DATA_ERROR;
}

}  // namespace vx
