// The sender's TLS client against a TLS server in the test (OpenSSL, client certificate
// required), over a socket pair, with certificates of two CAs, so that a server of the wrong CA
// and a sender the server does not trust can be shown.
#include "snc/tls_client.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>

#include "test_pki.h"

namespace {

// Two CAs and what each signs (test_pki.h), the sender's certificate also with its key in one file.
class Certificates : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(vxtest::MakeTestPki(&pki_));
        ASSERT_TRUE(vxtest::WriteTestFile(
            pki_, "sender-both.pem",
            vxtest::ReadTestFile(pki_.sender.certificate) + vxtest::ReadTestFile(pki_.sender.key)));
    }
    static void TearDownTestSuite() { vxtest::RemoveTestPki(pki_); }

    static vxtest::TestPki pki_;
};
vxtest::TestPki Certificates::pki_;

int FdSend(void* context, const void* data, size_t length) {
    int fd = *static_cast<int*>(context);
    const char* from = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = send(fd, from, length, MSG_NOSIGNAL);  // a closed peer is a failure, no signal
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return -1;
        from += n;
        length -= static_cast<size_t>(n);
    }
    return 0;
}

int FdRecv(void* context, void* buffer, size_t length, size_t* count) {
    int fd = *static_cast<int*>(context);
    ssize_t n = 0;
    do {
        n = read(fd, buffer, length);
    } while (n < 0 && errno == EINTR);
    *count = n > 0 ? static_cast<size_t>(n) : 0;
    return n > 0 ? 0 : -1;
}

// The server's side: accepts one TLS session on fd, names the sender it saw, and echoes what it
// reads until the sender closes.
struct Server {
    Server(vxtest::PemPair ownFiles, std::string ca)
        : own(std::move(ownFiles)), trustedCa(std::move(ca)) {}

    vxtest::PemPair own;
    std::string trustedCa;  // the CA client certificates must come from
    bool accepted = false;
    std::string peer;      // the client certificate's subject, RFC 4514
    std::string received;  // everything the client sent
    bool closeNotified = false;

    void Run(int fd) {
        SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
        SSL_CTX_use_certificate_file(ctx, own.certificate.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(ctx, own.key.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_load_verify_locations(ctx, trustedCa.c_str(), nullptr);
        SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        SSL* ssl = SSL_new(ctx);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1) {
            accepted = true;
            X509* client = SSL_get1_peer_certificate(ssl);
            if (client != nullptr) {
                BIO* out = BIO_new(BIO_s_mem());
                X509_NAME_print_ex(out, X509_get_subject_name(client), 0, XN_FLAG_RFC2253);
                char* text = nullptr;
                long n = BIO_get_mem_data(out, &text);
                peer.assign(text, static_cast<size_t>(n));
                BIO_free(out);
                X509_free(client);
            }
            char buffer[70000];
            for (;;) {
                int n = SSL_read(ssl, buffer, sizeof buffer);
                if (n <= 0) {
                    closeNotified = SSL_get_error(ssl, n) == SSL_ERROR_ZERO_RETURN;
                    break;
                }
                received.append(buffer, static_cast<size_t>(n));
                SSL_write(ssl, buffer, n);
            }
        }
        SSL_free(ssl);
        SSL_CTX_free(ctx);
        ERR_clear_error();
        shutdown(fd, SHUT_RDWR);
    }
};

// A socket pair, the server on one end in a thread of its own, the client's io on the other.
struct Session {
    int fds[2] = {-1, -1};
    std::thread thread;
    vx::TlsClientIo io;

    explicit Session(Server* server) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        io.context = &fds[0];
        io.send = FdSend;
        io.recv = FdRecv;
        thread = std::thread([server, fd = fds[1]] { server->Run(fd); });
    }
    // The client's end closes first, so that a server waiting for it sees the end.
    void Finish() {
        if (fds[0] >= 0) shutdown(fds[0], SHUT_RDWR);
        if (thread.joinable()) thread.join();
    }
    ~Session() {
        Finish();
        close(fds[0]);
        close(fds[1]);
    }
};

