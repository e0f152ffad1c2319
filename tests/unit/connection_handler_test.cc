// The connection handler over loopback: what each LPD command line is answered, the limits of
// queue and job names in the queue-state parse, the security check of the receive-job command,
// and that the socket is always closed with the state set to -1.
#include "protocol/connection_handler.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "base/ni.h"
#include "fake_spooler.h"
#include "loopback_pair.h"
#include "net/listener.h"
#include "net/security_state.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"

namespace {

using vxtest::LoopbackPair;

const std::string kNegative(1, '\xff');
const std::string kPositive(1, '\0');

class ConnectionHandlerTest : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        Seed("LogLevel", "9");
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        vx::g_ListenerParams.NiReadTimeout = -1;
        vx::g_ListenerParams.NiSpinReadTime = 1000;
        vx::g_ListenerParams.send_with_null = 1;
        // The host's printers as the receive-job check sees them: only "lp".
        vxtest::FakeSpooler::Install().printers["lp"];
    }

    void TearDown() override {
        vxtest::FakeSpooler::Remove();
        vx::g_SecurityState = 0;
        vx::g_prsrv = nullptr;
    }

    // Sends one first buffer, serves it and returns what the sender was answered. A handler
    // that waits for more (a receive-job) is ended by the sender closing after the answer.
    std::string Serve(const std::string& line, int peerIsLocal = 1) {
        LoopbackPair pair;
        EXPECT_EQ(pair.Open(), vx::kNiOk);
        EXPECT_TRUE(pair.Send(line));
        vx::NetSocket socket;
        socket.niHandle = pair.server;
        pair.server = vx::kNiNoHandle;  // the handler closes it
        state_ = 0;
        std::thread handler([&] { vx::ConnectionHandler(&socket, peerIsLocal, &state_); });
        std::string answer = pair.ReceiveAll(300);
        LoopbackPair::Close(pair.client);
        handler.join();
        EXPECT_EQ(state_, -1);
        EXPECT_EQ(socket.niHandle, vx::kNiNoHandle);
        return answer;
    }

    std::string Log() { return vxtest::ReadTextFile(prsrv_->MainLogPath()); }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
    int32_t state_ = 0;
};

TEST_F(ConnectionHandlerTest, CommandsTakeBinaryCodesAndDigitsAlike) {
    EXPECT_EQ(Serve("\x01lp\n"), kPositive);
    EXPECT_EQ(Serve("5lp\n"), "lprm not implemented.\n");
    EXPECT_EQ(Serve("x"), kNegative);
    EXPECT_EQ(Serve("1"), kNegative);  // too short for a queue
    EXPECT_EQ(Serve("\x02" + std::string(257, 'q') + "\n"), kNegative);
    std::string log = Log();
    EXPECT_NE(log.find("Error: Unknown lpd command!"), std::string::npos);
    EXPECT_NE(log.find("Error: Wrong lpd command!"), std::string::npos);
}

TEST_F(ConnectionHandlerTest, QueueNamesAndJobNamesHaveTheirLimits) {
    // 255 characters end in a line feed: still a printer query, answered by the query.
    std::string answer = Serve("3" + std::string(255, 'q') + "\n");
    EXPECT_FALSE(answer.empty());
    EXPECT_NE(answer, kNegative);
    EXPECT_EQ(Serve("3" + std::string(256, 'q') + "\n"), kNegative);
    EXPECT_NE(Serve("4" + std::string(255, 'q') + " JOB 1\n"), kNegative);

    EXPECT_NE(Serve("3lp JOB " + std::string(49, 'j') + "\n"), kNegative);
    EXPECT_EQ(Serve("3lp JOB " + std::string(50, 'j') + "\n"), kNegative);
}

// The version query itself is answered in the end-to-end and connection-thread tests.
TEST_F(ConnectionHandlerTest, OtherLinesOfTheVersionForm) {
    EXPECT_EQ(Serve("4 x 2"), "");
    EXPECT_EQ(Serve("4 x"), kNegative);  // shorter than the version query
}

TEST_F(ConnectionHandlerTest, RemoteReceiveJobIsRejectedWhileSecurityIsRequired) {
    vx::g_SecurityState = 2;
    EXPECT_EQ(Serve("\x02lp\n", 0), "Connection rejected for security reasons.\n");
    // The same from this host is served over LPD.
    EXPECT_EQ(Serve("\x02lp\n", 1), kPositive);
    vx::g_SecurityState = 1;
    EXPECT_EQ(Serve("\x02lp\n", 0), kPositive);
    EXPECT_NE(Log().find("Error: Vorlix will not accept Berkeley connection (method 'U')"),
              std::string::npos);
}

// The sender of a job for a queue the host does not have learns it at once.
TEST_F(ConnectionHandlerTest, ReceiveJobForAnUnknownQueueIsRefusedAtOnce) {
    EXPECT_EQ(Serve("\x02nosuch\n"), kNegative);
    EXPECT_EQ(Serve("2lp\n"), kPositive);
    EXPECT_NE(Log().find("Error: Receive job for unknown printer nosuch refused."),
              std::string::npos);
}

TEST_F(ConnectionHandlerTest, LostConnectionClosesOnce) {
    vx::NetSocket gone;  // a failed accept: no handle
    int32_t state = 0;
    vx::ConnectionHandler(&gone, 1, &state);
    EXPECT_EQ(state, -1);
    EXPECT_NE(Log().find("Lost connection after initial connect."), std::string::npos);
}

}  // namespace
