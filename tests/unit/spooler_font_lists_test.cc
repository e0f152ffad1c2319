// Where font names come from without a font service: the "*Font" lines of a PPD, and the family
// names of the font files under a directory. Every PPD and font here is made by the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "base/fileops.h"
#include "spooler/font_files.h"
#include "spooler/ppd_fonts.h"
#include "test_support.h"

namespace {

using Names = std::vector<std::string>;

int Collect(void* context, const char* name) {
    static_cast<Names*>(context)->push_back(name);
    return 0;
}

// Stops after the second name.
int CollectTwo(void* context, const char* name) {
    auto* names = static_cast<Names*>(context);
    names->push_back(name);
    return names->size() >= 2 ? 1 : 0;
}

// Writes the PPD and reads its font names into *names; returns what the reader returns.
int ReadPpd(const vxtest::ScratchDir& dir, const std::string& text, Names* names,
            vx::FontNameVisitor visit = Collect) {
    std::string path = dir.File("printer.ppd");
    EXPECT_TRUE(vxtest::WriteWholeFile(path, text));
    vx::StreamPtr file(fopen(path.c_str(), "rb"));
    return vx::ReadPpdFontNames(file.get(), visit, names);
}

TEST(PpdFonts, EveryFontLineInFileOrderAndNothingElse) {
    vxtest::ScratchDir dir;
    // LF, CR LF and a lone CR all end lines in PPD files. The long lines are cut to the 255
    // characters of a PPD line: the name never overflows, and the quote beyond the cut still
    // closes its value (had it been lost, the rest of the file would read as one quoted value).
    std::string ppd =
        "*PPD-Adobe: \"4.3\"\r\n"
        "*% *Font InComment: a comment may hold an unbalanced \" quote\n"
        "*cupsFilter2: \"" +
        std::string(400, 'x') +
        "\"\n"
        "*DefaultFont: Courier\n"
        "*Font Courier: Standard \"(002.004S)\" Standard ROM\r\n"
        "*FontFoo Bar: \"another keyword\"\n"
        "*JCLBegin: \"<1B>%-12345X@PJL JOB<0A>\n"
        "*Font InsideAValue: the quoted value goes on over lines\n"
        "\"\n"
        "*End\n"
        "*Font Helvetica-Bold: Standard \"(001.007S)\" Standard ROM\r"
        "*Font \tSymbol: Special \"(001.007S)\" Special ROM\n"
        "*Font Courier: Standard \"(002.004S)\" Standard ROM\n"
        "*Font : no name\n"
        "*Font " +
        std::string(300, 'N') +
        ": Standard \"(1)\" Standard ROM\n"
        "*Font Times-Roman/Times Roman: Standard \"(001.007S)\" Standard ROM";
    Names names;
    EXPECT_EQ(ReadPpd(dir, ppd, &names), 6);
    EXPECT_EQ(names, (Names{"Courier", "Helvetica-Bold", "Symbol", "Courier", std::string(249, 'N'),
                            "Times-Roman"}));
    // A visitor may stop the reading; without one the names are only counted.
    Names two;
    EXPECT_EQ(ReadPpd(dir, ppd, &two, CollectTwo), 2);
    EXPECT_EQ(two, (Names{"Courier", "Helvetica-Bold"}));
    EXPECT_EQ(ReadPpd(dir, ppd, nullptr, nullptr), 6);
    EXPECT_EQ(vx::ReadPpdFontNames(nullptr, Collect, &names), -1);
}

// ---- font files ----

using Bytes = std::string;

void Put16(Bytes* b, std::initializer_list<uint32_t> values) {
    for (uint32_t v : values) {
        b->push_back(static_cast<char>(v >> 8 & 0xFF));
        b->push_back(static_cast<char>(v & 0xFF));
    }
}

// A font file that holds only its 'name' table: Windows English records, UTF-16BE.
Bytes NamesOnlyFont(const std::string& family, const std::string& fullName) {
    std::vector<std::pair<uint16_t, std::string>> records;
    if (!family.empty()) records.push_back({1, family});
    if (!fullName.empty()) records.push_back({4, fullName});
    Bytes strings;
    Bytes name;
    const auto count = static_cast<uint32_t>(records.size());
    Put16(&name, {0, count, 6 + count * 12});
    for (const auto& [id, text] : records) {
        Put16(&name, {3, 1, 0x409, id, static_cast<uint32_t>(text.size() * 2),
                      static_cast<uint32_t>(strings.size())});
        for (char c : text) {
            strings.push_back('\0');
            strings.push_back(c);
        }
    }
    name += strings;
    Bytes font;
    Put16(&font, {1, 0, 1, 0, 0, 0});  // version 1.0, one table
    font += "name";
    Put16(&font, {0, 0, 0, 28, 0, static_cast<uint32_t>(name.size())});
    return font + name;
}

void WriteFont(const vxtest::ScratchDir& dir, const std::string& relative, const Bytes& content) {
    std::filesystem::path path = std::filesystem::path(dir.Path()) / relative;
    std::filesystem::create_directories(path.parent_path());
    ASSERT_TRUE(vxtest::WriteWholeFile(path.string(), content));
}

TEST(FontFiles, TheFamilyOfEveryFontFileBelowTheDirectory) {
    vxtest::ScratchDir dir;
    WriteFont(dir, "Tiny.ttf", NamesOnlyFont("Tiny Sans", "Tiny Sans Regular"));
    WriteFont(dir, "truetype/tiny/TinyBold.ttf", NamesOnlyFont("Tiny Sans", "Tiny Sans Bold"));
    WriteFont(dir, "opentype/a/b/c/Other.OTF", NamesOnlyFont("Other Serif", ""));
    WriteFont(dir, "Lonely.otf", NamesOnlyFont("", "Lonely Full Name"));
    // Not fonts: another extension, and text that only carries a font's name.
    WriteFont(dir, "type1/Tiny.afm", NamesOnlyFont("Type One", ""));
    WriteFont(dir, "Broken.ttf", "this is no font, only text in a file named like one");
    WriteFont(dir, "Empty.ttf", "");

    Names names;
    EXPECT_EQ(vx::ListFontFamilies(dir.Path().c_str(), Collect, &names), 4);
    std::sort(names.begin(), names.end());  // directory order is the file system's
    EXPECT_EQ(names, (Names{"Lonely Full Name", "Other Serif", "Tiny Sans", "Tiny Sans"}));

    Names two;
    EXPECT_EQ(vx::ListFontFamilies(dir.Path().c_str(), CollectTwo, &two), 2);
    EXPECT_EQ(vx::ListFontFamilies(dir.Path().c_str(), nullptr, nullptr), 4);
    // A missing directory has no fonts.
    EXPECT_EQ(vx::ListFontFamilies(dir.File("missing").c_str(), Collect, &names), 0);
    EXPECT_EQ(vx::ListFontFamilies("", Collect, &names), 0);
}

}  // namespace
