// Bounded text helpers: every fixed-size buffer in Vorlix is filled through these.
// They cut at the buffer's size, always terminate (when the size is not 0) and never overflow.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#if defined(__GNUC__)
#define VX_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define VX_PRINTF(fmt, args)
#endif

namespace vx {

// Copies src into dst (capacity cap bytes including the terminator). Returns the length copied.
size_t CopyText(char* dst, size_t cap, const char* src);

// Copies at most n characters of src.
size_t CopyTextN(char* dst, size_t cap, const char* src, size_t n);

// Appends src to the text already in dst. Returns the new length.
size_t AppendText(char* dst, size_t cap, const char* src);

// printf into dst, cut at cap. Returns the length written (never more than cap - 1).
size_t FormatText(char* dst, size_t cap, const char* fmt, ...) VX_PRINTF(3, 4);
size_t FormatTextV(char* dst, size_t cap, const char* fmt, va_list args);

// printf appended to the text already in dst.
size_t AppendFormat(char* dst, size_t cap, const char* fmt, ...) VX_PRINTF(3, 4);

// Fixed-size array overloads, so callers cannot pass the wrong capacity.
template <size_t N>
size_t CopyText(char (&dst)[N], const char* src) {
    return CopyText(dst, N, src);
}
template <size_t N>
size_t AppendText(char (&dst)[N], const char* src) {
    return AppendText(dst, N, src);
}

// Case-insensitive comparison of ASCII letters (registry names, option names).
bool EqualsNoCase(const char* a, const char* b);

// Cuts trailing CR, LF and blanks (system message texts end in a line break).
void TrimLineEnd(char* text);

// Cuts every trailing character that is one of chars.
void TrimTrailing(char* text, const char* chars);

// True when text begins with prefix (case-sensitive).
bool StartsWith(const char* text, const char* prefix);

// True when text ends with the character c.
bool EndsWithChar(const char* text, char c);

// Converts a settings text to an integer: "0x"/"0X" is hexadecimal and kept as its 32-bit
// pattern; anything else is decimal with the leading-digits rule ("12abc" is 12, "" is 0).
int32_t ParseSettingInt(const char* text);

// Decimal conversion only, with the same leading-digits rule.
int32_t ParseDecimalInt(const char* text);

}  // namespace vx
