#include "protocol/c1_decoder.h"

#include <cstring>

#include "protocol/block_result.h"

namespace vx {

namespace {

// Input bytes of the code that starts with byte c, the code byte included.
size_t CodeLength(uint8_t c) {
    switch (c) {
        case 0:
            return 3;
        case 1:
            return 2;
        case 2:
            return 4;
        default:
            return c <= 9 ? 2 : 1;
    }
}

// Output bytes of the complete code at p.
size_t RunLength(const uint8_t* p) {
    switch (p[0]) {
        case 0:
            return p[1];
        case 1:
            return 1;
        case 2:
            return 2 * static_cast<size_t>(p[1]);
        default:
            return p[0] <= 9 ? p[0] : 1;
    }
}

void WriteRun(const uint8_t* p, uint8_t* out) {
    switch (p[0]) {
        case 0:
            memset(out, p[2], p[1]);
            return;
        case 1:
            out[0] = p[1];
            return;
        case 2:
            for (size_t i = 0; i < p[1]; ++i) {
                out[2 * i] = p[2];
                out[2 * i + 1] = p[3];
            }
            return;
        default:
            if (p[0] <= 9)
                memset(out, p[1], p[0]);
            else
                out[0] = p[0];
            return;
    }
}

}  // namespace

int DecodeC1(const uint8_t* in, size_t inLength, uint8_t* out, size_t outSize, size_t* consumed,
             size_t* produced) {
    size_t read = 0;
    size_t written = 0;
    int result = kBlockDone;
    while (read < inLength) {
        size_t code = CodeLength(in[read]);
        if (inLength - read < code) {
            result = kBlockMalformed;
            break;
        }
        size_t run = RunLength(in + read);
        if (outSize - written < run) {
            result = kBlockOutputFull;
            break;
        }
        WriteRun(in + read, out + written);
        read += code;
        written += run;
    }
    *consumed = read;
    *produced = written;
    return result;
}

}  // namespace vx
