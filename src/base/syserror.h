// The last system error and its message text.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// GetLastError() on Windows, errno elsewhere.
uint32_t LastSystemError();
void SetLastSystemError(uint32_t code);

// The system's text for an error code, without a trailing line break. -1 when the system has
// no text for it (out then holds a text naming the number).
int SystemErrorText(uint32_t code, char* out, size_t cap);

}  // namespace vx