std::string ReadExactly(vx::TlsClient* client, size_t length) {
    std::string got;
    char buffer[5000];
    char error[256] = {};
    while (got.size() < length) {
        size_t count = 0;
        size_t want = length - got.size() < sizeof buffer ? length - got.size() : sizeof buffer;
        if (vx::TlsClientRead(client, buffer, want, &count, error, sizeof error) != 0 ||
            count == 0) {
            ADD_FAILURE() << "read ended early: " << error;
            break;
        }
        got.append(buffer, count);
    }
    return got;
}

// The end-to-end tests cover a separate key file and jobs of many records; the key in the
// certificate's file (no --key) and the close notification only show here.
TEST_F(Certificates, KeyInTheCertificateFileCarriesBytesAndEndsWithCloseNotify) {
    Server server{pki_.server, pki_.ca};
    std::string certificate = pki_.directory + "/sender-both.pem";
    {
        Session session(&server);
        vx::TlsClientCredentials credentials{certificate.c_str(), "", pki_.ca.c_str()};
        vx::TlsClient* raw = nullptr;
        char error[256] = {};
        ASSERT_EQ(vx::TlsClientOpen(credentials, session.io, &raw, error, sizeof error), 0)
            << error;
        vx::TlsClientPtr client(raw);
        const std::string packet = "DP laser\n";
        ASSERT_EQ(
            vx::TlsClientWrite(client.get(), packet.data(), packet.size(), error, sizeof error), 0);
        EXPECT_EQ(ReadExactly(client.get(), packet.size()), packet);
        client.reset();  // the close notification
        session.Finish();
    }
    EXPECT_TRUE(server.accepted);
    EXPECT_EQ(server.peer, "CN=app1,O=Example");
    EXPECT_EQ(server.received, "DP laser\n");
    EXPECT_TRUE(server.closeNotified);
}

// A server of another CA is refused end to end; these refusals are not.
TEST_F(Certificates, RefusalsNameTheirReason) {
    const vxtest::PemPair& sender = pki_.sender;
    const vxtest::PemPair none;
    struct Case {
        const char* label;
        const vxtest::PemPair& serverOwn;  // none: the files fail before any byte is sent
        std::string serverTrusts;
        std::string certificate;
        std::string key;
        std::string ca;
        const char* reasonPart;
    };
    const Case cases[] = {
        {"sender the server does not trust", pki_.server, pki_.otherCa, sender.certificate,
         sender.key, pki_.ca, "hand-shake failed"},
        {"missing certificate file", none, "", pki_.directory + "/absent.pem", sender.key, pki_.ca,
         "absent.pem"},
        {"key of another certificate", none, "", sender.certificate, pki_.server.key, pki_.ca,
         "key values mismatch"},
        {"missing CA file", none, "", sender.certificate, sender.key, pki_.directory + "/no-ca.pem",
         "no-ca.pem"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        Server server{c.serverOwn, c.serverTrusts};
        vx::TlsClientCredentials credentials{c.certificate.c_str(), c.key.c_str(), c.ca.c_str()};
        vx::TlsClient* raw = nullptr;
        char error[256] = {};
        if (c.serverOwn.certificate.empty()) {
            vx::TlsClientIo io;
            io.send = [](void*, const void*, size_t) { return -1; };
            io.recv = [](void*, void*, size_t, size_t*) { return -1; };
            EXPECT_EQ(vx::TlsClientOpen(credentials, io, &raw, error, sizeof error), -1);
        } else {
            Session session(&server);
            int rc = vx::TlsClientOpen(credentials, session.io, &raw, error, sizeof error);
            vx::TlsClientPtr client(raw);
            if (rc == 0) {
                // TLS 1.3: the server's refusal of the sender arrives after the client's part
                // of the hand-shake, with the next write or read.
                size_t count = 0;
                char byte = 0;
                rc = vx::TlsClientWrite(client.get(), "x", 1, error, sizeof error);
                if (rc == 0)
                    rc = vx::TlsClientRead(client.get(), &byte, 1, &count, error, sizeof error);
                EXPECT_EQ(rc, -1);
                EXPECT_NE(std::string(error).find("secured"), std::string::npos) << error;
                session.Finish();
                EXPECT_FALSE(server.accepted);
                continue;
            }
            session.Finish();
            EXPECT_FALSE(server.accepted);
        }
        EXPECT_EQ(raw, nullptr);
        EXPECT_NE(std::string(error).find(c.reasonPart), std::string::npos) << error;
    }
}

}  // namespace
