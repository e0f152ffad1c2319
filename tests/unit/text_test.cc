#include "base/text.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(BoundedText, CopyCutsAndTerminates) {
    char buf[8];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(vx::CopyText(buf, "abcdefghijk"), 7u);
    EXPECT_STREQ(buf, "abcdefg");
    EXPECT_EQ(vx::CopyText(buf, sizeof buf, nullptr), 0u);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(vx::CopyTextN(buf, sizeof buf, "abcdef", 3), 3u);
    EXPECT_STREQ(buf, "abc");
}

TEST(BoundedText, AppendAndFormatNeverOverflow) {
    char buf[10] = "abc";
    EXPECT_EQ(vx::AppendText(buf, "defghijkl"), 9u);
    EXPECT_STREQ(buf, "abcdefghi");
    EXPECT_EQ(vx::AppendText(buf, "z"), 9u);
    char line[6];
    EXPECT_EQ(vx::FormatText(line, sizeof line, "%d-%s", 1234, "abcdef"), 5u);
    EXPECT_STREQ(line, "1234-");
    char out[12] = "ab";
    vx::AppendFormat(out, sizeof out, "%05d", 42);
    EXPECT_STREQ(out, "ab00042");
}

TEST(SettingText, HexadecimalDecimalAndLeadingDigits) {
    EXPECT_EQ(vx::ParseSettingInt("0x1F"), 31);
    EXPECT_EQ(vx::ParseSettingInt("0X10"), 16);
    EXPECT_EQ(vx::ParseSettingInt("12abc"), 12);
    EXPECT_EQ(vx::ParseSettingInt(""), 0);
    EXPECT_EQ(vx::ParseSettingInt("abc"), 0);
    EXPECT_EQ(vx::ParseSettingInt("-7"), -7);
    // A hexadecimal value beyond the signed range keeps its bit pattern.
    EXPECT_EQ(static_cast<uint32_t>(vx::ParseSettingInt("0xFFFFFFFF")), 0xFFFFFFFFu);
    // Decimal-only conversion does not know "0x".
    EXPECT_EQ(vx::ParseDecimalInt("0x1F"), 0);
}

TEST(SettingText, NameComparisons) {
    EXPECT_TRUE(vx::EqualsNoCase("LogLevel", "LOGLEVEL"));
    EXPECT_FALSE(vx::EqualsNoCase("LogLevel", "LogLeve"));
    EXPECT_TRUE(vx::StartsWith("Auth7", "Auth"));
    EXPECT_TRUE(vx::EndsWithChar("dir/", '/'));
    EXPECT_FALSE(vx::EndsWithChar("", '/'));
}

}  // namespace
