// The data-block decoders of the extended protocol: C1 runs, K1 scrambling, C2 raw deflate and
// the block checksum, each fed as the session feeds them: into an output buffer that may fill.
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "protocol/block_checksum.h"
#include "protocol/block_result.h"
#include "protocol/c1_decoder.h"
#include "protocol/c2_inflater.h"
#include "protocol/k1_scrambler.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// Decodes a whole C1 block through an output buffer of outSize bytes, as the session does.
int DecodeAllC1(const Bytes& in, size_t outSize, Bytes* out) {
    Bytes buffer(outSize);
    size_t offset = 0;
    for (;;) {
        size_t consumed = 0;
        size_t produced = 0;
        int rc = vx::DecodeC1(in.data() + offset, in.size() - offset, buffer.data(), outSize,
                              &consumed, &produced);
        out->insert(out->end(), buffer.begin(), buffer.begin() + produced);
        offset += consumed;
        if (rc != vx::kBlockOutputFull) return rc;
    }
}

// Every code the sender makes decodes through vorlix_send_test's round trip; these are the forms
// it never makes, blocks that end inside a code (malformed, after what came whole), and runs that
// do not fit the buffer.
TEST(C1Decoder, RareCodesCutCodesAndARunThatGoesOnInTheNextCall) {
    struct Case {
        Bytes in;
        int rc;
        std::string out;
    } cases[] = {
        {{0, 5, 'x'}, vx::kBlockDone, "xxxxx"},   // a short run in the long form
        {{0, 0, 'x', 'A'}, vx::kBlockDone, "A"},  // a count of 0 makes nothing
        {{'a', 0, 5}, vx::kBlockMalformed, "a"},      {{'a', 1}, vx::kBlockMalformed, "a"},
        {{'a', 2, 3, 'x'}, vx::kBlockMalformed, "a"}, {{'a', 7}, vx::kBlockMalformed, "a"},
    };
    for (const Case& c : cases) {
        Bytes out;
        EXPECT_EQ(DecodeAllC1(c.in, 4096, &out), c.rc) << c.out;
        EXPECT_EQ(std::string(out.begin(), out.end()), c.out);
    }
    // 2 255 pair is the longest run: with a buffer just that large each run comes in its call.
    Bytes in = {'<', 2, 255, 'a', 'b', 0, 255, 'z', '>'};
    Bytes out;
    EXPECT_EQ(DecodeAllC1(in, vx::kC1LongestRun, &out), vx::kBlockDone);
    ASSERT_EQ(out.size(), 2u + 510 + 255);
    EXPECT_EQ(out[1], 'a');
    EXPECT_EQ(out[510], 'b');
    EXPECT_EQ(out[511], 'z');
    EXPECT_EQ(out.back(), '>');
}

// A known block pins the mask to what other senders make (the round trip through our own
// scrambler is vorlix_send_test's).
TEST(K1Scrambler, UnscramblesWithTheRunningMask) {
    // Key 0x1234: k 0x34, k2 0x12. 'A' ^ 0x34 = 0x75, then k = 0x34 ^ 'A' ^ 0x12 = 0x67.
    Bytes block = {0x75, 0x25};
    vx::UnscrambleBlock(0x00001234u, block.data(), block.size());
    EXPECT_EQ(block, ToBytes("AB"));
}

TEST(BlockChecksum, KeepsTheLow15BitsOfTheSumAcrossParts) {
    Bytes block(300, 0xff);  // 76500 = 0x12ad4
    uint32_t sum = vx::AddToBlockSum(0, block.data(), 100);
    sum = vx::AddToBlockSum(sum, block.data() + 100, 200);
    EXPECT_EQ(vx::BlockChecksum(sum), 0x12ad4u & 0x7fffu);
}

// zlib's stream without its 2-byte header and 4-byte check.
Bytes RawDeflate(const Bytes& data) {
    uLongf size = compressBound(data.size());
    Bytes out(size);
    EXPECT_EQ(compress2(out.data(), &size, data.data(), data.size(), 9), Z_OK);
    return Bytes(out.begin() + 2, out.begin() + static_cast<ptrdiff_t>(size) - 4);
}

// A C2 block must be one whole raw deflate stream and nothing more. (Bytes that are not deflate
// are refused through the real server in test_extended.py; a block larger than the output buffer,
// decoded in several calls, is extended_session_test's bomb.)
TEST(C2Inflater, WhatIsNotOneWholeDeflateStreamFails) {
    Bytes good = RawDeflate(ToBytes(std::string(5000, 'x') + "end"));
    Bytes cut(good.begin(), good.end() - 2);
    Bytes followed = good;
    followed.push_back('!');
    for (const Bytes& in : {cut, followed, Bytes{}}) {
        vx::C2BlockPtr block = vx::BeginC2Block(in.data(), in.size());
        Bytes buffer(30024);
        size_t produced = 0;
        int rc = block ? vx::kBlockOutputFull : vx::kBlockNoDecoder;
        while (rc == vx::kBlockOutputFull)
            rc = vx::InflateC2Block(*block, buffer.data(), buffer.size(), &produced);
        EXPECT_LT(rc, 0) << in.size();
    }
}

}  // namespace
