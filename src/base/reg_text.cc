#include "base/reg_text.h"

#include <cstring>

#include "base/registry.h"

namespace vx {

const char* RegHiveName(RegHive hive) {
    return hive == kHiveCurrentUser ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
}

long RegDeliverText(const char* text, size_t len, char* buf, uint32_t* size) {
    if (size == nullptr) return kRegBadParameter;
    const size_t needed = len + 1;
    const size_t cap = *size;
    *size = needed > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(needed);
    if (buf == nullptr) return kRegOk;
    if (cap == 0) return kRegMoreData;
    const size_t copied = needed <= cap ? len : cap - 1;
    if (copied > 0) memcpy(buf, text, copied);
    buf[copied] = '\0';
    return copied == len ? kRegOk : kRegMoreData;
}

void RegAppendHexText(const uint8_t* data, size_t len, std::string* out) {
    static const char kDigits[] = "0123456789abcdef";
    for (size_t i = 0; i < len; ++i) {
        if (i > 0) out->push_back(',');
        out->push_back(kDigits[data[i] >> 4]);
        out->push_back(kDigits[data[i] & 0x0F]);
    }
}

}  // namespace vx
