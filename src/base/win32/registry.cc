// Settings hives on Windows: the registry, through the narrow Reg*A calls.
#include "base/registry.h"

#include <windows.h>

#include <string>
#include <vector>

#include "base/reg_text.h"
#include "base/text.h"

namespace vx {

namespace {

HKEY AsKey(RegHandle key) {
    return static_cast<HKEY>(key);
}

uint32_t ReadLittleEndian(const BYTE* data, size_t len) {
    uint32_t v = 0;
    for (size_t i = len; i > 0; --i) v = (v << 8) | data[i - 1];
    return v;
}

// The text of a value as callers see it: strings as they are (up to the first zero, whether or
// not one was stored), numbers in decimal, anything else as hex bytes.
std::string ValueAsText(DWORD type, const std::vector<BYTE>& data) {
    const char* bytes = reinterpret_cast<const char*>(data.data());
    std::string text;
    if (data.empty()) return text;
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            text.assign(bytes, strnlen(bytes, data.size()));
            return text;
        case REG_MULTI_SZ: {
            // The strings, separated by blanks.
            size_t pos = 0;
            while (pos < data.size() && data[pos] != 0) {
                size_t n = strnlen(bytes + pos, data.size() - pos);
                if (!text.empty()) text.push_back(' ');
                text.append(bytes + pos, n);
                pos += n + 1;
            }
            return text;
        }
        case REG_DWORD:
        case REG_DWORD_BIG_ENDIAN:
            if (data.size() == 4) {
                uint32_t v = ReadLittleEndian(data.data(), 4);
                if (type == REG_DWORD_BIG_ENDIAN)
                    v = (v >> 24) | ((v >> 8) & 0xFF00) | ((v << 8) & 0xFF0000) | (v << 24);
                char number[16];
                FormatText(number, sizeof number, "%lu", static_cast<unsigned long>(v));
                return number;
            }
            break;
        case REG_QWORD:
            if (data.size() == 8) {
                unsigned long long v =
                    (static_cast<unsigned long long>(ReadLittleEndian(data.data() + 4, 4)) << 32) |
                    ReadLittleEndian(data.data(), 4);
                char number[24];
                FormatText(number, sizeof number, "%llu", v);
                return number;
            }
            break;
        default:
            break;
    }
    RegAppendHexText(data.data(), data.size(), &text);
    return text;
}

// Reads a whole value, growing the buffer when the value is larger (or grew meanwhile).
long ReadValue(HKEY key, const char* name, DWORD* type, std::vector<BYTE>* data) {
    DWORD len = 256;
    for (int attempt = 0; attempt < 8; ++attempt) {
        data->resize(len);
        len = static_cast<DWORD>(data->size());
        LONG rc = RegQueryValueExA(key, name, nullptr, type, data->data(), &len);
        if (rc == ERROR_SUCCESS) {
            data->resize(len);
            return kRegOk;
        }
        if (rc != ERROR_MORE_DATA) return rc;
        len += 16;
    }
    return kRegMoreData;
}

}  // namespace

RegHandle RegHiveHandle(RegHive hive) {
    return hive == kHiveCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

long RegOpen(RegHive hive, const char* path, RegHandle* out) {
    if (out == nullptr) return kRegBadParameter;
    *out = nullptr;
    HKEY key = nullptr;
    LONG rc = RegOpenKeyExA(AsKey(RegHiveHandle(hive)), path, 0, KEY_QUERY_VALUE, &key);
    if (rc == ERROR_SUCCESS) *out = key;
    return rc;
}

long RegCreate(RegHive hive, const char* path, RegHandle* out) {
    if (out == nullptr) return kRegBadParameter;
    *out = nullptr;
    HKEY key = nullptr;
    char noClass[1] = "";
    LONG rc = RegCreateKeyExA(AsKey(RegHiveHandle(hive)), path, 0, noClass, REG_OPTION_NON_VOLATILE,
                              KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY, nullptr, &key,
                              nullptr);
    if (rc == ERROR_SUCCESS) *out = key;
    return rc;
}

long RegClose(RegHandle key) {
    if (key == nullptr) return kRegInvalidHandle;
    return RegCloseKey(AsKey(key));
}

long RegQueryText(RegHandle key, const char* name, char* buf, uint32_t* size) {
    if (size == nullptr) return kRegBadParameter;
    if (key == nullptr) return kRegInvalidHandle;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
    long rc = ReadValue(AsKey(key), name, &type, &data);
    if (rc != kRegOk) {
        if (buf != nullptr && *size > 0) buf[0] = '\0';
        return rc;
    }
    std::string text = ValueAsText(type, data);
    return RegDeliverText(text.data(), text.size(), buf, size);
}

long RegSetText(RegHandle key, const char* name, const char* text, uint32_t len) {
    if (key == nullptr) return kRegInvalidHandle;
    if (text == nullptr && len > 0) return kRegBadParameter;
    // Exactly the length given: the service stores its texts without the terminator.
    return RegSetValueExA(AsKey(key), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), len);
}

long RegRemoveValue(RegHandle key, const char* name) {
    if (key == nullptr) return kRegInvalidHandle;
    return RegDeleteValueA(AsKey(key), name);
}

long RegEnumText(RegHandle key, uint32_t index, char* name, size_t nameCap, char* data,
                 size_t dataCap) {
    if (key == nullptr) return kRegInvalidHandle;
    if (name != nullptr && nameCap > 0) name[0] = '\0';
    if (data != nullptr && dataCap > 0) data[0] = '\0';
    DWORD maxName = 0;
    DWORD maxData = 0;
    LONG rc = RegQueryInfoKeyA(AsKey(key), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, &maxName, &maxData, nullptr, nullptr);
    if (rc != ERROR_SUCCESS) return rc;
    // Whole name and data first, so that each can be cut to the caller's buffer; the sizes grow
    // when a value changes between the two calls.
    std::vector<char> fullName(maxName + 2);
    std::vector<BYTE> fullData(maxData + 2);
    DWORD type = REG_NONE;
    for (int attempt = 0; attempt < 8; ++attempt) {
        DWORD nameLen = static_cast<DWORD>(fullName.size());
        DWORD dataLen = static_cast<DWORD>(fullData.size());
        rc = RegEnumValueA(AsKey(key), index, fullName.data(), &nameLen, nullptr, &type,
                           fullData.data(), &dataLen);
        if (rc == ERROR_SUCCESS) {
            fullData.resize(dataLen);
            CopyTextN(name, nameCap, fullName.data(), nameLen);
            std::string text = ValueAsText(type, fullData);
            CopyTextN(data, dataCap, text.c_str(), text.size());
            return kRegOk;
        }
        if (rc != ERROR_MORE_DATA) return rc;
        fullName.resize(fullName.size() * 2);
        fullData.resize(fullData.size() * 2);
    }
    return rc;
}

}  // namespace vx
