// Texts handed to the print library in UTF-16 (ZelWide), converted from the host's code page.
#pragma once

#include <cstddef>

#include "printlib/zelwin.h"

namespace vx {

// Converts at most maxChars characters of text; the result is terminated and cut at cap units.
void ToZelWide(const char* text, size_t maxChars, ZelWide* out, size_t cap);

}  // namespace vx
