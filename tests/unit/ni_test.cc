// The network interface layer over loopback: dual-stack peers, raw reads with their time-outs and
// modes, refused handles, addresses and the layer's trace file. Making room is test_limits.py's.
#include "base/ni.h"

#include <gtest/gtest.h>

#include <string>

#include "loopback_pair.h"
#include "test_support.h"

namespace {

using vxtest::LoopbackPair;

class NiLayer : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk); }
};

vx::NiAddress Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    vx::NiAddress address = vx::NiMappedZeroAddress();
    address.bytes[12] = a;
    address.bytes[13] = b;
    address.bytes[14] = c;
    address.bytes[15] = d;
    return address;
}

vx::NiAddress Ipv6(std::initializer_list<uint16_t> groups) {
    vx::NiAddress address{};
    int i = 0;
    for (uint16_t g : groups) {
        address.bytes[2 * i] = static_cast<uint8_t>(g >> 8);
        address.bytes[2 * i + 1] = static_cast<uint8_t>(g & 0xff);
        ++i;
    }
    return address;
}

TEST_F(NiLayer, Ipv4AndIpv6PeersReachTheDualStackListenerAndAreLocal) {
    LoopbackPair v4;
    ASSERT_EQ(v4.Open("127.0.0.1"), vx::kNiOk);
    EXPECT_TRUE(vx::NiIsMappedIpv4(v4.peer));
    EXPECT_STREQ(vx::NiAddrToStr(v4.peer), "127.0.0.1");
    EXPECT_NE(vx::NiIsLocalAddress(v4.peer), 0);

    LoopbackPair v6;
    ASSERT_EQ(v6.Listen(), vx::kNiOk);
    ASSERT_EQ(v6.Connect("::1"), vx::kNiOk);
    EXPECT_STREQ(vx::NiAddrToStr(v6.peer), "::1");
    EXPECT_NE(vx::NiIsLocalAddress(v6.peer), 0);
}

TEST_F(NiLayer, RawReadTimesOutWithWhatArrivedOrStopsEarlyInSingleReadMode) {
    LoopbackPair pair;
    ASSERT_EQ(pair.Open(), vx::kNiOk);
    char buffer[16] = {};
    int32_t count = -1;
    EXPECT_EQ(vx::NiRawRead(pair.server, buffer, 10, 30, &count), vx::kNiTimeout);
    EXPECT_EQ(count, 0);

    ASSERT_TRUE(pair.Send("abcd"));
    ASSERT_EQ(vx::NiPeekEx(pair.server, vx::kNiPeekRead, 5000), vx::kNiOk);
    EXPECT_EQ(vx::NiRawRead(pair.server, buffer, 10, 100, &count), vx::kNiTimeout);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(std::string(buffer, 4), "abcd");

    ASSERT_EQ(vx::NiSetSingleRead(pair.server, true), vx::kNiOk);
    ASSERT_TRUE(pair.Send("efg"));
    EXPECT_EQ(vx::NiRawRead(pair.server, buffer, 10, vx::kNiWaitForever, &count), vx::kNiOk);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(count)), "efg");
    ASSERT_EQ(vx::NiSetSingleRead(pair.server, false), vx::kNiOk);

    // Without single-read mode a read waits for the full length, across several sends.
    ASSERT_TRUE(pair.Send("12"));
    ASSERT_TRUE(pair.Send("345"));
    EXPECT_EQ(vx::NiRawRead(pair.server, buffer, 5, 5000, &count), vx::kNiOk);
    EXPECT_EQ(std::string(buffer, 5), "12345");
}

TEST_F(NiLayer, NonBlockingHandleNeverWaits) {
    LoopbackPair pair;
    ASSERT_EQ(pair.Open(), vx::kNiOk);
    ASSERT_EQ(vx::NiHdlSetBlockmode(pair.server, false), vx::kNiOk);
    char buffer[4];
    int32_t count = 0;
    // Would hang for ever on a blocking handle.
    EXPECT_EQ(vx::NiRawRead(pair.server, buffer, 4, vx::kNiWaitForever, &count), vx::kNiTimeout);
    EXPECT_EQ(vx::NiPeekEx(pair.server, vx::kNiPeekRead, vx::kNiWaitForever), vx::kNiTimeout);
}

