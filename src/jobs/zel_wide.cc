#include "jobs/zel_wide.h"

#include <cstring>

#include "base/codepage.h"

namespace vx {

void ToZelWide(const char* text, size_t maxChars, ZelWide* out, size_t cap) {
    if (out == nullptr || cap == 0) return;
    out[0] = 0;
    if (text == nullptr) return;
    char16_t wide[1024];
    size_t limit = cap < sizeof wide / sizeof wide[0] ? cap : sizeof wide / sizeof wide[0];
    // Code page 0 is the host's own: the code page of every narrow text the service keeps.
    int units = CodePageToUtf16(text, strnlen(text, maxChars), 0, wide, limit);
    if (units < 0) units = 0;
    for (int i = 0; i < units; ++i) out[i] = static_cast<ZelWide>(wide[i]);
    out[units] = 0;
}

}  // namespace vx
