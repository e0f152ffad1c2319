// The security library in-process: its sessions over an in-memory link against the sender's TLS
// client on another thread, with certificates made for the test in a temporary base directory.
#include "snc/vorlixsnc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "memory_link.h"
#include "snc/tls_client.h"
#include "test_pki.h"
#include "tls_test_client.h"

namespace {

using vxtest::MemoryLink;

constexpr const char* kProfile = "ZELLPD.INI";

class SncLibrary : public testing::Test {
  protected:
    // The sender's key also in its certificate's file: the sender's client then needs no --key.
    static void SetUpTestSuite() {
        ASSERT_TRUE(vxtest::MakeTestPki(&pki_));
        ASSERT_TRUE(vxtest::WriteTestFile(
            pki_, "app1-both.pem",
            vxtest::ReadTestFile(pki_.sender.certificate) + vxtest::ReadTestFile(pki_.sender.key)));
    }
    static void TearDownTestSuite() { vxtest::RemoveTestPki(pki_); }

    void SetUp() override { SncSetTrace(vxtest::TraceLog::Collect, &trace_); }
    void TearDown() override {
        if (session_ != nullptr) SncSessionDone(session_);
        link_->Close();
        if (client_.joinable()) client_.join();
        SncSetTrace(nullptr, nullptr);
        SncDone();
    }

    bool Traced(const std::string& part) { return trace_.Has(part); }
    void Write(const std::string& name, const std::string& text) {
        ASSERT_TRUE(vxtest::WriteTestFile(pki_, name, text)) << name;
    }

    // The profile names the certificate relative to the base directory, the key absolute.
    void WriteProfile(const std::string& certificate = "server.pem") {
        Write(kProfile,
              "; the security library\n[other]\ncertificate = nothing.pem\n"
              "[VorlixSNC]\ncertificate = " +
                  certificate + "\nkey=" + pki_.server.key + "\n  ca = ca.pem\n");
    }
    int Init(int* realProduct) {
        return SncInit(SNC_USAGE_SERVER, kProfile, pki_.directory.c_str(), realProduct);
    }
    void StartSession() {
        int realProduct = 0;
        ASSERT_EQ(Init(&realProduct), SNC_OK);
        ASSERT_EQ(realProduct, 1);
        SncTransport transport = link_->ServerTransport();
        ASSERT_EQ(SncNiRawSessionInit(&session_, &transport), SNC_OK);
        ASSERT_EQ(SncSetQOP(session_, 3, 3, 3), SNC_OK);
    }
    std::vector<std::string> ErrorLines() {
        std::vector<std::string> lines;
        char line[SNC_ERROR_LINE_MAX];
        while (SncErrorLine(session_, static_cast<int>(lines.size()), line, sizeof line) == 1)
            lines.emplace_back(line);
        return lines;
    }

