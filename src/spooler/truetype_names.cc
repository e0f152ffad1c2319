#include "spooler/truetype_names.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "base/codepage.h"
#include "base/text.h"

namespace vx {

namespace {

// Tables larger than this are not read (a 'cmap' or 'hmtx' of a huge CJK font stays below).
constexpr uint32_t kMaxTableSize = 16u * 1024 * 1024;
constexpr uint16_t kMaxTables = 200;

using Bytes = SfntBytes;

bool ReadAt(FILE* file, uint32_t offset, uint32_t size, Bytes* out) {
    out->assign(size, 0);
    if (fseek(file, static_cast<long>(offset), SEEK_SET) != 0) return false;
    return size == 0 || fread(out->data(), 1, size, file) == size;
}

}  // namespace

uint16_t SfntU16(const SfntBytes& b, size_t at) {
    return at + 2 <= b.size() ? static_cast<uint16_t>(b[at] << 8 | b[at + 1]) : 0;
}
int16_t SfntS16(const SfntBytes& b, size_t at) {
    return static_cast<int16_t>(SfntU16(b, at));
}
uint32_t SfntU32(const SfntBytes& b, size_t at) {
    return static_cast<uint32_t>(SfntU16(b, at)) << 16 | SfntU16(b, at + 2);
}

int ReadSfntDirectory(FILE* file, std::vector<SfntTable>* tables) {
    Bytes header;
    if (!ReadAt(file, 0, 12, &header)) return -1;
    uint32_t version = SfntU32(header, 0);
    // TrueType outlines, Apple's 'true', or CFF outlines ('OTTO'): all carry the same tables.
    if (version != 0x00010000u && version != 0x74727565u && version != 0x4F54544Fu) return -1;
    uint16_t count = SfntU16(header, 4);
    if (count == 0 || count > kMaxTables) return -1;
    Bytes records;
    if (!ReadAt(file, 12, count * 16u, &records)) return -1;
    tables->clear();
    for (uint16_t i = 0; i < count; ++i) {
        SfntTable record{};
        memcpy(record.tag, &records[i * 16u], 4);
        record.offset = SfntU32(records, i * 16u + 8);
        record.length = SfntU32(records, i * 16u + 12);
        tables->push_back(record);
    }
    return 0;
}

bool ReadSfntTable(FILE* file, const std::vector<SfntTable>& tables, const char* tag,
                   SfntBytes* out) {
    for (const SfntTable& record : tables) {
        if (memcmp(record.tag, tag, 4) != 0) continue;
        if (record.length > kMaxTableSize) return false;
        return ReadAt(file, record.offset, record.length, out);
    }
    return false;
}

namespace {

// One name record's text as UTF-8: Windows records are UTF-16BE, Macintosh Roman ones are
// taken as ASCII.
void DecodeName(const Bytes& table, size_t at, size_t length, bool utf16, char* out, size_t cap) {
    if (at + length > table.size()) length = at < table.size() ? table.size() - at : 0;
    if (!utf16) {
        std::vector<char> text(length + 1, '\0');
        for (size_t i = 0; i < length; ++i) {
            uint8_t c = table[at + i];
            text[i] = c < 0x80 ? static_cast<char>(c) : '?';
        }
        CopyText(out, cap, text.data());
        return;
    }
    std::vector<char16_t> units(length / 2 + 1, 0);
    for (size_t i = 0; i < length / 2; ++i) units[i] = SfntU16(table, at + 2 * i);
    if (Utf16ToCodePage(units.data(), length / 2, kCodePageUtf8, out, cap) < 0) out[0] = '\0';
}

}  // namespace

int ParseTrueTypeNames(const SfntBytes& table, TrueTypeNames* out) {
    memset(out, 0, sizeof *out);
    uint16_t count = SfntU16(table, 2);
    size_t strings = SfntU16(table, 4);
    struct Wanted {
        uint16_t id;
        char* text;
        size_t cap;
        int quality;
    } wanted[] = {{1, out->family, sizeof out->family, 0},
                  {2, out->subfamily, sizeof out->subfamily, 0},
                  {4, out->fullName, sizeof out->fullName, 0},
                  {6, out->postScript, sizeof out->postScript, 0}};
    for (uint16_t i = 0; i < count; ++i) {
        size_t at = 6 + i * 12u;
        if (at + 12 > table.size()) break;
        uint16_t platform = SfntU16(table, at);
        uint16_t encoding = SfntU16(table, at + 2);
        uint16_t language = SfntU16(table, at + 4);
        uint16_t id = SfntU16(table, at + 6);
        int quality = 0;
        bool utf16 = true;
        if (platform == 3 && (encoding == 1 || encoding == 0 || encoding == 10)) {
            quality = language == 0x409 ? 3 : 2;
        } else if (platform == 0) {
            quality = 2;
        } else if (platform == 1 && encoding == 0) {
            quality = 1;
            utf16 = false;
        }
        for (Wanted& w : wanted) {
            if (w.id != id || quality <= w.quality) continue;
            DecodeName(table, strings + SfntU16(table, at + 10), SfntU16(table, at + 8), utf16,
                       w.text, w.cap);
            w.quality = quality;
        }
    }
    return out->family[0] != '\0' || out->fullName[0] != '\0' ? 0 : -1;
}

int ReadTrueTypeNames(FILE* file, TrueTypeNames* out) {
    std::vector<SfntTable> tables;
    SfntBytes name;
    if (ReadSfntDirectory(file, &tables) != 0 || !ReadSfntTable(file, tables, "name", &name))
        return -1;
    return ParseTrueTypeNames(name, out);
}

}  // namespace vx
