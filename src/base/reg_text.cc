#include "base/reg_text.h"

#include "base/registry.h"
#include "base/text.h"

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
    CopyTextN(buf, cap, text, len);
    return needed <= cap ? kRegOk : kRegMoreData;
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
