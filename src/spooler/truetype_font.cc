#include "spooler/truetype_font.h"

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

using Bytes = std::vector<uint8_t>;

// Big-endian reads that give 0 beyond the end: a damaged table yields zeros, never a crash.
uint16_t U16(const Bytes& b, size_t at) {
    return at + 2 <= b.size() ? static_cast<uint16_t>(b[at] << 8 | b[at + 1]) : 0;
}
int16_t S16(const Bytes& b, size_t at) {
    return static_cast<int16_t>(U16(b, at));
}
uint32_t U32(const Bytes& b, size_t at) {
    return static_cast<uint32_t>(U16(b, at)) << 16 | U16(b, at + 2);
}

bool ReadAt(FILE* file, uint32_t offset, uint32_t size, Bytes* out) {
    out->assign(size, 0);
    if (fseek(file, static_cast<long>(offset), SEEK_SET) != 0) return false;
    return size == 0 || fread(out->data(), 1, size, file) == size;
}

struct TableRecord {
    char tag[5];
    uint32_t offset;
    uint32_t length;
};

int ReadDirectory(FILE* file, std::vector<TableRecord>* tables) {
    Bytes header;
    if (!ReadAt(file, 0, 12, &header)) return -1;
    uint32_t version = U32(header, 0);
    // TrueType outlines, Apple's 'true', or CFF outlines ('OTTO'): all carry the same tables.
    if (version != 0x00010000u && version != 0x74727565u && version != 0x4F54544Fu) return -1;
    uint16_t count = U16(header, 4);
    if (count == 0 || count > kMaxTables) return -1;
    Bytes records;
    if (!ReadAt(file, 12, count * 16u, &records)) return -1;
    tables->clear();
    for (uint16_t i = 0; i < count; ++i) {
        TableRecord record{};
        memcpy(record.tag, &records[i * 16u], 4);
        record.offset = U32(records, i * 16u + 8);
        record.length = U32(records, i * 16u + 12);
        tables->push_back(record);
    }
    return 0;
}

// Reads a table; false when it is missing or too large.
bool ReadTable(FILE* file, const std::vector<TableRecord>& tables, const char* tag, Bytes* out) {
    for (const TableRecord& record : tables) {
        if (memcmp(record.tag, tag, 4) != 0) continue;
        if (record.length > kMaxTableSize) return false;
        return ReadAt(file, record.offset, record.length, out);
    }
    return false;
}

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
    for (size_t i = 0; i < length / 2; ++i) units[i] = U16(table, at + 2 * i);
    if (Utf16ToCodePage(units.data(), length / 2, kCodePageUtf8, out, cap) < 0) out[0] = '\0';
}

// Picks, for each name id, the Windows English record, else any Windows Unicode record, else
// a Macintosh Roman one.
int ParseNames(const Bytes& table, TrueTypeNames* out) {
    memset(out, 0, sizeof *out);
    uint16_t count = U16(table, 2);
    size_t strings = U16(table, 4);
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
        uint16_t platform = U16(table, at);
        uint16_t encoding = U16(table, at + 2);
        uint16_t language = U16(table, at + 4);
        uint16_t id = U16(table, at + 6);
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
            DecodeName(table, strings + U16(table, at + 10), U16(table, at + 8), utf16, w.text,
                       w.cap);
            w.quality = quality;
        }
    }
    return out->family[0] != '\0' || out->fullName[0] != '\0' ? 0 : -1;
}

// The glyph of a character through a format 4 subtable starting at 'at'; 0 when none.
uint16_t GlyphOf(const Bytes& cmap, size_t at, uint32_t code) {
    uint16_t segments = U16(cmap, at + 6) / 2;
    size_t ends = at + 14;
    size_t starts = ends + segments * 2u + 2;
    size_t deltas = starts + segments * 2u;
    size_t rangeOffsets = deltas + segments * 2u;
    for (uint16_t i = 0; i < segments; ++i) {
        if (U16(cmap, ends + 2u * i) < code) continue;
        uint16_t start = U16(cmap, starts + 2u * i);
        if (start > code) return 0;
        uint16_t delta = U16(cmap, deltas + 2u * i);
        uint16_t rangeOffset = U16(cmap, rangeOffsets + 2u * i);
        if (rangeOffset == 0) return static_cast<uint16_t>(code + delta);
        size_t glyphAt = rangeOffsets + 2u * i + rangeOffset + 2u * (code - start);
        uint16_t glyph = U16(cmap, glyphAt);
        return glyph == 0 ? 0 : static_cast<uint16_t>(glyph + delta);
    }
    return 0;
}

// The offset of the best format 4 subtable; symbolFont is set for a (3,0) symbol mapping.
bool FindUnicodeMap(const Bytes& cmap, size_t* at, bool* symbolFont) {
    uint16_t count = U16(cmap, 2);
    int best = 0;
    for (uint16_t i = 0; i < count; ++i) {
        size_t record = 4 + i * 8u;
        uint16_t platform = U16(cmap, record);
        uint16_t encoding = U16(cmap, record + 2);
        uint32_t offset = U32(cmap, record + 4);
        if (offset >= cmap.size() || U16(cmap, offset) != 4) continue;
        int quality = platform == 3 && encoding == 1   ? 3
                      : platform == 0                  ? 2
                      : platform == 3 && encoding == 0 ? 1
                                                       : 0;
        if (quality > best) {
            best = quality;
            *at = offset;
            *symbolFont = quality == 1;
        }
    }
    return best > 0;
}

