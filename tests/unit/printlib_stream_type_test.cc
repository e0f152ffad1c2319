// Telling raw, PDF and print-library streams apart for jobs queued in the enhanced mode.
#include <gtest/gtest.h>

#include <string>

#include "printlib/stream_type.h"
#include "printlib/zelwin.h"

namespace {

int TypeOf(const std::string& data, int* wide) {
    return zel::StreamTypeOf(reinterpret_cast<const unsigned char*>(data.data()), data.size(),
                             wide);
}

std::string Utf16(const std::string& text) {
    std::string wide;
    for (char c : text) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

TEST(StreamType, MarkersDecideAndTheLibraryMarkerWins) {
    int wide = -1;
    EXPECT_EQ(TypeOf("plain text", &wide), ZEL_STREAM_RAW);
    EXPECT_EQ(wide, 0);
    EXPECT_EQ(TypeOf("header %PDF-1.7", &wide), ZEL_STREAM_PDF);
    EXPECT_EQ(TypeOf("XTG data", &wide), ZEL_STREAM_PDF);
    EXPECT_EQ(TypeOf(" XTG data", &wide), ZEL_STREAM_RAW);
    EXPECT_EQ(TypeOf("%PDF \x1b%ZELWIN", &wide), ZEL_STREAM_ZELWIN);
    EXPECT_EQ(wide, 0);
}

TEST(StreamType, Utf16MarkersCountAndSetWide) {
    int wide = 0;
    EXPECT_EQ(TypeOf(Utf16("\xff\xfe%PDF-1.4"), &wide), ZEL_STREAM_PDF);
    EXPECT_EQ(wide, 1);
    EXPECT_EQ(TypeOf(Utf16("x\x1b%ZELWIN"), &wide), ZEL_STREAM_ZELWIN);
    EXPECT_EQ(wide, 1);
}

TEST(StreamType, OnlyTheFirstBytesAreLookedAt) {
    int wide = 0;
    std::string late(zel::kStreamProbeSize - 2, 'x');
    EXPECT_EQ(TypeOf(late + "%PDF", &wide), ZEL_STREAM_RAW);
    // The single-byte search stops at a NUL; the UTF-16 one does not.
    EXPECT_EQ(TypeOf(std::string("ab\0%PDF", 7), &wide), ZEL_STREAM_RAW);
    EXPECT_EQ(zel::StreamTypeOfFile("/no/such/file/anywhere", &wide), -1);
}

}  // namespace
