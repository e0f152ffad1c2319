// The security layer over a fake security library: the security state InitSecurity settles on,
// the authorized senders read from the settings, the secured session a sender asks for with its
// failures, the transport that carries a session's bytes and the secured reads and writes.
#include "net/security_layer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "base/ni.h"
#include "base/process.h"
#include "loopback_pair.h"
#include "net/authorized_senders.h"
#include "net/security_state.h"
#include "net/snc_library.h"
#include "net/socket_io.h"
#include "printserver/zelprsrv.h"
#include "protocol/extended_session.h"
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
    std::string baseDirectory;
    int doneCalls = 0;

    int sessionInitRc = SNC_OK;
    SncTransport transport{};
    int qopRc = SNC_OK;
    int qop[3] = {};
    int acceptRc = SNC_OK;
    int peerRc = SNC_OK;
    std::string peer = "CN=app1,O=Example";
    int sessionDoneCalls = 0;

    // Reads and writes pass through the session's transport, as a session without protection;
    // otherwise they fail with these codes.
    bool passThrough = false;
    int readRc = SNC_OK;
    int writeRc = SNC_OK;
    int niError = vx::kNiClosed;
};

FakeSnc g_fake;
char g_sessionObject;
SncSession* const kSession = reinterpret_cast<SncSession*>(&g_sessionObject);

int FakeInit(int, const char* profile, const char* base, int* real) {
    g_fake.profiles.push_back(profile);
    g_fake.baseDirectory = base;
    *real = strcmp(profile, "ZELLPD.INI") == 0 ? g_fake.realOnProfile : g_fake.realOnFallback;
    return g_fake.initRc;
}
int FakeSessionInit(SncSession** session, const SncTransport* transport) {
    g_fake.transport = *transport;
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
    snprintf(name, static_cast<size_t>(size), "%s", g_fake.peer.c_str());
    return g_fake.peerRc;
}
int FakeRead(SncSession*, void* buffer, int length, int timeoutMs, int* count, int) {
    *count = 0;
    if (!g_fake.passThrough) return g_fake.readRc;
    const SncTransport& t = g_fake.transport;
    return t.recv(t.context, buffer, length, timeoutMs, count);
}
// Passes at most 4 bytes a call, so that a write of more goes round the loop.
int FakeWrite(SncSession*, const void* data, int length, int timeoutMs, int* count) {
    *count = 0;
    if (!g_fake.passThrough) return g_fake.writeRc;
    const SncTransport& t = g_fake.transport;
    return t.send(t.context, data, std::min(length, 4), timeoutMs, count);
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
    FakeRead,
    FakeWrite,
    [](SncSession*) { return g_fake.niError; },
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
        vx::ClearAuthorizedSenders();
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

    // The authorized flag a secured session asked for with letter mode on a new connection gets.
    int Accepted(char mode) {
        vx::NetSocket socket = Prepared();
        int authorized = -1;
        EXPECT_TRUE(vx::AcceptSecuredSession(socket, "", 0, mode, &authorized));
        EXPECT_TRUE(vx::IsSecured(socket));
        return authorized;
    }

    std::string Log() { return vxtest::ReadTextFile(prsrv_->MainLogPath()); }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
};

// ---- the security state ----

TEST_F(SecurityLayerTest, RealProductKeepsTheModeAndSetsUpSecuredSessions) {
    Seed("snc_cmdmax", "4");
    EXPECT_EQ(StartSecurity("1"), vx::kSecurityOffered);
    EXPECT_EQ(g_fake.profiles, std::vector<std::string>{"ZELLPD.INI"});
    char base[260];
    ASSERT_EQ(vx::GetBaseDirectory(base, sizeof base), 0);
    EXPECT_EQ(g_fake.baseDirectory, base);
    EXPECT_EQ(vx::g_SecurityAvailable, 1);
    EXPECT_EQ(vx::g_SncCmdMax, 4);
    EXPECT_TRUE(vxtest::InOrder(
        Log(), {"Initializing Zel Security Library.", "Zel Security Library initialized.",
                "Loading authorized communication partners"}));
    // Every accepted connection gets its session; the end of the service shuts the library down.
    vx::NetSocket socket = Prepared();
    EXPECT_FALSE(socket.secured);
    vx::ExitSecurity();
    EXPECT_EQ(g_fake.doneCalls, 1);
    EXPECT_NE(Log().find("Finish Zel security library."), std::string::npos);
}

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

// ---- authorized senders and the secured session ----

