// The socket I/O of connections over loopback: the listener's parameters, the read phases with
// their time-outs, writes, replies and the null-byte handshake. Listening, accepting, the network
// trace and the secured channel are exercised end to end (test_security.py, test_send_secure.py).
#include "net/socket_io.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

#include "base/ni.h"
#include "base/sync.h"
#include "loopback_pair.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

using vxtest::LoopbackPair;

class NetFixture : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        Seed("LogLevel", "9");
        vxtest::UseDefaultListenerParams();
        vx::LastNetError = 0;
    }

    void TearDown() override {
        vx::g_prsrv = nullptr;
        vx::NiTraceClose();
        vx::NiSetTraceLevel(3);
    }

    // The print-server object over the seeded settings, as the service's one object.
    void Start() {
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
    }

    std::string Log() { return vxtest::ReadTextFile(prsrv_->MainLogPath()); }

    // A connection whose accepted end is the service's socket.
    vx::NetSocket Connected(LoopbackPair& pair) {
        EXPECT_EQ(pair.Open(), vx::kNiOk);
        vx::NetSocket socket;
        socket.niHandle = pair.server;
        return socket;
    }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
};

// Time-outs are set in tenths of a second and kept in milliseconds; one too long for that waits
// the longest time instead.
TEST_F(NetFixture, ParametersAreReadWithTimeOutsInMilliseconds) {
    Seed("NiReadTimeout", "214748364");  // the largest that still fits
    Seed("NiWriteTimeout", "214748365");
    Seed("NiSpinReadTime", "0x7FFFFFFF");
    Seed("NiReadLoopBreak", "0");
    Seed("NiAcceptTimeout", "250");
    Seed("LPDPort", "0");
    Seed("send_with_null", "7");
    Start();
    vx::ReadListenerParams(*prsrv_);
    const vx::ListenerParams& p = vx::g_ListenerParams;
    EXPECT_EQ(p.NiReadTimeout, 2147483640);
    EXPECT_EQ(p.NiWriteTimeout, INT32_MAX);
    EXPECT_EQ(p.NiSpinReadTime, INT32_MAX);
    EXPECT_EQ(p.NiReadLoopBreak, 0);
    EXPECT_EQ(p.NiAcceptTimeout, 250);  // milliseconds already
    EXPECT_EQ(p.LPDPort, 515);
    EXPECT_EQ(p.send_with_null, 1);
}

// A read never takes more than asked for; the rest waits for the next read, and a read that times
// out with some bytes is a success.
TEST_F(NetFixture, ReadTakesAtMostWhatWasAskedForAndATimeOutWithBytesSucceeds) {
    Start();
    LoopbackPair pair;
    vx::NetSocket socket = Connected(pair);
    char buffer[100] = {};
    ASSERT_TRUE(pair.Send("0123456789"));
    ASSERT_EQ(vx::NiPeekEx(pair.server, vx::kNiPeekRead, 5000), vx::kNiOk);
    EXPECT_EQ(vx::SocketRead(socket, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");

    vx::g_ListenerParams.NiSpinReadTime = -1;  // the patient phase reads without single-read mode
    vx::g_ListenerParams.NiReadTimeout = 100;
    vx::g_ListenerParams.NiReadLoopBreak = 0;  // a lost success ends in -1, not in a hang
    EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), 6);
    EXPECT_EQ(std::string(buffer, 6), "456789");
}

TEST_F(NetFixture, PeerThatClosesGivesZeroNeverMinusOne) {
    Start();
    for (int spin : {1000, -1}) {
        vx::g_ListenerParams.NiSpinReadTime = spin;
        LoopbackPair pair;
        vx::NetSocket socket = Connected(pair);
        LoopbackPair::Close(pair.client);
        char buffer[16];
        EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), 0) << "spin " << spin;
        EXPECT_EQ(vx::LastNetError, vx::kNiClosed);
    }
    EXPECT_EQ(vxtest::CountOccurrences(Log(), "SocketRead: EOF on socket received\n"), 2);
}

