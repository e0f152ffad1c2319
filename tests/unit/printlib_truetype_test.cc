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

// Glyphs: 0 .notdef, 1 "A", 2 space, 3 "é" (past the last full horizontal metric).
constexpr int kUnitsPerEm = 2048;

Bytes Head() {
    Bytes t(54, '\0');
    Set16(&t, 0, 1);
    Set16(&t, 12, 0x5F0F);
    Set16(&t, 14, 0x3CF5);
    Set16(&t, 18, kUnitsPerEm);
    Set16(&t, 36, static_cast<uint16_t>(-100));  // xMin
    Set16(&t, 38, static_cast<uint16_t>(-500));  // yMin
    Set16(&t, 40, 2000);                         // xMax
    Set16(&t, 42, 1900);                         // yMax
    return t;
}

Bytes Hhea() {
    Bytes t(36, '\0');
    Set16(&t, 0, 1);
    Set16(&t, 4, 1901);                         // ascender
    Set16(&t, 6, static_cast<uint16_t>(-483));  // descender
    Set16(&t, 34, 3);                           // full metrics for glyphs 0..2
    return t;
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

Bytes Post() {
    Bytes t(32, '\0');
    Set16(&t, 0, 3);
    int32_t angle = -12 * 65536 - 32768;  // -12.5 degrees
    Set16(&t, 4, static_cast<uint32_t>(angle) >> 16);
    Set16(&t, 6, static_cast<uint32_t>(angle) & 0xFFFF);
    Set16(&t, 8, static_cast<uint16_t>(-150));
    Set16(&t, 10, 100);
    return t;
}

Bytes Os2() {
    Bytes t(96, '\0');
    Set16(&t, 0, 2);
    Set16(&t, 4, 700);
    Set16(&t, 86, 1120);
    Set16(&t, 88, 1493);
    return t;
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

TEST(TrueTypeFont, NamesPreferWindowsEnglishRecords) {
    vxtest::ScratchDir dir;
    FilePtr file = OpenFont(dir, TinyFont());
    vx::TrueTypeNames names;
    ASSERT_EQ(vx::ReadTrueTypeNames(file.get(), &names), 0);
    EXPECT_STREQ(names.family, "Tiny Sans");
    EXPECT_STREQ(names.subfamily, "Bold");
    // A Windows record in German beats the Macintosh one; English would beat both.
    EXPECT_STREQ(names.fullName, "Tiny Sans Fett");
    EXPECT_STREQ(names.postScript, "TinySans-Bold");
}

TEST(TrueTypeFont, MetricsAreScaledToThousandthsOfAnEm) {
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
