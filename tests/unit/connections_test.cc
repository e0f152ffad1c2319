// Connections over loopback: the accept path serves a connection itself when the connection list
// was made so, and a stop closes what is still open.
#include "service/connections.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "base/ni.h"
#include "config/option_globals.h"
#include "config/process_state.h"
#include "jobs/job_lists.h"
#include "loopback_pair.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"

namespace {

constexpr const char* kVersionQuery = "4 x 1";
constexpr const char* kVersionAnswer = "This is Vorlix Version ";
// Only a guard against a hang: a reply that never comes fails the test instead.
constexpr int kHangGuardMs = 30000;

// A sender that connected to the service's port and may ask one question.
class Sender {
  public:
    Sender(uint16_t port, const char* line) {
        EXPECT_EQ(vx::NiConnect("127.0.0.1", std::to_string(port).c_str(), kHangGuardMs, &handle_),
                  vx::kNiOk);
        int32_t count = 0;
        if (line != nullptr) {
            EXPECT_EQ(vx::NiRawWrite(handle_, line, static_cast<int32_t>(strlen(line)),
                                     kHangGuardMs, &count),
                      vx::kNiOk);
        }
    }
    ~Sender() {
        if (handle_ != vx::kNiNoHandle) vx::NiCloseHandle(handle_);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    // What has arrived so far, without waiting; Closed() tells whether the service has closed.
    std::string Arrived() {
        std::string got;
        vx::NiSetSingleRead(handle_, true);
        for (;;) {
            char buffer[4096];
            int32_t count = 0;
            int rc = vx::NiRawRead(handle_, buffer, sizeof buffer, vx::kNiPoll, &count);
            got.append(buffer, static_cast<size_t>(count));
            if (rc == vx::kNiClosed) closed_ = true;
            if (rc != vx::kNiOk) return got;
        }
    }
    bool Closed() const { return closed_; }

  private:
    vx::NiHandle handle_ = vx::kNiNoHandle;
    bool closed_ = false;
};

class Connections : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        Seed("LogLevel", "9");
        Seed("WinAPILog", "1");
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        vxtest::UseDefaultListenerParams();
        vx::g_StopReason = vx::kStopNone;
        ASSERT_EQ(vx::NiServerHandle(&port_, &vx::g_ListenHandle), vx::kNiOk);
    }
    void TearDown() override {
        vx::DestroyConnectionList();
        vx::NiCloseHandle(vx::g_ListenHandle);
        vx::g_ListenHandle = vx::kNiNoHandle;
        vx::RequestStop(vx::kStopNone);
        vx::g_Options.ConnectionMode = 1;
        vx::g_prsrv = nullptr;
    }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
    uint16_t port_ = 0;
};

// Connection threads (the default mode) serve every end-to-end test, and a stop that closes their
// connections is checked end to end too; here the list made without threads.
TEST_F(Connections, AListMadeWithoutThreadsServesInTheAcceptingThreadWhateverTheOptionSays) {
    // Only a guard: a connection served in line would otherwise wait minutes for its command.
    vx::g_ListenerParams.NiReadTimeout = kHangGuardMs;
    ASSERT_EQ(vx::CreateConnectionList(0), 0);
    EXPECT_EQ(vx::g_ConnThreadList, vx::kInvalidListId);
    vx::g_Options.ConnectionMode = 1;  // changed while the service runs
    {
        // Answered and closed when the accept returns.
        Sender sender(port_, kVersionQuery);
        vx::AcceptConnection();
        EXPECT_EQ(sender.Arrived().rfind(kVersionAnswer, 0), 0u);
        EXPECT_TRUE(sender.Closed());
    }
    vx::WaitForConnectionThreads();
}

TEST_F(Connections, StopEndsAConnectionServedInLineWhenTheGracePeriodIsOver) {
    // Only a guard: without the grace period the silent sender would hold the stop this long.
    vx::g_ListenerParams.IdleLimitMs = kHangGuardMs;
    ASSERT_EQ(vx::CreateConnectionList(0), 0);
    Sender silent(port_, nullptr);
    vx::RequestStop(vx::kStopFromScm);
    vx::AcceptConnection(200);  // returns once the stop is old enough
    std::string log = vxtest::ReadTextFile(prsrv_->MainLogPath());
    EXPECT_NE(log.find(" connections still open after 200 ms closed.\n"), std::string::npos);
    silent.Arrived();  // the sender sees the close, as after any other end
    EXPECT_TRUE(silent.Closed());
}

}  // namespace
