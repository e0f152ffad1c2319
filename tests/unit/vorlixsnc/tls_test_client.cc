#include "tls_test_client.h"

#include <gtest/gtest.h>

namespace vxtest {

namespace {

// Long enough for any step of a hand-shake here; short enough that a stuck test ends.
constexpr int kClientWaitMs = 10000;

int LinkRead(BIO* bio, char* buffer, int length) {
    auto* link = static_cast<MemoryLink*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    int count = 0;
    int rc = link->toClient.Take(buffer, length, kClientWaitMs, &count);
    if (rc == 0) return count;
    return rc == kLinkClosed ? 0 : -1;
}

int LinkWrite(BIO* bio, const char* data, int length) {
    auto* link = static_cast<MemoryLink*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    return link->toServer.Put(data, length) ? length : -1;
}

long LinkControl(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

int LinkCreate(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

const BIO_METHOD* LinkMethod() {
    static BIO_METHOD* method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "test link");
        BIO_meth_set_read(made, LinkRead);
        BIO_meth_set_write(made, LinkWrite);
        BIO_meth_set_ctrl(made, LinkControl);
        BIO_meth_set_create(made, LinkCreate);
        return made;
    }();
    return method;
}

}  // namespace

TlsTestClient::TlsTestClient(MemoryLink& link, const std::string& caFile,
                             const PemPair* certificate)
    : link_(link) {
    context_ = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
    EXPECT_EQ(SSL_CTX_load_verify_locations(context_, caFile.c_str(), nullptr), 1);
    if (certificate != nullptr) {
        EXPECT_EQ(SSL_CTX_use_certificate_file(context_, certificate->certificate.c_str(),
                                               SSL_FILETYPE_PEM),
                  1);
        EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context_, certificate->key.c_str(), SSL_FILETYPE_PEM),
                  1);
    }
    ssl_ = SSL_new(context_);
    BIO* bio = BIO_new(LinkMethod());
    BIO_set_data(bio, &link_);
    SSL_set_bio(ssl_, bio, bio);
}

TlsTestClient::~TlsTestClient() {
    SSL_free(ssl_);
    SSL_CTX_free(context_);
}

bool TlsTestClient::Connect() {
    return SSL_connect(ssl_) == 1;
}

bool TlsTestClient::Write(const std::string& data) {
    size_t written = 0;
    return SSL_write_ex(ssl_, data.data(), data.size(), &written) == 1 && written == data.size();
}

bool TlsTestClient::Read(size_t length, std::string* data) {
    data->assign(length, '\0');
    size_t done = 0;
    while (done < length) {
        size_t got = 0;
        if (SSL_read_ex(ssl_, data->data() + done, length - done, &got) != 1) return false;
        done += got;
    }
    return true;
}

void TlsTestClient::Close() {
    SSL_shutdown(ssl_);
    link_.toServer.Close();
}

std::string MakeClientHello() {
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    SSL* ssl = SSL_new(context);
    BIO* in = BIO_new(BIO_s_mem());
    BIO* out = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl, in, out);
    SSL_connect(ssl);  // waits for the server's answer: the hello is in out
    char* data = nullptr;
    long length = BIO_get_mem_data(out, &data);
    std::string hello(data, static_cast<size_t>(length > 0 ? length : 0));
    SSL_free(ssl);
    SSL_CTX_free(context);
    return hello;
}

}  // namespace vxtest
