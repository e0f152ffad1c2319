// How settings values become text for callers, the same on both targets: the delivery rule of
// RegQueryText and the hex text of values that are not text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vx {

// Copies a value's text (len bytes, no terminator needed) into the caller's buffer.
// size: in, the buffer's size; out, len + 1. A null buf only reports the size. The buffer is
// always terminated; when it is too small (also when the text would fill it exactly, leaving no
// room for the terminator) it holds the cut text and kRegMoreData is returned.
long RegDeliverText(const char* text, size_t len, char* buf, uint32_t* size);

// Appends bytes as two-digit lowercase hex separated by commas ("01,2f,ff"), as a .reg file
// shows them.
void RegAppendHexText(const uint8_t* data, size_t len, std::string* out);

}  // namespace vx
