#include "printlib/wide_text.h"

#include <vector>

#include "base/codepage.h"

namespace zel {

std::u16string WideText(const ZelWide* text) {
    std::u16string result;
    if (text == nullptr) return result;
    for (size_t i = 0; text[i] != 0; ++i) result.push_back(static_cast<char16_t>(text[i]));
    return result;
}

void NarrowText(const std::u16string& text, uint32_t codePage, char* out, size_t size) {
    if (size == 0) return;
    out[0] = '\0';
    if (vx::Utf16ToCodePage(text.c_str(), text.size(), codePage, out, size) < 0) out[0] = '\0';
}

std::u16string WideFromNarrow(const char* text, uint32_t codePage) {
    if (text == nullptr || text[0] == '\0') return std::u16string();
    // No byte sequence yields more UTF-16 units than it has bytes: the byte count suffices.
    size_t bytes = 0;
    while (text[bytes] != '\0') ++bytes;
    std::vector<char16_t> buffer(bytes + 1);
    int units = vx::CodePageToUtf16(text, bytes, codePage, buffer.data(), buffer.size());
    if (units < 0) return std::u16string();
    return std::u16string(buffer.data(), static_cast<size_t>(units));
}

void CopyWide(const std::u16string& text, ZelWide* out, size_t size) {
    if (out == nullptr || size == 0) return;
    size_t n = text.size() < size - 1 ? text.size() : size - 1;
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<ZelWide>(text[i]);
    out[n] = 0;
}

}  // namespace zel
