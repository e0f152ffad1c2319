#include "base/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vx {

size_t CopyTextN(char* dst, size_t cap, const char* src, size_t n) {
    if (dst == nullptr || cap == 0) return 0;
    if (src == nullptr) src = "";
    size_t len = 0;
    while (len < n && len + 1 < cap && src[len] != '\0') {
        dst[len] = src[len];
        ++len;
    }
    dst[len] = '\0';
    return len;
}

size_t CopyText(char* dst, size_t cap, const char* src) {
    return CopyTextN(dst, cap, src, static_cast<size_t>(-1));
}

size_t AppendText(char* dst, size_t cap, const char* src) {
    if (dst == nullptr || cap == 0) return 0;
    size_t len = strnlen(dst, cap);
    if (len >= cap) {
        // Not terminated within its capacity: cut it so that it is.
        dst[cap - 1] = '\0';
        return cap - 1;
    }
    return len + CopyText(dst + len, cap - len, src);
}

size_t FormatTextV(char* dst, size_t cap, const char* fmt, va_list args) {
    if (dst == nullptr || cap == 0) return 0;
    int n = vsnprintf(dst, cap, fmt, args);
    if (n < 0) {
        dst[0] = '\0';
        return 0;
    }
    size_t written = static_cast<size_t>(n);
    return written < cap ? written : cap - 1;
}

size_t FormatText(char* dst, size_t cap, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    size_t n = FormatTextV(dst, cap, fmt, args);
    va_end(args);
    return n;
}

size_t AppendFormat(char* dst, size_t cap, const char* fmt, ...) {
    if (dst == nullptr || cap == 0) return 0;
    size_t len = strnlen(dst, cap);
    if (len >= cap) {
        dst[cap - 1] = '\0';
        return cap - 1;
    }
    va_list args;
    va_start(args, fmt);
    size_t n = FormatTextV(dst + len, cap - len, fmt, args);
    va_end(args);
    return len + n;
}

static char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualsNoCase(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    while (*a != '\0' && LowerAscii(*a) == LowerAscii(*b)) {
        ++a;
        ++b;
    }
    return LowerAscii(*a) == LowerAscii(*b);
}

void TrimTrailing(char* text, const char* chars) {
    if (text == nullptr) return;
    size_t len = strlen(text);
    while (len > 0 && strchr(chars, text[len - 1]) != nullptr) text[--len] = '\0';
}

void TrimLineEnd(char* text) {
    TrimTrailing(text, "\r\n ");
}

bool StartsWith(const char* text, const char* prefix) {
    if (text == nullptr || prefix == nullptr) return false;
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

bool EndsWithChar(const char* text, char c) {
    if (text == nullptr || text[0] == '\0') return false;
    return text[strlen(text) - 1] == c;
}

int32_t ParseDecimalInt(const char* text) {
    if (text == nullptr) return 0;
    // strtoll stops at the first non-digit, which gives the leading-digits rule.
    long long v = strtoll(text, nullptr, 10);
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}

int32_t ParseSettingInt(const char* text) {
    if (text == nullptr) return 0;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        unsigned long long v = strtoull(text + 2, nullptr, 16);
        return static_cast<int32_t>(static_cast<uint32_t>(v));
    }
    return ParseDecimalInt(text);
}

}  // namespace vx
