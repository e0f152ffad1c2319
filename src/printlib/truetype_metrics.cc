// Reading a TrueType / OpenType font's metrics from 'head', 'hhea', 'hmtx', 'cmap' (format 4)
// and, when present, 'OS/2' and 'post'.
#include "printlib/truetype_metrics.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "base/codepage.h"
#include "base/text.h"
#include "spooler/truetype_names.h"

namespace vx {

namespace {

using Bytes = SfntBytes;

uint16_t U16(const Bytes& b, size_t at) {
    return SfntU16(b, at);
}
int16_t S16(const Bytes& b, size_t at) {
    return SfntS16(b, at);
}
uint32_t U32(const Bytes& b, size_t at) {
    return SfntU32(b, at);
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

int ReadTrueTypeMetrics(FILE* file, FontMetrics* out, char* error, size_t errorSize) {
    memset(out, 0, sizeof *out);
    std::vector<SfntTable> tables;
    if (ReadSfntDirectory(file, &tables) != 0) {
        CopyText(error, errorSize, "not a TrueType or OpenType font file");
        return -1;
    }
    Bytes head, hhea, hmtx, cmap, name, os2, post;
    const char* missing = !ReadSfntTable(file, tables, "head", &head)   ? "head"
                          : !ReadSfntTable(file, tables, "hhea", &hhea) ? "hhea"
                          : !ReadSfntTable(file, tables, "hmtx", &hmtx) ? "hmtx"
                          : !ReadSfntTable(file, tables, "cmap", &cmap) ? "cmap"
                          : !ReadSfntTable(file, tables, "name", &name) ? "name"
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
    ParseTrueTypeNames(name, &names);
    CopyText(out->familyName, sizeof out->familyName, names.family);
    CopyText(out->fullName, sizeof out->fullName,
             names.fullName[0] != '\0' ? names.fullName : names.family);
    CopyText(out->postScriptName, sizeof out->postScriptName, names.postScript);

    for (int i = 0; i < 4; ++i) out->bbox[i] = Scale(S16(head, 36 + 2 * i), unitsPerEm);
    out->ascender = Scale(S16(hhea, 4), unitsPerEm);
    out->descender = Scale(S16(hhea, 6), unitsPerEm);
    bool hasOs2 = ReadSfntTable(file, tables, "OS/2", &os2);
    CopyText(out->weight, sizeof out->weight, WeightName(hasOs2 ? U16(os2, 4) : 0));
    if (hasOs2 && U16(os2, 0) >= 2) {
        out->xHeight = Scale(S16(os2, 86), unitsPerEm);
        out->capHeight = Scale(S16(os2, 88), unitsPerEm);
    }
    if (ReadSfntTable(file, tables, "post", &post)) {
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
