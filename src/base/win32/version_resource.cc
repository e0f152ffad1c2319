// Version texts from a file's version resource, through the version API.
#include "base/version_resource.h"

#include <windows.h>

#include <vector>

#include "base/text.h"

namespace vx {

namespace {

struct LanguageAndCodePage {
    WORD language;
    WORD codePage;
};

// Copies one string of the resource's block for a language and code page; leaves out untouched
// when the block has no such string, so that an earlier language's text stays.
void ReadString(const void* block, const LanguageAndCodePage& pair, const char* name, char* out,
                size_t cap) {
    if (out == nullptr || cap == 0) return;
    char query[64];
    FormatText(query, sizeof query, "\\StringFileInfo\\%04x%04x\\%s", pair.language, pair.codePage,
               name);
    void* text = nullptr;
    UINT len = 0;
    if (!VerQueryValueA(block, query, &text, &len) || text == nullptr || len == 0) return;
    CopyTextN(out, cap, static_cast<const char*>(text), len);
}

}  // namespace

int ReadFileVersion(const char* path, char* fileVersion, size_t fileCap, char* productVersion,
                    size_t productCap) {
    if (fileVersion != nullptr && fileCap > 0) fileVersion[0] = '\0';
    if (productVersion != nullptr && productCap > 0) productVersion[0] = '\0';
    if (path == nullptr) return -1;
    DWORD unused = 0;
    DWORD size = GetFileVersionInfoSizeA(path, &unused);
    if (size == 0) return -1;
    std::vector<BYTE> block(size);
    if (!GetFileVersionInfoA(path, 0, size, block.data())) return -1;

    void* table = nullptr;
    UINT tableLen = 0;
    if (!VerQueryValueA(block.data(), "\\VarFileInfo\\Translation", &table, &tableLen) ||
        table == nullptr)
        return 0;  // a version resource without string tables: no texts
    const auto* pairs = static_cast<const LanguageAndCodePage*>(table);
    for (size_t i = 0; i < tableLen / sizeof(LanguageAndCodePage); ++i) {
        ReadString(block.data(), pairs[i], "FileVersion", fileVersion, fileCap);
        ReadString(block.data(), pairs[i], "ProductVersion", productVersion, productCap);
    }
    return 0;
}

}  // namespace vx