    static vxtest::TestPki pki_;
    std::unique_ptr<MemoryLink> link_ = std::make_unique<MemoryLink>();
    SncSession* session_ = nullptr;
    std::thread client_;
    vxtest::TraceLog trace_;
};

vxtest::TestPki SncLibrary::pki_;

std::string Pattern(size_t length, char seed) {
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>(seed + i % 61);
    return text;
}

TEST_F(SncLibrary, GoodSenderIsNamedAndBytesPassBothWays) {
    WriteProfile();
    StartSession();
    ASSERT_TRUE(Traced("server.pem loaded"));
    char adapter[199];
    ASSERT_EQ(SncGetAdapterName(nullptr, 0, adapter, sizeof adapter), SNC_OK);
    EXPECT_NE(std::string(adapter).find("OpenSSL 3"), std::string::npos) << adapter;

    // Larger than a TLS record (16 KiB) in both directions.
    const std::string command = "KS hello";
    const std::string upload = Pattern(50000, 'A');
    const std::string answer = Pattern(40000, '0');
    bool clientDone = false;
    MemoryLink* link = link_.get();
    client_ = std::thread([&, link] {
        std::string both = pki_.directory + "/app1-both.pem";
        vx::TlsClientCredentials credentials{both.c_str(), "", pki_.ca.c_str()};
        vx::TlsClient* raw = nullptr;
        char error[256] = {};
        if (vx::TlsClientOpen(credentials, {link, vxtest::ClientRecv, vxtest::ClientSend}, &raw,
                              error, sizeof error) == 0) {
            vx::TlsClientPtr client(raw);
            std::string received;
            char buffer[5000];
            size_t count = 0;
            if (vx::TlsClientWrite(client.get(), command.data(), command.size(), error,
                                   sizeof error) == 0 &&
                vx::TlsClientWrite(client.get(), upload.data(), upload.size(), error,
                                   sizeof error) == 0)
                while (received.size() < answer.size() &&
                       vx::TlsClientRead(client.get(), buffer, sizeof buffer, &count, error,
                                         sizeof error) == 0 &&
                       count > 0)
                    received.append(buffer, count);
            clientDone = received == answer;
        }  // the client's end sends close_notify; the link stays open
    });

    ASSERT_EQ(SncNiSessionAccept(session_, 32700, -1), SNC_OK);
    char peer[SNC_PEER_NAME_MAX];
    ASSERT_EQ(SncGetPeerName(session_, peer, sizeof peer), SNC_OK);
    EXPECT_STREQ(peer, "CN=app1,O=Example");
    EXPECT_EQ(SncGetPeerName(session_, peer, 5), SNC_ERR_ARGUMENT) << "a cut name never";

    // One record at a time when asked for a single read, whatever room the buffer has.
    std::string got(60000, '\0');
    int count = 0;
    ASSERT_EQ(SncNiRawRead(session_, got.data(), 100, 5000, &count, 1), SNC_OK);
    EXPECT_EQ(got.substr(0, count), command);
    ASSERT_EQ(SncNiRawRead(session_, got.data(), 60000, 5000, &count, 1), SNC_OK);
    ASSERT_GT(count, 0);
    ASSERT_LT(count, static_cast<int>(upload.size()));
    int first = count;
    ASSERT_EQ(SncNiRawRead(session_, got.data() + first, static_cast<int>(upload.size()) - first,
                           5000, &count, 0),
              SNC_OK);
    EXPECT_EQ(first + count, static_cast<int>(upload.size()));
    EXPECT_TRUE(got.substr(0, upload.size()) == upload);

    ASSERT_EQ(SncNiRawWrite(session_, answer.data(), static_cast<int>(answer.size()), 5000, &count),
              SNC_OK);
    EXPECT_EQ(count, static_cast<int>(answer.size()));

    // The sender's close_notify reads as the end of the stream (without it: the read's time-out).
    EXPECT_EQ(SncNiRawRead(session_, got.data(), 10, 5000, &count, 1), SNC_ERR_NI);
    EXPECT_EQ(SncNiErrorOf(session_), vxtest::kLinkClosed);
    client_.join();
    EXPECT_TRUE(clientDone);
}

// The sender's client names why it cannot start: its files before any byte is sent, and a
// service that does not trust its CA at the hand-shake or (TLS 1.3) at the first read after it.
TEST_F(SncLibrary, SendersClientNamesWhyItIsRefused) {
    const std::string& certificate = pki_.sender.certificate;
    const std::string& key = pki_.sender.key;
    struct Case {
        std::string certificate, key, ca;
        const char* reasonPart;
    };
    const Case cases[] = {
        {pki_.directory + "/absent.pem", key, pki_.ca, "absent.pem"},
        {certificate, pki_.server.key, pki_.ca, "key values mismatch"},
        {certificate, key, pki_.directory + "/no-ca.pem", "no-ca.pem"},
    };
    vx::TlsClientIo none{nullptr, [](void*, void*, size_t, size_t*) { return -1; },
                         [](void*, const void*, size_t) { return -1; }};
    char error[256] = {};
    for (const Case& c : cases) {
        vx::TlsClient* raw = nullptr;
        vx::TlsClientCredentials credentials{c.certificate.c_str(), c.key.c_str(), c.ca.c_str()};
        EXPECT_EQ(vx::TlsClientOpen(credentials, none, &raw, error, sizeof error), -1);
        EXPECT_EQ(raw, nullptr);
        EXPECT_NE(std::string(error).find(c.reasonPart), std::string::npos) << error;
    }

    Write(kProfile, "[vorlixsnc]\ncertificate=server.pem\nkey=server.key\nca=other-ca.pem\n");
    StartSession();
    int rc = 0;
    MemoryLink* link = link_.get();
    client_ = std::thread([&, link] {
        vx::TlsClientCredentials credentials{certificate.c_str(), key.c_str(), pki_.ca.c_str()};
        vx::TlsClient* raw = nullptr;
        rc = vx::TlsClientOpen(credentials, {link, vxtest::ClientRecv, vxtest::ClientSend}, &raw,
                               error, sizeof error);
        vx::TlsClientPtr client(raw);
        size_t count = 0;
        char byte = 0;
        if (rc == 0) rc = vx::TlsClientRead(client.get(), &byte, 1, &count, error, sizeof error);
    });
    EXPECT_EQ(SncNiSessionAccept(session_, 32700, -1), SNC_ERR_HANDSHAKE);
    EXPECT_TRUE(Traced("hand-shake failed"));
    link_->Close();
    client_.join();
    EXPECT_EQ(rc, -1);
    EXPECT_TRUE(strstr(error, "hand-shake failed") != nullptr ||
                strstr(error, "secured") != nullptr)
        << error;
}

TEST_F(SncLibrary, UnusableProfileLeavesNoProduct) {
    struct Case {
        const char* what;
        const char* profile;  // null: no profile file at all
        const char* traced;
    };
    const Case cases[] = {
        {"no profile", nullptr, "ZELLPD.INI cannot be read"},
        {"no section", "[windows]\nload=\n", "no [vorlixsnc] section"},
        {"no key", "[vorlixsnc]\ncertificate=server.pem\nca=ca.pem\n", "names no key"},
        {"certificate not PEM", "[vorlixsnc]\ncertificate=junk.pem\nkey=server.key\nca=ca.pem\n",
         "junk.pem"},
    };
    Write("junk.pem", "not a certificate\n");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::remove((pki_.directory + "/" + kProfile).c_str());
        if (c.profile != nullptr) Write(kProfile, c.profile);
        int realProduct = 1;
        ASSERT_EQ(Init(&realProduct), SNC_OK);
        EXPECT_EQ(realProduct, 0);
        EXPECT_TRUE(Traced(c.traced));
        char adapter[199];
        EXPECT_EQ(SncGetAdapterName(nullptr, 0, adapter, sizeof adapter), SNC_ERR_STATE);
        SncTransport transport = link_->ServerTransport();
        EXPECT_EQ(SncNiRawSessionInit(&session_, &transport), SNC_ERR_STATE);
        EXPECT_EQ(session_, nullptr);
        SncDone();
    }
}