// The list comes from the settings, skipping empty ones. A sender outside it keeps its session but
// is not authorized, unless the validation is switched off; the configured minimum protection
// rules whatever the letter asks for.
TEST_F(SecurityLayerTest, SenderOutsideTheListIsNotAuthorizedUnlessValidationIsOff) {
    Seed("snc_min_qop", "2");
    Seed("NumAuth", "3");
    Seed("Auth1", "CN=app1,O=Example");
    Seed("Auth2", "");
    Seed("Auth3", "CN=app3,O=Example");
    g_fake.peer = "CN=intruder,O=Elsewhere";
    ASSERT_EQ(StartSecurity("2"), 2);
    std::vector<std::string> names;
    for (const vx::AuthorizedSender* s = vx::AuthorizedSenders(); s != nullptr; s = s->next)
        names.push_back(s->name);
    EXPECT_EQ(names, (std::vector<std::string>{"CN=app1,O=Example", "CN=app3,O=Example"}));
    EXPECT_TRUE(vx::IsAuthorizedSender("CN=app3,O=Example"));
    EXPECT_FALSE(vx::IsAuthorizedSender("cn=app3,O=Example"));
    EXPECT_FALSE(vx::IsAuthorizedSender("CN=app3"));

    EXPECT_EQ(Accepted('Q'), 0);
    EXPECT_EQ(std::vector<int>(g_fake.qop, g_fake.qop + 3), (std::vector<int>{2, 3, 2}));
    char last[vx::kSenderNameSize];
    vx::GetLastUnauthorizedSender(last, sizeof last);
    EXPECT_STREQ(last, "CN=intruder,O=Elsewhere");
    EXPECT_TRUE(vxtest::InOrder(Log(), {"Error: Unknown security mode: Q. Using sealed mode.",
                                        "Error: Incoming connection from unauthorized sender.",
                                        "Error: Sender: CN=intruder,O=Elsewhere"}));

    Seed("conn_aa", "1");
    ASSERT_EQ(StartSecurity("1"), 1);
    EXPECT_EQ(Accepted('A'), 1);
    EXPECT_TRUE(vxtest::InOrder(Log(), {"Incoming secured call.", "Sender: CN=intruder,O=Elsewhere",
                                        "Validation of sender is switched off."}));
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

// ---- the secured reads and writes ----

// Their success is checked by the extended-protocol case below, whose bytes pass through them.
TEST_F(SecurityLayerTest, SecuredReadAndWriteFailuresAndTheEndOfTheSession) {
    ASSERT_EQ(StartSecurity("1"), 1);
    vx::NetSocket socket = Prepared();
    socket.secured = true;
    char buffer[32] = {};
    // The peer's close, seen by the network layer under the session, is the end of the connection.
    g_fake.readRc = SNC_ERR_NI;
    g_fake.niError = vx::kNiClosed;
    EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), 0);
    g_fake.niError = vx::kNiFailed;
    EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), -1);
    EXPECT_EQ(vx::LastNetError, vx::kNiFailed);
    g_fake.readRc = SNC_ERR_PROTOCOL;
    EXPECT_EQ(vx::SocketRead(socket, buffer, sizeof buffer), -1);
    EXPECT_EQ(vx::LastNetError, 0);
    g_fake.writeRc = SNC_ERR_NI;
    EXPECT_EQ(vx::SocketWrite(socket, "x", 1), -1);
    EXPECT_TRUE(vxtest::InOrder(
        Log(),
        {"SocketRead: EOF on socket(snc) received", "Error: SNC NILIB failed with returncode -1",
         "Error: SncNiRawRead failed with returncode -24",
         "Error: SocketWrite: Network Error! SNC NILIB returncode -1"}));

    socket.niHandle = vx::kNiNoHandle;
    vx::SocketClose(socket);
    EXPECT_EQ(g_fake.sessionDoneCalls, 1);
    EXPECT_EQ(socket.sncSession, nullptr);
}

// ---- the secured session in the extended protocol ----

// One reply line of the session (an error reply with its second line feed).
std::string ReplyOf(vx::NiHandle client) {
    std::string got;
    for (;;) {
        char byte = 0;
        int32_t count = 0;
        if (vx::NiRawRead(client, &byte, 1, 10000, &count) != vx::kNiOk || count != 1) return got;
        got += byte;
        size_t n = got.size();
        if (byte == '\n' && (got.rfind("ER", 0) != 0 || (n >= 2 && got[n - 2] == '\n'))) return got;
    }
}

// After KA the session's traffic runs through the secured session and its transport over the
// connection's network handle; a sender outside the list gets no job opened, one in the list does.
TEST_F(SecurityLayerTest, ExtendedSessionRefusesTheJobOfAnUnauthorizedSender) {
    Seed("NumAuth", "1");
    Seed("Auth1", "CN=app1,O=Example");
    ASSERT_EQ(StartSecurity("2"), vx::kSecurityRequired);
    g_fake.passThrough = true;
    const std::string insecure =
        "ER 819 Vorlix: Sicherung der Daten\xFC"
        "bertragung nicht erfolgt.\n\n";
    struct Case {
        const char* peer;
        std::string dsReply;
    };
    for (const Case& c : {Case{"CN=app1,O=Example", "OK\n"}, Case{"CN=other", insecure}}) {
        g_fake.peer = c.peer;
        vxtest::LoopbackPair pair;
        ASSERT_EQ(pair.Open(), vx::kNiOk);
        vx::NetSocket socket;
        socket.niHandle = pair.server;
        pair.server = vx::kNiNoHandle;
        std::thread server([&socket] {
            if (vx::PrepareConnectionSecurity(socket))
                vx::ExtendedSession(
                    socket, [](void*, vx::JobRecord*, bool) { return 0; }, nullptr);
            vx::SocketClose(socket);
        });
        ASSERT_EQ(ReplyOf(pair.client).rfind("OK ZELLPD", 0), 0u);
        for (const char* packet : {"KAhello", "DP lp", "DT 0", "PT RAW"}) {
            ASSERT_TRUE(pair.Send(packet));
            EXPECT_EQ(ReplyOf(pair.client), "OK\n") << packet;
        }
        ASSERT_TRUE(pair.Send("DS job-1"));
        EXPECT_EQ(ReplyOf(pair.client), c.dsReply) << c.peer;
        vxtest::LoopbackPair::Close(pair.client);
        server.join();
    }
    EXPECT_NE(Log().find("Error: Job of unauthorized sender refused."), std::string::npos);
}

}  // namespace
