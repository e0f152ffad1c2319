// The sender's TLS client against a TLS server in the test (OpenSSL, client certificate
// required), over a socket pair: the certificates are made here, with two CAs, so that a server
// of the wrong CA and a sender the server does not trust can be shown.
#include "snc/tls_client.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace {

using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertPtr = std::unique_ptr<X509, decltype(&X509_free)>;

struct Issued {
    KeyPtr key{nullptr, EVP_PKEY_free};
    CertPtr cert{nullptr, X509_free};
};

// A certificate for subject (CN, O), signed by issuer (null: self-signed, a CA).
Issued MakeCertificate(const char* cn, const Issued* issuer, long serial) {
    Issued made;
    made.key.reset(EVP_EC_gen("P-256"));
    made.cert.reset(X509_new());
    X509* x = made.cert.get();
    X509_set_version(x, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x), serial);
    X509_gmtime_adj(X509_getm_notBefore(x), -3600);
    X509_gmtime_adj(X509_getm_notAfter(x), 86400);
    X509_set_pubkey(x, made.key.get());
    X509_NAME* name = X509_get_subject_name(x);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("Vorlix Test"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(cn),
                               -1, -1, 0);
    X509_set_issuer_name(x, issuer != nullptr ? X509_get_subject_name(issuer->cert.get()) : name);
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer != nullptr ? issuer->cert.get() : x, x, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, NID_basic_constraints,
                                              issuer == nullptr ? "critical,CA:TRUE" : "CA:FALSE");
    X509_add_ext(x, ext, -1);
    X509_EXTENSION_free(ext);
    X509_sign(x, issuer != nullptr ? issuer->key.get() : made.key.get(), EVP_sha256());
    return made;
}

void WritePem(const std::string& path, X509* cert, EVP_PKEY* key) {
    FILE* f = fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    if (cert != nullptr) PEM_write_X509(f, cert);
    if (key != nullptr) PEM_write_PrivateKey(f, key, nullptr, nullptr, 0, nullptr, nullptr);
    fclose(f);
}

// Two CAs and what each signs, as PEM files in a directory of the test's own.
class Certificates : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/vx-tls-client-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        Issued ca = MakeCertificate("Test CA", nullptr, 1);
        Issued other = MakeCertificate("Other CA", nullptr, 2);
        Issued server = MakeCertificate("print.example", &ca, 10);
        Issued stranger = MakeCertificate("print.example", &other, 11);
        Issued sender = MakeCertificate("sender1", &ca, 12);
        WritePem(Path("ca.pem"), ca.cert.get(), nullptr);
        WritePem(Path("other-ca.pem"), other.cert.get(), nullptr);
        WritePem(Path("server.pem"), server.cert.get(), server.key.get());
        WritePem(Path("stranger.pem"), stranger.cert.get(), stranger.key.get());
        WritePem(Path("sender.pem"), sender.cert.get(), nullptr);
        WritePem(Path("sender.key"), nullptr, sender.key.get());
        WritePem(Path("sender-both.pem"), sender.cert.get(), sender.key.get());
        WritePem(Path("server.key"), nullptr, server.key.get());
    }
    static void TearDownTestSuite() {
        std::string command = "rm -rf '" + dir_ + "'";
        EXPECT_EQ(system(command.c_str()), 0);
    }
    static std::string Path(const char* name) { return dir_ + "/" + name; }

    static std::string dir_;
};
std::string Certificates::dir_;

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

// The server's side: accepts one TLS session on fd, names the sender it saw, and answers each
// message with its length and its bytes reversed, until the sender closes.
struct Server {
    Server(std::string ownCertificate, std::string ca)
        : certificate(std::move(ownCertificate)), trustedCa(std::move(ca)) {}

    std::string certificate;  // PEM with its key
    std::string trustedCa;    // the CA client certificates must come from
    bool accepted = false;
    std::string peer;      // the client certificate's subject, RFC 4514
    std::string received;  // everything the client sent
    bool closeNotified = false;