TEST_F(NiLayer, ClosedAndUnknownHandlesAreRefused) {
    LoopbackPair pair;
    ASSERT_EQ(pair.Open(), vx::kNiOk);
    vx::NiHandle gone = pair.server;
    LoopbackPair::Close(pair.server);
    EXPECT_EQ(vx::NiCloseHandle(gone), vx::kNiInvalidHandle);
    EXPECT_EQ(vx::NiCloseHandle(vx::kNiMaxHandles), vx::kNiInvalidHandle);
    int32_t count = 0;
    EXPECT_EQ(vx::NiRawWrite(gone, "x", 1, 0, &count), vx::kNiInvalidHandle);
    // A closed handle is not handed out again at once.
    LoopbackPair next;
    ASSERT_EQ(next.Open(), vx::kNiOk);
    EXPECT_NE(next.server, gone);
    EXPECT_NE(next.client, gone);
}

TEST(NiAddressText, Ipv4IsDottedAndIpv6ShortensTheLongestZeroRun) {
    EXPECT_STREQ(vx::NiAddrToStr(Ipv4(10, 1, 2, 3)), "10.1.2.3");
    EXPECT_STREQ(vx::NiAddrToStr(Ipv6({0, 0, 0, 0, 0, 0, 0, 0})), "::");
    EXPECT_STREQ(vx::NiAddrToStr(Ipv6({0x2001, 0xdb8, 0, 0, 1, 0, 0, 1})), "2001:db8::1:0:0:1");
    EXPECT_STREQ(vx::NiAddrToStr(Ipv6({0x2001, 0xdb8, 0, 1, 0, 0, 0, 0})), "2001:db8:0:1::");
    EXPECT_STREQ(vx::NiAddrToStr(Ipv6({0xfe80, 1, 2, 3, 4, 5, 6, 0xabcd})),
                 "fe80:1:2:3:4:5:6:abcd");
}

TEST_F(NiLayer, LocalAddressesAreTheHostsOwn) {
    EXPECT_NE(vx::NiIsLocalAddress(Ipv4(127, 1, 2, 3)), 0);
    EXPECT_EQ(vx::NiIsLocalAddress(vx::NiMappedZeroAddress()), 0);
    EXPECT_EQ(vx::NiIsLocalAddress(Ipv4(192, 0, 2, 1)), 0);  // documentation range
    EXPECT_EQ(vx::NiIsLocalAddress(Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 7})), 0);
}

TEST_F(NiLayer, TraceFileShowsConnectionsAtLevelTwoAndDataAtLevelThree) {
    vxtest::ScratchDir dir;
    std::string path = dir.File("vorlix.nit");
    ASSERT_EQ(vx::NiTraceOpen(path.c_str(), vx::kNiTraceTruncate, 2), 0);
    {
        LoopbackPair pair;
        ASSERT_EQ(pair.Open(), vx::kNiOk);
        ASSERT_TRUE(pair.Send("x"));
        char byte;
        int32_t count = 0;
        ASSERT_EQ(vx::NiRawRead(pair.server, &byte, 1, 5000, &count), vx::kNiOk);
    }
    vx::NiTraceWrite(1, "from above %d", 42);
    vx::NiTraceClose();
    std::string trace = vxtest::ReadTextFile(path);
    EXPECT_NE(trace.find("NiAccept: handle"), std::string::npos) << trace;
    EXPECT_NE(trace.find("from above 42\n"), std::string::npos);
    EXPECT_EQ(trace.find("NiRawRead"), std::string::npos);

    // Reopened at level 3 (appending), every read shows; lines after closing go nowhere.
    ASSERT_EQ(vx::NiTraceOpen(path.c_str(), vx::kNiTraceAppend, 3), 0);
    {
        LoopbackPair pair;
        ASSERT_EQ(pair.Open(), vx::kNiOk);
        char byte;
        int32_t count = 0;
        EXPECT_EQ(vx::NiRawRead(pair.server, &byte, 1, 0, &count), vx::kNiTimeout);
    }
    vx::NiTraceClose();
    vx::NiTraceWrite(1, "after close");
    trace = vxtest::ReadTextFile(path);
    EXPECT_NE(trace.find("from above 42"), std::string::npos);
    EXPECT_NE(trace.find("NiRawRead: handle"), std::string::npos);
    EXPECT_EQ(trace.find("after close"), std::string::npos);
    vx::NiSetTraceLevel(3);
}

}  // namespace