TEST_F(NetFixture, WithoutReadTimeOutASilentPeerIsGivenUpAtTheIdleLimitASetTimeOutStillWaits) {
    Start();
    vx::g_ListenerParams.NiSpinReadTime = -1;
    vx::g_ListenerParams.IdleLimitMs = 50;
    char buffer[16];
    {
        LoopbackPair pair;
        vx::NetSocket socket = Connected(pair);
        EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), -1);
        EXPECT_EQ(vx::LastNetError, vx::kNiTimeout);
        std::string idle = "SocketRead: nothing received on ni " + std::to_string(pair.server) +
                           " for 50 ms, connection idle\n";
        EXPECT_NE(Log().find(idle), std::string::npos) << Log();
    }
    // "NiReadTimeout" set without a loop break: a late sender is still read, idle limit or not.
    vx::g_ListenerParams.NiReadTimeout = 20;
    {
        LoopbackPair pair;
        vx::NetSocket socket = Connected(pair);
        std::thread late([&pair] {
            vx::SleepMs(300);
            pair.Send("late");
        });
        EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), 4);
        late.join();
        EXPECT_EQ(std::string(buffer, 4), "late");
    }
}

TEST_F(NetFixture, LargeWriteToASlowReaderCompletes) {
    Start();
    LoopbackPair pair;
    vx::NetSocket socket = Connected(pair);
    std::string data(6 * 1024 * 1024, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 4096);
    std::string received;
    std::thread reader([&] {
        vx::NiSetSingleRead(pair.client, true);
        char chunk[32768];
        int reads = 0;
        while (received.size() < data.size()) {
            int32_t count = 0;
            int rc = vx::NiRawRead(pair.client, chunk, sizeof chunk, 10000, &count);
            received.append(chunk, static_cast<size_t>(count));
            if (rc != vx::kNiOk) break;
            if (++reads % 16 == 0) vx::SleepMs(5);
        }
    });
    EXPECT_EQ(vx::SocketWrite(socket, data.data(), static_cast<int32_t>(data.size())),
              static_cast<int32_t>(data.size()));
    reader.join();
    EXPECT_TRUE(received == data) << received.size() << " of " << data.size();
}

TEST_F(NetFixture, WriteToAGonePeerFailsWithTheHandleNamed) {
    Start();
    LoopbackPair pair;
    vx::NetSocket socket = Connected(pair);
    LoopbackPair::Close(pair.client);
    std::string block(65536, 'w');
    int32_t result = 0;
    for (int i = 0; i < 200 && result != -1; ++i)
        result = vx::SocketWrite(socket, block.data(), static_cast<int32_t>(block.size()));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(vx::LastNetError, vx::kNiClosed);
    EXPECT_NE(Log().find("Error: SocketWrite: NiRawWrite failed on ni " +
                         std::to_string(socket.niHandle) + " - aborting.\n"),
              std::string::npos)
        << Log();
}

// The other replies are checked by the dialogues that send them.
TEST_F(NetFixture, StringRepliesEndInANulOnlyWhenSetTo) {
    Start();
    LoopbackPair pair;
    vx::NetSocket socket = Connected(pair);
    vx::SendString(socket, "abc");
    EXPECT_EQ(pair.ReceiveAll(), std::string("abc\0", 4));
    vx::g_ListenerParams.send_with_null = 0;
    vx::SendString(socket, "abc");
    EXPECT_EQ(pair.ReceiveAll(), "abc");
}

// A NUL and another byte are checked in the LPD dialogue's control-file cases; here the end.
TEST_F(NetFixture, AwaitNullbyteRefusesTheEnd) {
    Start();
    LoopbackPair pair;
    vx::NetSocket socket = Connected(pair);
    LoopbackPair::Close(pair.client);
    EXPECT_EQ(vx::AwaitNullbyte(socket), -1);
    EXPECT_NE(Log().find("Error: AwaitNullbyte: Nullbyte expected, protocol error on ni " +
                         std::to_string(socket.niHandle) + " - aborting.\n"),
              std::string::npos)
        << Log();
}

}  // namespace