TEST_F(SncLibrary, EmptyKeyTakesTheKeyFromTheCertificateFile) {
    Write("server-and-key.pem",
          vxtest::ReadTestFile(pki_.server.certificate) + vxtest::ReadTestFile(pki_.server.key));
    Write(kProfile, "[vorlixsnc]\ncertificate=server-and-key.pem\nkey =\nca=ca.pem\n");
    int realProduct = 0;
    ASSERT_EQ(Init(&realProduct), SNC_OK);
    EXPECT_EQ(realProduct, 1);
    SncDone();
    // Without the key in it, the certificate file is named as the key that cannot be used.
    Write(kProfile, "[vorlixsnc]\ncertificate=server.pem\nkey=\nca=ca.pem\n");
    ASSERT_EQ(Init(&realProduct), SNC_OK);
    EXPECT_EQ(realProduct, 0);
    EXPECT_TRUE(Traced("cannot use the key " + pki_.directory + "/server.pem"));
}

TEST_F(SncLibrary, StalledClientHelloEndsInTheTransportsTimeOut) {
    WriteProfile();
    StartSession();
    std::string hello = vxtest::MakeClientHello();
    ASSERT_GT(hello.size(), 20u);
    link_->toServer.Put(hello.data(), static_cast<int>(hello.size() / 2));

    EXPECT_EQ(SncNiSessionAccept(session_, 32700, 300), SNC_ERR_NI);
    EXPECT_EQ(SncNiErrorOf(session_), vxtest::kLinkTimeout);
    EXPECT_GE(link_->lastServerTimeout.load(), 0);
    EXPECT_LE(link_->lastServerTimeout.load(), 300);
    EXPECT_FALSE(ErrorLines().empty());
}

}  // namespace
