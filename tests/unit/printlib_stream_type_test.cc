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

TEST(StreamType, MarkersInTheFirstBytesDecideAndTheLibraryMarkerWins) {
    const std::string late(zel::kStreamProbeSize - 2, 'x');
    const struct {
        std::string data;
        int type, wide;
    } cases[] = {
        {"plain text", ZEL_STREAM_RAW, 0},
        {"header %PDF-1.7", ZEL_STREAM_PDF, 0},
        {"XTG data", ZEL_STREAM_PDF, 0},
        {" XTG data", ZEL_STREAM_RAW, 0},
        {"%PDF \x1b%ZELWIN", ZEL_STREAM_ZELWIN, 0},
        {Utf16("\xff\xfe%PDF-1.4"), ZEL_STREAM_PDF, 1},
        {Utf16("x\x1b%ZELWIN"), ZEL_STREAM_ZELWIN, 1},
        {late + "%PDF", ZEL_STREAM_RAW, 0},
        // The single-byte search stops at a NUL; the UTF-16 one does not.
        {std::string("ab\0%PDF", 7), ZEL_STREAM_RAW, 0},
    };
    for (const auto& c : cases) {
        int wide = -1;
        EXPECT_EQ(TypeOf(c.data, &wide), c.type) << c.data;
        EXPECT_EQ(wide, c.wide) << c.data;
    }
    int wide = 0;
    EXPECT_EQ(zel::StreamTypeOfFile("/no/such/file/anywhere", &wide), -1);
}

}  // namespace
