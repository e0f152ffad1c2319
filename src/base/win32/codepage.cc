// UTF-16 <-> code-page text through WideCharToMultiByte / MultiByteToWideChar. The system
// converts into a buffer of the exact size or not at all, so a text longer than the caller's
// buffer is converted whole first and then cut at a character boundary.
#include "base/codepage.h"

#include <windows.h>

#include <climits>
#include <cstring>
#include <string>

namespace vx {

namespace {

bool ValidCodePage(uint32_t codePage) {
    // CP_ACP, CP_OEMCP, CP_MACCP and CP_THREAD_ACP are aliases, not numbered code pages.
    return codePage <= CP_THREAD_ACP || IsValidCodePage(codePage);
}

bool IsUtf8Continuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

bool IsHighSurrogate(wchar_t u) {
    return u >= 0xD800 && u <= 0xDBFF;
}

}  // namespace

int Utf16ToCodePage(const char16_t* src, size_t n, uint32_t codePage, char* out, size_t cap) {
    if (out == nullptr || cap == 0 || !ValidCodePage(codePage)) return -1;
    out[0] = '\0';
    if (src == nullptr) return 0;
    const auto* wide = reinterpret_cast<const wchar_t*>(src);
    size_t len = n != SIZE_MAX ? n : wcslen(wide);
    if (len == 0) return 0;
    if (len > INT_MAX) return -1;
    // Without WC_NO_BEST_FIT_CHARS 1252 would show 'A' for A-macron; the service wants '?'.
    // UTF-8 takes no flags.
    DWORD flags = codePage == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS;
    int srcLen = static_cast<int>(len);
    int needed = WideCharToMultiByte(codePage, flags, wide, srcLen, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return -1;
    if (static_cast<size_t>(needed) < cap) {
        int written =
            WideCharToMultiByte(codePage, flags, wide, srcLen, out, needed, nullptr, nullptr);
        if (written <= 0) return -1;
        out[written] = '\0';
        return written;
    }
    std::string whole(static_cast<size_t>(needed), '\0');
    if (WideCharToMultiByte(codePage, flags, wide, srcLen, whole.data(), needed, nullptr,
                            nullptr) <= 0)
        return -1;
    size_t cut = cap - 1;
    // Never end inside a UTF-8 sequence: back off to the start of the split character.
    if (codePage == CP_UTF8) {
        while (cut > 0 && IsUtf8Continuation(whole[cut])) --cut;
    }
    memcpy(out, whole.data(), cut);
    out[cut] = '\0';
    return static_cast<int>(cut);
}

int CodePageToUtf16(const char* src, size_t n, uint32_t codePage, char16_t* out, size_t cap) {
    if (out == nullptr || cap == 0 || !ValidCodePage(codePage)) return -1;
    out[0] = 0;
    if (src == nullptr) return 0;
    size_t len = n != SIZE_MAX ? n : strlen(src);
    if (len == 0) return 0;
    if (len > INT_MAX) return -1;
    auto* wide = reinterpret_cast<wchar_t*>(out);
    int srcLen = static_cast<int>(len);
    int needed = MultiByteToWideChar(codePage, 0, src, srcLen, nullptr, 0);
    if (needed <= 0) return -1;
    if (static_cast<size_t>(needed) < cap) {
        int written = MultiByteToWideChar(codePage, 0, src, srcLen, wide, needed);
        if (written <= 0) return -1;
        wide[written] = 0;
        return written;
    }
    std::wstring whole(static_cast<size_t>(needed), L'\0');
    if (MultiByteToWideChar(codePage, 0, src, srcLen, whole.data(), needed) <= 0) return -1;
    size_t cut = cap - 1;
    // Never keep half of a surrogate pair.
    if (cut > 0 && IsHighSurrogate(whole[cut - 1])) --cut;
    memcpy(wide, whole.data(), cut * sizeof(wchar_t));
    wide[cut] = 0;
    return static_cast<int>(cut);
}

}  // namespace vx
