// UTF-16 <-> Windows-1252 and UTF-8, by hand: the two code pages the service speaks.
// 0 (the system's ANSI code page on Windows) means 1252 here. The results match what
// WideCharToMultiByte / MultiByteToWideChar give on Windows: unmappable characters become '?',
// malformed input becomes U+FFFD, and the five bytes 1252 leaves undefined map to U+0081 etc.
#include "base/codepage.h"

#include <cstring>

namespace vx {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// 1252 differs from Latin-1 only in 0x80..0x9F.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98
};

bool IsHighSurrogate(char16_t u) {
    return u >= 0xD800 && u <= 0xDBFF;
}
bool IsLowSurrogate(char16_t u) {
    return u >= 0xDC00 && u <= 0xDFFF;
}

bool IsSupported(uint32_t codePage) {
    return codePage == 0 || codePage == kCodePageLatin1 || codePage == kCodePageUtf8;
}

size_t Utf16Length(const char16_t* src, size_t n) {
    if (n != SIZE_MAX) return n;
    size_t len = 0;
    while (src[len] != 0) ++len;
    return len;
}

char To1252(char16_t unit) {
    if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return static_cast<char>(unit);
    for (int i = 0; i < 32; ++i) {
        if (kCp1252High[i] == unit) return static_cast<char>(0x80 + i);
    }
    return '?';
}

// Encodes one code point; returns the byte count (1..4).
size_t EncodeUtf8(char32_t cp, unsigned char bytes[4]) {
    if (cp < 0x80) {
        bytes[0] = static_cast<unsigned char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        bytes[0] = static_cast<unsigned char>(0xC0 | (cp >> 6));
        bytes[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        bytes[0] = static_cast<unsigned char>(0xE0 | (cp >> 12));
        bytes[1] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        bytes[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 3;
    }
    bytes[0] = static_cast<unsigned char>(0xF0 | (cp >> 18));
    bytes[1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
    bytes[2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    bytes[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    return 4;
}

// Decodes one UTF-8 sequence at src[0..left); sets *used to the bytes consumed. Malformed
// input gives U+FFFD for each maximal valid prefix (at least one byte), as Unicode recommends:
// the lead byte decides the range of the second byte, which rules out overlong forms,
// surrogates and values above U+10FFFF before they are read.
char32_t DecodeUtf8(const unsigned char* src, size_t left, size_t* used) {
    unsigned char lead = src[0];
    *used = 1;
    if (lead < 0x80) return lead;
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return kReplacement;
    }
    char32_t cp = lead & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        if (i >= left) return kReplacement;
        unsigned char next = src[i];
        bool valid = i == 1 ? (next >= low && next <= high) : (next & 0xC0) == 0x80;
        if (!valid) return kReplacement;
        cp = (cp << 6) | (next & 0x3F);
        *used = i + 1;
    }
    return cp;
}

int Utf16To1252(const char16_t* src, size_t n, char* out, size_t cap) {
    size_t written = 0;
    // Unit by unit, as Windows converts: each half of a surrogate pair becomes a '?'.
    for (size_t i = 0; i < n && written + 1 < cap; ++i) out[written++] = To1252(src[i]);
    out[written] = '\0';
    return static_cast<int>(written);
}

int Utf16ToUtf8(const char16_t* src, size_t n, char* out, size_t cap) {
    size_t written = 0;
    for (size_t i = 0; i < n; ++i) {
        char32_t cp = src[i];
        if (IsHighSurrogate(src[i]) && i + 1 < n && IsLowSurrogate(src[i + 1])) {
            cp = 0x10000 + ((static_cast<char32_t>(src[i]) - 0xD800) << 10) + (src[i + 1] - 0xDC00);
            ++i;
        } else if (IsHighSurrogate(src[i]) || IsLowSurrogate(src[i])) {
            cp = kReplacement;  // a lone half of a pair
        }
        unsigned char bytes[4];
        size_t count = EncodeUtf8(cp, bytes);
        // Cut before a character that does not fit whole.
        if (written + count + 1 > cap) break;
        memcpy(out + written, bytes, count);
        written += count;
    }
    out[written] = '\0';
    return static_cast<int>(written);
}

int Cp1252ToUtf16(const unsigned char* src, size_t n, char16_t* out, size_t cap) {
    size_t written = 0;
    for (size_t i = 0; i < n && written + 1 < cap; ++i) {
        unsigned char byte = src[i];
        out[written++] = (byte >= 0x80 && byte <= 0x9F) ? kCp1252High[byte - 0x80] : byte;
    }
    out[written] = 0;
    return static_cast<int>(written);
}

int Utf8ToUtf16(const unsigned char* src, size_t n, char16_t* out, size_t cap) {
    size_t written = 0;
    for (size_t i = 0; i < n;) {
        size_t used = 0;
        char32_t cp = DecodeUtf8(src + i, n - i, &used);
        size_t units = cp >= 0x10000 ? 2 : 1;
        // Cut before a character that does not fit whole (never half a surrogate pair).
        if (written + units + 1 > cap) break;
        if (units == 2) {
            out[written++] = static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
            out[written++] = static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else {
            out[written++] = static_cast<char16_t>(cp);
        }
        i += used;
    }
    out[written] = 0;
    return static_cast<int>(written);
}

}  // namespace

int Utf16ToCodePage(const char16_t* src, size_t n, uint32_t codePage, char* out, size_t cap) {
    if (!IsSupported(codePage) || out == nullptr || cap == 0) return -1;
    if (src == nullptr) {
        out[0] = '\0';
        return 0;
    }
    size_t len = Utf16Length(src, n);
    if (codePage == kCodePageUtf8) return Utf16ToUtf8(src, len, out, cap);
    return Utf16To1252(src, len, out, cap);
}

int CodePageToUtf16(const char* src, size_t n, uint32_t codePage, char16_t* out, size_t cap) {
    if (!IsSupported(codePage) || out == nullptr || cap == 0) return -1;
    if (src == nullptr) {
        out[0] = 0;
        return 0;
    }
    size_t len = n != SIZE_MAX ? n : strlen(src);
    const auto* bytes = reinterpret_cast<const unsigned char*>(src);
    if (codePage == kCodePageUtf8) return Utf8ToUtf16(bytes, len, out, cap);
    return Cp1252ToUtf16(bytes, len, out, cap);
}

}  // namespace vx
