// The security layer over a fake security library, for what the real library cannot be made to
// do end to end: init results that need a fake, an unknown protection letter, and the error report
// of a failing library call.
#include "net/security_layer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/ni.h"
#include "loopback_pair.h"
#include "net/security_state.h"
#include "net/snc_library.h"
#include "net/socket_io.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

// What the fake library does and what it was asked.
struct FakeSnc {
    // SncInit: the result and the real-product indicator for "ZELLPD.INI" and "WIN.INI".
    int initRc = SNC_OK;
    int realOnProfile = 1;
    int realOnFallback = 1;
    std::vector<std::string> profiles;
    int doneCalls = 0;

    int sessionInitRc = SNC_OK;
    int qopRc = SNC_OK;
    int qop[3] = {};
    int acceptRc = SNC_OK;
    int peerRc = SNC_OK;
    int sessionDoneCalls = 0;
};

FakeSnc g_fake;
char g_sessionObject;
SncSession* const kSession = reinterpret_cast<SncSession*>(&g_sessionObject);

int FakeInit(int, const char* profile, const char*, int* real) {
    g_fake.profiles.push_back(profile);
    *real = strcmp(profile, "ZELLPD.INI") == 0 ? g_fake.realOnProfile : g_fake.realOnFallback;
    return g_fake.initRc;
}
int FakeSessionInit(SncSession** session, const SncTransport*) {
    *session = g_fake.sessionInitRc == SNC_OK ? kSession : nullptr;
    return g_fake.sessionInitRc;
}
int FakeSetQop(SncSession*, int minimum, int maximum, int use) {
    g_fake.qop[0] = minimum;
    g_fake.qop[1] = maximum;
    g_fake.qop[2] = use;
    return g_fake.qopRc;
}
int FakePeerName(SncSession*, char* name, int size) {
    snprintf(name, static_cast<size_t>(size), "%s", "CN=app1,O=Example");
    return g_fake.peerRc;
}
int FakeErrorLine(SncSession*, int index, char* buffer, int size) {
    if (index >= 2) return 0;
    snprintf(buffer, static_cast<size_t>(size), "detail %d", index);
    return 1;
}

const vx::SncFunctions kFakeTable{
    FakeInit,
    [] { ++g_fake.doneCalls; },
    [](SncTraceWriter, void*) {},
    [](SncSession*, int, char*, int) { return -1; },  // no adapter name
    FakeSessionInit,
    FakeSetQop,
    [](SncSession*, int, int) { return g_fake.acceptRc; },
    FakePeerName,
    [](SncSession*, void*, int, int, int* count, int) { return *count = 0, SNC_ERR_NI; },
    [](SncSession*, const void*, int, int, int* count) { return *count = 0, SNC_ERR_NI; },
    [](SncSession*) { return static_cast<int>(vx::kNiClosed); },
    [](SncSession*) { ++g_fake.sessionDoneCalls; },
    [](int code) { return code == SNC_ERR_HANDSHAKE ? "SNC_ERR_HANDSHAKE" : nullptr; },
    [](int) { return "the peer's hand-shake failed"; },
    FakeErrorLine,
};

class SecurityLayerTest : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        vxtest::UseDefaultListenerParams();
        Seed("LogLevel", "9");
        g_fake = FakeSnc{};
        vx::UseSncFunctions(&kFakeTable);
    }

    void TearDown() override {
        vx::ExitSecurity();
        vx::UseSncFunctions(nullptr);
        vx::g_SecurityState = 0;
        vx::g_prsrv = nullptr;
    }

    // The security layer as the service sets it up with "snc_mode" mode; a layer set up before
    // is ended first.
    int32_t StartSecurity(const char* mode) {
        vx::ExitSecurity();
        vx::UseSncFunctions(&kFakeTable);
        Seed("snc_mode", mode);
        vx::g_prsrv = nullptr;
        prsrv_.reset();  // its end removes its logs: before the next one opens them
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        vx::InitSecurity();
        return vx::g_SecurityState;
    }

    // A connection with its session made, as PrepareConnectionSecurity leaves it.
    vx::NetSocket Prepared() {
        vx::NetSocket socket;
        socket.niHandle = 7;
        EXPECT_TRUE(vx::PrepareConnectionSecurity(socket));
        EXPECT_EQ(socket.sncSession, kSession);
        return socket;
    }

    std::string Log() { return vxtest::ReadTextFile(prsrv_->MainLogPath()); }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
};

