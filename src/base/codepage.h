// UTF-16 <-> code-page text conversion.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

constexpr uint32_t kCodePageLatin1 = 1252;  // Windows Latin-1, the extended protocol's texts
constexpr uint32_t kCodePageUtf8 = 65001;

// The code page of the system's narrow-text calls: the ANSI code page (0) of the Windows "A"
// calls, UTF-8 on Linux.
#if defined(_WIN32)
constexpr uint32_t kCodePageNarrowApi = 0;
#else
constexpr uint32_t kCodePageNarrowApi = kCodePageUtf8;
#endif

// Converts n UTF-16 units (or up to the terminator when n is SIZE_MAX) into the code page.
// Characters the code page cannot show become '?'. The output is terminated and cut at cap.
// Returns the number of bytes written (without terminator), or -1 for an unsupported code page.
int Utf16ToCodePage(const char16_t* src, size_t n, uint32_t codePage, char* out, size_t cap);

// The other way: n bytes (or up to the terminator when n is SIZE_MAX) into UTF-16.
// Returns the number of units written (without terminator), or -1.
int CodePageToUtf16(const char* src, size_t n, uint32_t codePage, char16_t* out, size_t cap);

}  // namespace vx