    void Run(int fd) {
        SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
        SSL_CTX_use_certificate_file(ctx, certificate.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(ctx, certificate.c_str(), SSL_FILETYPE_PEM);
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
                std::string answer = std::to_string(n) + ":" + std::string(buffer, n);
                std::reverse(answer.begin() + answer.find(':') + 1, answer.end());
                SSL_write(ssl, answer.data(), static_cast<int>(answer.size()));
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

TEST_F(Certificates, HandshakeWithTheRightCaCarriesBytesBothWaysAndEndsWithCloseNotify) {
    // Key in a file of its own, and key in the certificate's file (no --key).
    for (bool keyInCertificateFile : {false, true}) {
        SCOPED_TRACE(keyInCertificateFile ? "key in the certificate file" : "separate key");
        Server server{Path("server.pem"), Path("ca.pem")};
        std::string certificate = Path(keyInCertificateFile ? "sender-both.pem" : "sender.pem");
        std::string key = keyInCertificateFile ? "" : Path("sender.key");
        std::string ca = Path("ca.pem");
        {
            Session session(&server);
            vx::TlsClientCredentials credentials{certificate.c_str(), key.c_str(), ca.c_str()};
            vx::TlsClient* raw = nullptr;
            char error[256] = {};
            ASSERT_EQ(vx::TlsClientOpen(credentials, session.io, &raw, error, sizeof error), 0)
                << error;
            vx::TlsClientPtr client(raw);

            // A short packet, then one larger than a TLS record.
            const std::string packet = "DP laser\n";
            ASSERT_EQ(
                vx::TlsClientWrite(client.get(), packet.data(), packet.size(), error, sizeof error),
                0);
            EXPECT_EQ(ReadExactly(client.get(), 11), "9:\nresal PD");
            std::string block(40000, '\0');
            for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 7 % 251);
            ASSERT_EQ(
                vx::TlsClientWrite(client.get(), block.data(), block.size(), error, sizeof error),
                0);
            // The server answers each record it read: together they make up the block.
            std::string echoed;
            while (echoed.size() < block.size()) {
                char head[16] = {};
                size_t n = 0;
                size_t count = 0;
                while (n + 1 < sizeof head &&
                       vx::TlsClientRead(client.get(), head + n, 1, &count, error, sizeof error) ==
                           0 &&
                       count == 1 && head[n] != ':')
                    ++n;
                ASSERT_EQ(head[n], ':');
                size_t length = strtoul(head, nullptr, 10);
                std::string part = ReadExactly(client.get(), length);
                std::reverse(part.begin(), part.end());
                echoed += part;
            }
            EXPECT_EQ(echoed, block);
            client.reset();  // the close notification
            session.Finish();
        }
        EXPECT_TRUE(server.accepted);
        EXPECT_EQ(server.peer, "CN=sender1,O=Vorlix Test");
        EXPECT_EQ(server.received.size(), 9u + 40000u);
        EXPECT_TRUE(server.closeNotified);
    }
}

TEST_F(Certificates, RefusalsNameTheirReason) {
    struct Case {
        const char* label;
        const char* serverCertificate;
        const char* serverTrusts;
        std::string certificate;
        std::string key;
        std::string ca;
        const char* reasonPart;
    };
    const Case cases[] = {
        {"server of another CA", "stranger.pem", "ca.pem", Path("sender.pem"), Path("sender.key"),
         Path("ca.pem"), "certificate was refused"},
        {"sender the server does not trust", "server.pem", "other-ca.pem", Path("sender.pem"),
         Path("sender.key"), Path("ca.pem"), "hand-shake failed"},
        {"missing certificate file", nullptr, nullptr, Path("absent.pem"), Path("sender.key"),
         Path("ca.pem"), "absent.pem"},
        {"key of another certificate", nullptr, nullptr, Path("sender.pem"), Path("server.key"),
         Path("ca.pem"), "key values mismatch"},
        {"missing CA file", nullptr, nullptr, Path("sender.pem"), Path("sender.key"),
         Path("no-ca.pem"), "no-ca.pem"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        Server server{c.serverCertificate != nullptr ? Path(c.serverCertificate) : "",
                      c.serverTrusts != nullptr ? Path(c.serverTrusts) : ""};
        vx::TlsClientCredentials credentials{c.certificate.c_str(), c.key.c_str(), c.ca.c_str()};
        vx::TlsClient* raw = nullptr;
        char error[256] = {};
        if (c.serverCertificate == nullptr) {
            // The files are read before any byte is sent: no server is needed.
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
