// The library's UTF-16 texts (ZelWide) and their narrow forms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "printlib/zelwin.h"

namespace zel {

// A terminated ZelWide text as a string (empty for null).
std::u16string WideText(const ZelWide* text);

// Narrow text in a code page, cut at size.
void NarrowText(const std::u16string& text, uint32_t codePage, char* out, size_t size);

// A narrow text in a code page as UTF-16.
std::u16string WideFromNarrow(const char* text, uint32_t codePage);

// Copies at most size - 1 units into out and terminates it.
void CopyWide(const std::u16string& text, ZelWide* out, size_t size);

}  // namespace zel
