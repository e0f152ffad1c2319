// The last system error is errno; its text comes from strerror_r.
#include "base/syserror.h"

#include <cerrno>
#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// strerror_r comes in two shapes: the GNU one returns the text (which may not be buf), the
// XSI one fills buf and returns 0. The overloads take whichever the C library declares.
[[maybe_unused]] const char* ErrorTextFrom(const char* result, const char*) {
    return result;
}
[[maybe_unused]] const char* ErrorTextFrom(int result, const char* buf) {
    return result == 0 ? buf : nullptr;
}

}  // namespace

uint32_t LastSystemError() {
    return static_cast<uint32_t>(errno);
}

void SetLastSystemError(uint32_t code) {
    errno = static_cast<int>(code);
}

int SystemErrorText(uint32_t code, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    int saved = errno;
    char buf[256] = "";
    const char* text = ErrorTextFrom(strerror_r(static_cast<int>(code), buf, sizeof buf), buf);
    errno = saved;
    // The C library names unknown numbers itself ("Unknown error 1234"): that is no text.
    if (text == nullptr || text[0] == '\0' || StartsWith(text, "Unknown error")) {
        FormatText(out, cap, "Unknown error %u", code);
        return -1;
    }
    CopyText(out, cap, text);
    TrimLineEnd(out);
    return 0;
}

}  // namespace vx
