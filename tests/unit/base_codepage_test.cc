#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/codepage.h"

namespace {

using vx::kCodePageLatin1;
using vx::kCodePageUtf8;

std::string To(uint32_t codePage, const std::u16string& text) {
    char out[64];
    int n = vx::Utf16ToCodePage(text.data(), text.size(), codePage, out, sizeof out);
    EXPECT_GE(n, 0);
    return n < 0 ? std::string() : std::string(out, static_cast<size_t>(n));
}

std::u16string From(uint32_t codePage, const std::string& bytes) {
    char16_t out[64];
    int n = vx::CodePageToUtf16(bytes.data(), bytes.size(), codePage, out, 64);
    EXPECT_GE(n, 0);
    return n < 0 ? std::u16string() : std::u16string(out, static_cast<size_t>(n));
}

// 0x80..0x9F are not Latin-1 in this code page; the five bytes it leaves undefined pass through
// as the same C1 controls; what it lacks becomes '?' (A-macron gets no best-fit 'A'), one for
// each half of a pair outside the BMP.
TEST(CodePage1252, RoundTripsAndMarksWhatItLacks) {
    const std::u16string text =
        u"Gr\u00FC\u00DF \u00C4\u00D6 \u20AC \u2026 \u201E\u201C \u0160\u0178";
    const std::string bytes = "Gr\xFC\xDF \xC4\xD6 \x80 \x85 \x84\x93 \x8A\x9F";
    EXPECT_EQ(To(kCodePageLatin1, text), bytes);
    EXPECT_EQ(From(kCodePageLatin1, bytes), text);
    EXPECT_EQ(From(kCodePageLatin1, "\x81\x8D\x9D"), u"\u0081\u008D\u009D");
    EXPECT_EQ(To(kCodePageLatin1, u"\u0081\u008D\u009D"), "\x81\x8D\x9D");
    EXPECT_EQ(To(kCodePageLatin1, u"a\u4E2Db\u0100c"), "a?b?c");
    EXPECT_EQ(To(kCodePageLatin1, u"x\U0001F600y"), "x??y");
}

// Malformed input either way becomes U+FFFD.
TEST(CodePageUtf8, RoundTripsIncludingSurrogatePairs) {
    const std::u16string text = u"\u00E4\u20AC\U0001F600z";
    const std::string bytes = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";
    EXPECT_EQ(To(kCodePageUtf8, text), bytes);
    EXPECT_EQ(From(kCodePageUtf8, bytes), text);
    EXPECT_EQ(From(kCodePageUtf8, "a\xFFz\xE2\x82"), u"a\uFFFDz\uFFFD");
    const char16_t loneHalf[] = {u'a', 0xD800, u'z', 0};
    EXPECT_EQ(To(kCodePageUtf8, loneHalf), "a\xEF\xBF\xBDz");
}

TEST(CodePageConversion, TerminatorLengthAndUnsupportedCodePage) {
    char out[16];
    EXPECT_EQ(vx::Utf16ToCodePage(u"abc", SIZE_MAX, kCodePageLatin1, out, sizeof out), 3);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(vx::Utf16ToCodePage(u"abcdef", 2, kCodePageLatin1, out, sizeof out), 2);
    EXPECT_STREQ(out, "ab");
    char16_t wide[16];
    EXPECT_EQ(vx::CodePageToUtf16("xyz", SIZE_MAX, kCodePageUtf8, wide, 16), 3);
    EXPECT_EQ(std::u16string(wide), u"xyz");
    EXPECT_EQ(vx::Utf16ToCodePage(u"abc", SIZE_MAX, 54321, out, sizeof out), -1);
    EXPECT_EQ(vx::CodePageToUtf16("abc", SIZE_MAX, 54321, wide, 16), -1);
}

TEST(CodePageConversion, CuttingAtTheBufferNeverSplitsACharacterOrOverruns) {
    char out[8];
    memset(out, '#', sizeof out);
    EXPECT_EQ(vx::Utf16ToCodePage(u"\u00C4xyzuvw", SIZE_MAX, kCodePageLatin1, out, 5), 4);
    EXPECT_STREQ(out, "\xC4xyz");
    EXPECT_EQ(out[5], '#');

    // "a" + four-byte emoji: with room for four bytes only "a" fits whole.
    memset(out, '#', sizeof out);
    EXPECT_EQ(vx::Utf16ToCodePage(u"a\U0001F600", SIZE_MAX, kCodePageUtf8, out, 5), 1);
    EXPECT_STREQ(out, "a");
    EXPECT_EQ(out[5], '#');

    // A surrogate pair that does not fit whole is left out, never half of it kept.
    char16_t wide[6];
    for (char16_t& unit : wide) unit = u'#';
    EXPECT_EQ(vx::CodePageToUtf16("ab\xF0\x9F\x98\x80", SIZE_MAX, kCodePageUtf8, wide, 4), 2);
    EXPECT_EQ(std::u16string(wide), u"ab");
    EXPECT_EQ(wide[4], u'#');
    EXPECT_EQ(vx::CodePageToUtf16("ab\xF0\x9F\x98\x80", SIZE_MAX, kCodePageUtf8, wide, 5), 4);
    EXPECT_EQ(std::u16string(wide), u"ab\U0001F600");
}

}  // namespace