TEST_F(SecurityLayerTest, PlaceholderOnlyIsRetriedWithWinIni) {
    g_fake.realOnProfile = 0;
    EXPECT_EQ(StartSecurity("2"), vx::kSecurityRequired);
    EXPECT_EQ(g_fake.profiles, (std::vector<std::string>{"ZELLPD.INI", "WIN.INI"}));
    EXPECT_EQ(g_fake.doneCalls, 1);  // the placeholder was shut down before the retry
}

// Modes 1 and 2 without a product are what the service without a library runs with.
TEST_F(SecurityLayerTest, WithoutARealProductAnInvalidModeIsTracedAndUnused) {
    g_fake.realOnProfile = g_fake.realOnFallback = 0;
    EXPECT_EQ(StartSecurity("7"), vx::kSecurityUnused);
    EXPECT_NE(Log().find("Error: Invalid snc_mode 7"), std::string::npos);
    EXPECT_EQ(vx::g_SecurityAvailable, 0);
}

TEST_F(SecurityLayerTest, FailedInitialisationRefusesWhenSecurityIsRequired) {
    g_fake.initRc = SNC_ERR_PROFILE;
    EXPECT_EQ(StartSecurity("2"), vx::kSecurityRequiredMissing);
    EXPECT_TRUE(
        vxtest::InOrder(Log(), {"Error: Zel Security Library initialisation failed. (rc=-20)",
                                "Error: Cannot accept jobs without Zel Security."}));
    vx::ExitSecurity();
    EXPECT_EQ(g_fake.doneCalls, 0);  // a library that never started is not shut down
    EXPECT_EQ(StartSecurity("1"), vx::kSecurityNone);
}

// An unknown letter is sealed mode, and the configured minimum protection rules over it.
TEST_F(SecurityLayerTest, UnknownModeLetterIsSealed) {
    Seed("snc_min_qop", "2");
    ASSERT_EQ(StartSecurity("1"), 1);
    vx::NetSocket socket = Prepared();
    int authorized = -1;
    EXPECT_TRUE(vx::AcceptSecuredSession(socket, "", 0, 'Q', &authorized));
    EXPECT_TRUE(vx::IsSecured(socket));
    EXPECT_EQ(std::vector<int>(g_fake.qop, g_fake.qop + 3), (std::vector<int>{2, 3, 2}));
    EXPECT_NE(Log().find("Error: Unknown security mode: Q. Using sealed mode."), std::string::npos);
}

TEST_F(SecurityLayerTest, FailedHandShakeReportsTheErrorAndDropsTheSession) {
    ASSERT_EQ(StartSecurity("1"), 1);
    struct Case {
        int FakeSnc::*failing;
        const char* call;
    };
    for (const Case& c :
         {Case{&FakeSnc::qopRc, "SncSetQOP"}, Case{&FakeSnc::acceptRc, "SncNiSessionAccept"},
          Case{&FakeSnc::peerRc, "SncGetPeerName"}}) {
        g_fake.qopRc = g_fake.acceptRc = g_fake.peerRc = SNC_OK;
        g_fake.*c.failing = SNC_ERR_HANDSHAKE;
        int doneBefore = g_fake.sessionDoneCalls;
        vx::NetSocket socket = Prepared();
        EXPECT_FALSE(vx::AcceptSecuredSession(socket, "", 0, 'S', nullptr)) << c.call;
        EXPECT_EQ(socket.sncSession, nullptr) << c.call;
        EXPECT_FALSE(socket.secured) << c.call;
        EXPECT_EQ(g_fake.sessionDoneCalls, doneBefore + 1) << c.call;
        EXPECT_TRUE(vxtest::InOrder(
            Log(), {std::string("Error: ") + c.call + " failed with returncode -21",
                    "Description of Errorcode SNC_ERR_HANDSHAKE(-21): the peer's hand-shake failed",
                    "Start of detailed SNC error message:", "  detail 0", "  detail 1",
                    "End of detailed SNC error message."}))
            << c.call;
    }
    EXPECT_TRUE(vxtest::InOrder(Log(), {"Error: Cannot continue without peer identity.",
                                        "Error: SncGetPeerName failed - aborting."}));

    // A session that cannot be made closes the connection.
    g_fake.sessionInitRc = SNC_ERR_MEMORY;
    vx::NetSocket socket;
    EXPECT_FALSE(vx::PrepareConnectionSecurity(socket));
    EXPECT_NE(Log().find("Error: SncNiRawSessionInit failed with returncode -25"),
              std::string::npos);
}

}  // namespace
