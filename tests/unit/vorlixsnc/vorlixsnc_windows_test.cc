// The Schannel security library in-process: profiles with PFX files, the senders' certificates
// against the CA, their names, and a hand-shake driven by the sender's own Schannel client over
// an in-memory link. The certificates come from make_windows_pki.sh, run at build time; each
// *.name file there holds the name the Linux library gives for the same certificate.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/fileops.h"
#include "base/process.h"
#include "memory_link.h"
#include "snc/tls_client.h"
#include "snc/vorlixsnc.h"
#include "snc/win32/schannel_tls.h"

namespace {

using vx::snc::CertPtr;
using vxtest::MemoryLink;

constexpr const char* kProfile = "ZELLPD.INI";

std::string PkiDirectory() {
    char directory[vx::kMaxPath];
    if (vx::GetExecutableDirectory(directory, sizeof directory) != 0) return "";
    return std::string(directory) + "\\vorlixsnc_pki";
}

std::string PkiFile(const std::string& name) {
    return PkiDirectory() + "\\" + name;
}

std::string ReadText(const std::string& name) {
    std::ifstream file(PkiFile(name), std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

CertPtr Certificate(const std::string& name) {
    CertPtr certificate;
    EXPECT_EQ(vx::snc::LoadCaCertificate(PkiFile(name).c_str(), &certificate), 0) << name;
    return certificate;
}

class SchannelLibrary : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_FALSE(ReadText("ca.pem").empty()) << "no certificates in " << PkiDirectory();
        SncSetTrace(vxtest::TraceLog::Collect, &trace_);
    }
    void TearDown() override {
        if (session_ != nullptr) SncSessionDone(session_);
        link_->Close();
        if (client_.joinable()) client_.join();
        SncSetTrace(nullptr, nullptr);
        SncDone();
        std::remove(PkiFile(kProfile).c_str());
    }

    int Init(const std::string& section, int* realProduct) {
        std::ofstream(PkiFile(kProfile), std::ios::binary) << section;
        return SncInit(SNC_USAGE_SERVER, kProfile, PkiDirectory().c_str(), realProduct);
    }
    // The server's PFX named relative to the base directory, the CA absolute.
    void StartSession() {
        int realProduct = 0;
        ASSERT_EQ(Init("[vorlixsnc]\ncertificate=server.pfx\nkey=pfx-secret\nca=" +
                           PkiFile("ca.pem") + "\n",
                       &realProduct),
                  SNC_OK);
        ASSERT_EQ(realProduct, 1) << trace_.All();
        SncTransport transport = link_->ServerTransport();
        ASSERT_EQ(SncNiRawSessionInit(&session_, &transport), SNC_OK);
    }
    std::vector<std::string> ErrorLines() {
        std::vector<std::string> lines;
        char line[SNC_ERROR_LINE_MAX];
        while (SncErrorLine(session_, static_cast<int>(lines.size()), line, sizeof line) == 1)
            lines.emplace_back(line);
        return lines;
    }

    std::unique_ptr<MemoryLink> link_ = std::make_unique<MemoryLink>();
    SncSession* session_ = nullptr;
    std::thread client_;
    vxtest::TraceLog trace_;
};

TEST_F(SchannelLibrary, PfxProfilesGiveTheProduct) {
    int realProduct = 0;
    ASSERT_EQ(Init("[VorlixSNC]\ncertificate = server.pfx\nkey = pfx-secret\nca = ca.pem\n",
                   &realProduct),
              SNC_OK);
    EXPECT_EQ(realProduct, 1) << trace_.All();
    EXPECT_TRUE(trace_.Has("server.pfx loaded: CN=print-server,O=Example")) << trace_.All();
    EXPECT_TRUE(trace_.Has("checked against")) << trace_.All();
    char adapter[200];
    ASSERT_EQ(SncGetAdapterName(nullptr, 0, adapter, sizeof adapter), SNC_OK);
    EXPECT_NE(std::string(adapter).find("Schannel"), std::string::npos) << adapter;

    // A PFX without a password: the key line stays, empty.
    ASSERT_EQ(Init("[vorlixsnc]\ncertificate=server-open.pfx\nkey=\nca=ca.pem\n", &realProduct),
              SNC_OK);
    EXPECT_EQ(realProduct, 1) << trace_.All();
}

TEST_F(SchannelLibrary, UnusableProfileLeavesNoProductAndNamesTheFile) {
    struct Case {
        const char* what;
        const char* section;
        const char* traced;
    };
    const Case cases[] = {
        {"wrong password", "certificate=server.pfx\nkey=guess\nca=ca.pem\n", "wrong password"},
        {"PEM pair", "certificate=server.pem\nkey=server.key\nca=ca.pem\n",
         "server.pem: sessions cannot be secured"},
        {"not a PFX", "certificate=junk.pfx\nkey=\nca=ca.pem\n", "junk.pfx"},
        {"CA missing", "certificate=server.pfx\nkey=pfx-secret\nca=gone-ca.pem\n", "gone-ca.pem"},
        {"CA not PEM", "certificate=server.pfx\nkey=pfx-secret\nca=junk.pfx\n", "CA certificate"},
        {"no key line", "certificate=server-open.pfx\nca=ca.pem\n", "names no key"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        int realProduct = 1;
        ASSERT_EQ(Init(std::string("[vorlixsnc]\n") + c.section, &realProduct), SNC_OK);
        EXPECT_EQ(realProduct, 0);
        EXPECT_TRUE(trace_.Has(c.traced)) << trace_.All();
        char adapter[200];
        EXPECT_EQ(SncGetAdapterName(nullptr, 0, adapter, sizeof adapter), SNC_ERR_STATE);
        SncTransport transport = link_->ServerTransport();
        EXPECT_EQ(SncNiRawSessionInit(&session_, &transport), SNC_ERR_STATE);
        EXPECT_EQ(session_, nullptr);
    }
    EXPECT_TRUE(trace_.Has("is a PEM file: on Windows the certificate must be a PFX file"));
}

TEST(SchannelPeerCheck, OnlyCertificatesTheCaSignedPass) {
    CertPtr ca = Certificate("ca.pem");
    ASSERT_TRUE(ca);
    struct Case {
        const char* file;
        int expected;
        const char* why;
    };
    const Case cases[] = {
        {"sender.pem", SNC_OK, ""},
        {"odd.pem", SNC_OK, ""},
        {"stranger.pem", SNC_ERR_HANDSHAKE, "not issued by the CA"},
        {"forged.pem", SNC_ERR_HANDSHAKE, "signature"},
        {"ca.pem", SNC_ERR_HANDSHAKE, "the CA itself"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        CertPtr peer = Certificate(c.file);
        ASSERT_TRUE(peer);
        vx::snc::ErrorLines errors{};
        EXPECT_EQ(vx::snc::CheckPeerCertificate(peer.get(), ca.get(), &errors), c.expected);
        if (c.expected == SNC_OK) {
            EXPECT_EQ(errors.count, 0);
        } else {
            ASSERT_GE(errors.count, 1);
            EXPECT_NE(std::string(errors.lines[0]).find(c.why), std::string::npos)
                << errors.lines[0];
        }
    }
    vx::snc::ErrorLines errors{};
    EXPECT_EQ(vx::snc::CheckPeerCertificate(nullptr, ca.get(), &errors), SNC_ERR_HANDSHAKE);
}

TEST(SchannelPeerName, SameNameAsTheLinuxLibrary) {
    for (const char* name : {"sender", "odd", "server"}) {
        SCOPED_TRACE(name);
        CertPtr certificate = Certificate(std::string(name) + ".pem");
        ASSERT_TRUE(certificate);
        std::string expected = ReadText(std::string(name) + ".name");
        ASSERT_FALSE(expected.empty());
        char text[SNC_PEER_NAME_MAX];
        ASSERT_EQ(vx::snc::SubjectText(certificate.get(), text, sizeof text), SNC_OK);
        EXPECT_EQ(text, expected);
        // A cut name could match another sender: never.
        int exact = static_cast<int>(expected.size());
        EXPECT_EQ(vx::snc::SubjectText(certificate.get(), text, exact), SNC_ERR_ARGUMENT);
        EXPECT_STREQ(text, "");
        EXPECT_EQ(vx::snc::SubjectText(certificate.get(), text, exact + 1), SNC_OK);
    }
}

// The sender's Schannel client over the link; Wine's Schannel cannot serve, Windows' can.
TEST_F(SchannelLibrary, HandshakeWithTheSendersClient) {
    StartSession();
    const std::string pfx = PkiFile("sender.pfx");
    const std::string ca = PkiFile("ca.pem");
    MemoryLink* link = link_.get();
    client_ = std::thread([link, pfx, ca] {
        vx::TlsClientCredentials credentials{pfx.c_str(), "", ca.c_str()};
        vx::TlsClientIo io{link, vxtest::ClientRecv, vxtest::ClientSend};
        vx::TlsClient* raw = nullptr;
        char error[200];
        if (vx::TlsClientOpen(credentials, io, &raw, error, sizeof error) == 0) {
            vx::TlsClientPtr client(raw);
            char echo[16];
            size_t count = 0;
            if (vx::TlsClientRead(client.get(), echo, sizeof echo, &count, error, sizeof error) ==
                    0 &&
                count > 0)
                vx::TlsClientWrite(client.get(), echo, count, error, sizeof error);
        }
        link->toServer.Close();
    });
    int rc = SncNiSessionAccept(session_, 32700, 10000);
    char peer[SNC_PEER_NAME_MAX];
    int count = 0;
    if (rc == SNC_OK) {
        ASSERT_EQ(SncGetPeerName(session_, peer, sizeof peer), SNC_OK);
        EXPECT_STREQ(peer, "CN=app1,O=Example");
        ASSERT_EQ(SncNiRawWrite(session_, "LPQ", 3, 5000, &count), SNC_OK);
        char echo[8] = {};
        ASSERT_EQ(SncNiRawRead(session_, echo, 3, 5000, &count, 0), SNC_OK);
        EXPECT_STREQ(echo, "LPQ");
        return;
    }
    // Where Schannel cannot serve (Wine): a clean refusal that says why, and a dead session.
    ASSERT_EQ(rc, SNC_ERR_HANDSHAKE) << trace_.All();
    std::vector<std::string> lines = ErrorLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines[0].find("AcceptSecurityContext"), std::string::npos) << lines[0];
    EXPECT_TRUE(trace_.Has("hand-shake failed: AcceptSecurityContext")) << trace_.All();
    EXPECT_EQ(SncGetPeerName(session_, peer, sizeof peer), SNC_ERR_STATE);
    EXPECT_EQ(SncNiRawWrite(session_, "x", 1, 100, &count), SNC_ERR_STATE);
    EXPECT_EQ(SncNiSessionAccept(session_, 32700, 100), SNC_ERR_STATE);
}

TEST_F(SchannelLibrary, BrokenHelloAndStalledHelloEndCleanlyWithoutLeaks) {
    int realProduct = 0;
    ASSERT_EQ(
        Init("[vorlixsnc]\ncertificate=server.pfx\nkey=pfx-secret\nca=ca.pem\n", &realProduct),
        SNC_OK);
    ASSERT_EQ(realProduct, 1);
    // A TLS record header of a hand-shake with its body missing, then bytes that are no TLS.
    const unsigned char stalled[] = {0x16, 0x03, 0x01, 0x00, 0x80, 0x01};
    const char junk[] = "GET / HTTP/1.0\r\n\r\n";
    auto attempt = [&](const void* bytes, int length, int timeoutMs, int* niError) {
        MemoryLink link;
        SncTransport transport = link.ServerTransport();
        SncSession* session = nullptr;
        if (SncNiRawSessionInit(&session, &transport) != SNC_OK) return SNC_ERR_MEMORY;
        link.toServer.Put(bytes, length);
        int rc = SncNiSessionAccept(session, 32700, timeoutMs);
        *niError = SncNiErrorOf(session);
        SncSessionDone(session);
        return rc;
    };
    int niError = 0;
    EXPECT_EQ(attempt(junk, sizeof junk - 1, 2000, &niError), SNC_ERR_HANDSHAKE);
    int rc = attempt(stalled, sizeof stalled, 300, &niError);
    // Wine's Schannel refuses the first bytes of any hello; Windows' waits for the rest.
    EXPECT_TRUE(rc == SNC_ERR_HANDSHAKE || (rc == SNC_ERR_NI && niError == vxtest::kLinkTimeout))
        << rc;

    DWORD before = 0;
    DWORD after = 0;
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &before));
    for (int i = 0; i < 20; ++i) attempt(junk, sizeof junk - 1, 2000, &niError);
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &after));
    EXPECT_LE(after, before + 2) << "handles kept by failed hand-shakes";
}

}  // namespace