int Scale(int value, int unitsPerEm) {
    int64_t scaled = static_cast<int64_t>(value) * 1000;
    scaled += scaled >= 0 ? unitsPerEm / 2 : -(unitsPerEm / 2);
    return static_cast<int>(scaled / unitsPerEm);
}

const char* WeightName(uint16_t weightClass) {
    if (weightClass == 0) return "Regular";
    static const char* const kNames[] = {"Thin",     "ExtraLight", "Light",     "Regular", "Medium",
                                         "SemiBold", "Bold",       "ExtraBold", "Black"};
    int index = (weightClass + 50) / 100 - 1;
    if (index < 0) index = 0;
    if (index > 8) index = 8;
    return kNames[index];
}

}  // namespace

int ReadTrueTypeNames(FILE* file, TrueTypeNames* out) {
    std::vector<TableRecord> tables;
    Bytes name;
    if (ReadDirectory(file, &tables) != 0 || !ReadTable(file, tables, "name", &name)) return -1;
    return ParseNames(name, out);
}

int ReadTrueTypeMetrics(FILE* file, FontMetrics* out, char* error, size_t errorSize) {
    memset(out, 0, sizeof *out);
    std::vector<TableRecord> tables;
    if (ReadDirectory(file, &tables) != 0) {
        CopyText(error, errorSize, "not a TrueType or OpenType font file");
        return -1;
    }
    Bytes head, hhea, hmtx, cmap, name, os2, post;
    const char* missing = !ReadTable(file, tables, "head", &head)   ? "head"
                          : !ReadTable(file, tables, "hhea", &hhea) ? "hhea"
                          : !ReadTable(file, tables, "hmtx", &hmtx) ? "hmtx"
                          : !ReadTable(file, tables, "cmap", &cmap) ? "cmap"
                          : !ReadTable(file, tables, "name", &name) ? "name"
                                                                    : nullptr;
    if (missing != nullptr) {
        FormatText(error, errorSize, "the font has no readable '%s' table", missing);
        return -1;
    }
    int unitsPerEm = U16(head, 18);
    if (unitsPerEm < 16 || unitsPerEm > 16384) {
        FormatText(error, errorSize, "the font's 'head' table gives %d units per em", unitsPerEm);
        return -1;
    }
    TrueTypeNames names;
    ParseNames(name, &names);
    CopyText(out->familyName, sizeof out->familyName, names.family);
    CopyText(out->fullName, sizeof out->fullName,
             names.fullName[0] != '\0' ? names.fullName : names.family);
    CopyText(out->postScriptName, sizeof out->postScriptName, names.postScript);

    for (int i = 0; i < 4; ++i) out->bbox[i] = Scale(S16(head, 36 + 2 * i), unitsPerEm);
    out->ascender = Scale(S16(hhea, 4), unitsPerEm);
    out->descender = Scale(S16(hhea, 6), unitsPerEm);
    bool hasOs2 = ReadTable(file, tables, "OS/2", &os2);
    CopyText(out->weight, sizeof out->weight, WeightName(hasOs2 ? U16(os2, 4) : 0));
    if (hasOs2 && U16(os2, 0) >= 2) {
        out->xHeight = Scale(S16(os2, 86), unitsPerEm);
        out->capHeight = Scale(S16(os2, 88), unitsPerEm);
    }
    if (ReadTable(file, tables, "post", &post)) {
        // Fixed 16.16 degrees, kept in tenths.
        int32_t angle = static_cast<int32_t>(U32(post, 4));
        out->italicAngleTenths = static_cast<int>((static_cast<int64_t>(angle) * 10) / 65536);
        out->underlinePosition = Scale(S16(post, 8), unitsPerEm);
        out->underlineThickness = Scale(S16(post, 10), unitsPerEm);
        out->fixedPitch = U32(post, 12) != 0;
    }

    size_t map = 0;
    bool symbolFont = false;
    if (!FindUnicodeMap(cmap, &map, &symbolFont)) {
        CopyText(error, errorSize, "the font has no Unicode character map of format 4");
        return -1;
    }
    uint16_t metricCount = U16(hhea, 34);
    if (metricCount == 0 || metricCount * 4u > hmtx.size()) {
        CopyText(error, errorSize, "the font's 'hmtx' table is shorter than 'hhea' says");
        return -1;
    }
    for (int code = 0; code < kMetricCodeCount; ++code) {
        char byte = static_cast<char>(code);
        char16_t unit[2] = {};
        if (code < 32 || CodePageToUtf16(&byte, 1, kCodePageLatin1, unit, 2) != 1) {
            out->widths[code] = -1;
            continue;
        }
        // Symbol fonts map their characters to U+F000 + code.
        uint32_t character = symbolFont ? 0xF000u + static_cast<uint32_t>(code) : unit[0];
        uint16_t glyph = GlyphOf(cmap, map, character);
        if (glyph == 0) {
            out->widths[code] = -1;
            continue;
        }
        // Glyphs past the last full metric share its advance.
        uint16_t index = glyph < metricCount ? glyph : static_cast<uint16_t>(metricCount - 1);
        out->widths[code] = Scale(U16(hmtx, index * 4u), unitsPerEm);
    }
    return 0;
}

}  // namespace vx
