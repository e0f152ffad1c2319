// Reading font metrics from a TrueType file: a tiny font built here, table by table.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>

#include "base/fileops.h"
#include "printlib/truetype_metrics.h"
#include "spooler/truetype_names.h"
#include "test_support.h"

namespace {

using Bytes = std::string;

void Put16(Bytes* b, std::initializer_list<uint32_t> values) {
    for (uint32_t v : values) {
        b->push_back(static_cast<char>(v >> 8 & 0xFF));
        b->push_back(static_cast<char>(v & 0xFF));
    }
}
void Put32(Bytes* b, uint32_t v) {
    Put16(b, {v >> 16, v & 0xFFFF});
}
void Set16(Bytes* b, size_t at, uint32_t v) {
    (*b)[at] = static_cast<char>(v >> 8 & 0xFF);
    (*b)[at + 1] = static_cast<char>(v & 0xFF);
}
// A fixed-size table of zeros with 16-bit fields set, given as offset, value, offset, value...
Bytes Table(size_t size, std::initializer_list<int> fields) {
    Bytes t(size, '\0');
    for (const int* f = fields.begin(); f + 1 < fields.end(); f += 2)
        Set16(&t, static_cast<size_t>(f[0]), static_cast<uint16_t>(f[1]));
    return t;
}

// Glyphs: 0 .notdef, 1 "A", 2 space, 3 "é" (past the last full horizontal metric).
constexpr int kUnitsPerEm = 2048;

// Version, magic, units per em, then the bounding box (xMin, yMin, xMax, yMax).
Bytes Head() {
    return Table(54, {0, 1, 12, 0x5F0F, 14, 0x3CF5, 18, kUnitsPerEm, 36, -100, 38, -500, 40, 2000,
                      42, 1900});
}

// Ascender, descender and full metrics for glyphs 0..2.
Bytes Hhea() {
    return Table(36, {0, 1, 4, 1901, 6, -483, 34, 3});
}

Bytes Hmtx() {
    Bytes t;
    Put16(&t, {1000, 0, 1401, 0, 651, 0, 0});  // glyph 3: left side bearing only
    return t;
}

// Format 4 with a delta segment (space, "A") and a glyph-array segment ("é").
Bytes Cmap() {
    Bytes sub;
    Put16(&sub, {4, 0, 0, 8, 8, 2, 0});  // format, length (set below), language, segCountX2...
    Put16(&sub, {0x20, 0x41, 0xE9, 0xFFFF, 0, 0x20, 0x41, 0xE9, 0xFFFF});  // ends, pad, starts
    const uint32_t deltas[] = {static_cast<uint16_t>(2 - 0x20), static_cast<uint16_t>(1 - 0x41)};
    Put16(&sub, {deltas[0], deltas[1], 0, 1});
    // idRangeOffset: only the third segment uses the glyph array, which starts right after
    // the four offsets (two entries on from its own); it holds the glyph of "é".
    Put16(&sub, {0, 0, 4, 0, 3});
    Set16(&sub, 2, static_cast<uint32_t>(sub.size()));
    Bytes t;
    Put16(&t, {0, 1, 3, 1});
    Put32(&t, 12);
    return t + sub;
}

Bytes Name() {
    struct Record {
        uint16_t platform, encoding, language, id;
        std::string text;
    };
    const Record records[] = {{3, 1, 0x409, 1, "Tiny Sans"},
                              {3, 1, 0x409, 2, "Bold"},
                              {1, 0, 0, 4, "Tiny Sans Bold"},
                              {3, 1, 0x407, 4, "Tiny Sans Fett"},
                              {3, 1, 0x409, 6, "TinySans-Bold"}};
    Bytes strings;
    Bytes t;
    Put16(&t, {0, 5, 6 + 5 * 12});
    for (const Record& r : records) {
        Bytes encoded;
        for (char c : r.text) {
            if (r.platform == 3) encoded.push_back('\0');
            encoded.push_back(c);
        }
        Put16(&t, {r.platform, r.encoding, r.language, r.id, static_cast<uint32_t>(encoded.size()),
                   static_cast<uint32_t>(strings.size())});
        strings += encoded;
    }
    return t + strings;
}

// Italic angle -12.5 degrees (16.16), underline position and thickness.
Bytes Post() {
    return Table(32, {0, 3, 4, -13, 6, 0x8000, 8, -150, 10, 100});
}

// Weight, x-height and cap height.
Bytes Os2() {
    return Table(96, {0, 2, 4, 700, 86, 1120, 88, 1493});
}

// The sfnt container: table directory sorted by tag, tables 4-byte aligned.
Bytes TinyFont() {
    std::map<std::string, Bytes> tables = {{"OS/2", Os2()},  {"cmap", Cmap()}, {"head", Head()},
                                           {"hhea", Hhea()}, {"hmtx", Hmtx()}, {"name", Name()},
                                           {"post", Post()}};
    Bytes font;
    Put32(&font, 0x00010000);
    Put16(&font, {static_cast<uint32_t>(tables.size()), 0, 0, 0});
    uint32_t offset = 12 + 16 * static_cast<uint32_t>(tables.size());
    Bytes body;
    for (const auto& [tag, table] : tables) {
        font += tag;
        Put32(&font, 0);
        Put32(&font, offset + static_cast<uint32_t>(body.size()));
        Put32(&font, static_cast<uint32_t>(table.size()));
        body += table;
        while (body.size() % 4 != 0) body.push_back('\0');
    }
    return font + body;
}

using FilePtr = vx::StreamPtr;

FilePtr OpenFont(const vxtest::ScratchDir& dir, const Bytes& content) {
    std::string path = dir.File("font.ttf");
    EXPECT_TRUE(vxtest::WriteWholeFile(path, content));
    return FilePtr(fopen(path.c_str(), "rb"));
}

TEST(TrueTypeFont, NamesAndMetricsScaledToThousandthsOfAnEm) {
    vxtest::ScratchDir dir;
    FilePtr file = OpenFont(dir, TinyFont());
    auto metrics = std::make_unique<vx::FontMetrics>();
    char error[256] = {};
    ASSERT_EQ(vx::ReadTrueTypeMetrics(file.get(), metrics.get(), error, sizeof error), 0) << error;
    EXPECT_EQ(metrics->widths['A'], 684);  // 1401 / 2048, rounded
    EXPECT_EQ(metrics->widths[' '], 318);  // 651 / 2048
    // Past the last full metric a glyph has the last advance; found through the glyph array.
    EXPECT_EQ(metrics->widths[0xE9], 318);
    EXPECT_EQ(metrics->widths['B'], -1);   // not in the font
    EXPECT_EQ(metrics->widths[0x80], -1);  // the euro sign (1252) is not either
    EXPECT_EQ(metrics->widths[10], -1);    // control codes never count
    EXPECT_EQ(metrics->ascender, 928);
    EXPECT_EQ(metrics->descender, -236);
    EXPECT_EQ(metrics->bbox[0], -49);
    EXPECT_EQ(metrics->bbox[1], -244);
    EXPECT_EQ(metrics->capHeight, 729);
    EXPECT_EQ(metrics->xHeight, 547);
    EXPECT_EQ(metrics->italicAngleTenths, -125);
    EXPECT_EQ(metrics->underlinePosition, -73);
    EXPECT_STREQ(metrics->weight, "Bold");
    EXPECT_STREQ(metrics->familyName, "Tiny Sans");
    EXPECT_FALSE(metrics->fixedPitch);

    vx::TrueTypeNames names;
    ASSERT_EQ(vx::ReadTrueTypeNames(file.get(), &names), 0);
    EXPECT_STREQ(names.family, "Tiny Sans");
    EXPECT_STREQ(names.subfamily, "Bold");
    // A Windows record in German beats the Macintosh one; English would beat both.
    EXPECT_STREQ(names.fullName, "Tiny Sans Fett");
    EXPECT_STREQ(names.postScript, "TinySans-Bold");
}

TEST(TrueTypeFont, DamagedFilesFailWithoutReadingPastTheirEnd) {
    vxtest::ScratchDir dir;
    Bytes font = TinyFont();
    auto metrics = std::make_unique<vx::FontMetrics>();
    char error[256];
    // Every cut through the directory and the tables either fails cleanly or still reads.
    for (size_t length = 0; length < font.size(); length += 7) {
        FilePtr file = OpenFont(dir, font.substr(0, length));
        vx::ReadTrueTypeMetrics(file.get(), metrics.get(), error, sizeof error);
        vx::TrueTypeNames names;
        vx::ReadTrueTypeNames(file.get(), &names);
    }
    FilePtr text = OpenFont(dir, "this is not a font at all, only some text in a file");
    EXPECT_EQ(vx::ReadTrueTypeMetrics(text.get(), metrics.get(), error, sizeof error), -1);
    EXPECT_NE(std::string(error).find("not a TrueType"), std::string::npos);

    // The offset of a table the metrics need ('cmap', the second record) far beyond the end.
    Bytes wild = font;
    Set16(&wild, 12 + 16 + 8, 0x7FFF);
    FilePtr damaged = OpenFont(dir, wild);
    EXPECT_EQ(vx::ReadTrueTypeMetrics(damaged.get(), metrics.get(), error, sizeof error), -1);
}

}  // namespace
