// The TLS client over OpenSSL 3. The session's records move through a BIO of our own whose
// reads and writes are the caller's callbacks, so OpenSSL never sees the socket.
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <climits>
#include <memory>

#include "base/text.h"
#include "snc/tls_client.h"

namespace vx {

struct TlsClient {
    SSL_CTX* context = nullptr;
    SSL* ssl = nullptr;  // owns the BIO
    TlsClientIo io;
    bool broken = false;  // the connection or the stream failed: no close notification
};

namespace {

struct CallbackBio {
    BIO_METHOD* method = nullptr;
    CallbackBio() {
        method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vorlix sender");
        if (method == nullptr) return;
        BIO_meth_set_write(method, [](BIO* bio, const char* data, int length) -> int {
            auto* io = static_cast<TlsClientIo*>(BIO_get_data(bio));
            if (length <= 0) return 0;
            return io->send(io->context, data, static_cast<size_t>(length)) == 0 ? length : -1;
        });
        BIO_meth_set_read(method, [](BIO* bio, char* buffer, int length) -> int {
            auto* io = static_cast<TlsClientIo*>(BIO_get_data(bio));
            if (length <= 0) return 0;
            size_t count = 0;
            if (io->recv(io->context, buffer, static_cast<size_t>(length), &count) != 0) return -1;
            return static_cast<int>(count);
        });
        BIO_meth_set_ctrl(method, [](BIO*, int command, long, void*) -> long {
            return command == BIO_CTRL_FLUSH ? 1 : 0;
        });
        BIO_meth_set_create(method, [](BIO* bio) -> int {
            BIO_set_init(bio, 1);
            return 1;
        });
    }
    ~CallbackBio() { BIO_meth_free(method); }
    CallbackBio(const CallbackBio&) = delete;
    CallbackBio& operator=(const CallbackBio&) = delete;
};

// One method for the process, made on first use (thread-safe by the language).
BIO_METHOD* CallbackMethod() {
    static CallbackBio bio;
    return bio.method;
}

// The reason of the oldest OpenSSL error queued, after what; the queue is emptied.
int Failed(char* error, size_t cap, const char* what) {
    unsigned long code = ERR_get_error();
    char reason[200] = "no further detail";
    if (code != 0) ERR_error_string_n(code, reason, sizeof reason);
    FormatText(error, cap, "%s: %s", what, reason);
    ERR_clear_error();
    return -1;
}

int LoadCredentials(SSL_CTX* context, const TlsClientCredentials& credentials, char* error,
                    size_t cap) {
    if (credentials.certificate == nullptr || credentials.certificate[0] == '\0' ||
        credentials.ca == nullptr || credentials.ca[0] == '\0') {
        FormatText(error, cap, "%s", "a certificate and a CA file are needed");
        return -1;
    }
    const char* key = credentials.key != nullptr && credentials.key[0] != '\0'
                          ? credentials.key
                          : credentials.certificate;
    char what[600];
    if (SSL_CTX_use_certificate_chain_file(context, credentials.certificate) != 1) {
        FormatText(what, sizeof what, "cannot read the certificate %s", credentials.certificate);
        return Failed(error, cap, what);
    }
    if (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1) {
        // Also where the key is another certificate's: OpenSSL compares them here.
        FormatText(what, sizeof what, "cannot use the key %s with the certificate %s", key,
                   credentials.certificate);
        return Failed(error, cap, what);
    }
    if (SSL_CTX_check_private_key(context) != 1) {
        FormatText(what, sizeof what, "the key %s does not belong to the certificate %s", key,
                   credentials.certificate);
        return Failed(error, cap, what);
    }
    if (SSL_CTX_load_verify_locations(context, credentials.ca, nullptr) != 1) {
        FormatText(what, sizeof what, "cannot read the CA file %s", credentials.ca);
        return Failed(error, cap, what);
    }
    return 0;
}

}  // namespace

int TlsClientOpen(const TlsClientCredentials& credentials, const TlsClientIo& io,
                  TlsClient** client, char* error, size_t cap) {
    *client = nullptr;
    ERR_clear_error();
    BIO_METHOD* method = CallbackMethod();
    if (method == nullptr) return Failed(error, cap, "the TLS client could not be set up");
    TlsClientPtr session(new TlsClient);
    session->io = io;
    session->context = SSL_CTX_new(TLS_client_method());
    if (session->context == nullptr)
        return Failed(error, cap, "the TLS client could not be set up");
    SSL_CTX_set_min_proto_version(session->context, TLS1_2_VERSION);
    SSL_CTX_set_verify(session->context, SSL_VERIFY_PEER, nullptr);
    if (LoadCredentials(session->context, credentials, error, cap) != 0) return -1;
    session->ssl = SSL_new(session->context);
    BIO* bio = session->ssl != nullptr ? BIO_new(method) : nullptr;
    if (bio == nullptr) return Failed(error, cap, "the TLS client could not be set up");
    BIO_set_data(bio, &session->io);
    SSL_set_bio(session->ssl, bio, bio);
    if (SSL_connect(session->ssl) != 1) {
        session->broken = true;
        long verified = SSL_get_verify_result(session->ssl);
        if (verified != X509_V_OK) {
            FormatText(error, cap, "the service's certificate was refused: %s",
                       X509_verify_cert_error_string(verified));
            ERR_clear_error();
            return -1;
        }
        return Failed(error, cap, "the TLS hand-shake failed");
    }
    *client = session.release();
    return 0;
}

int TlsClientWrite(TlsClient* client, const void* data, size_t length, char* error, size_t cap) {
    const char* from = static_cast<const char*>(data);
    while (length > 0) {
        int slice = length < static_cast<size_t>(INT_MAX) ? static_cast<int>(length) : INT_MAX;
        int written = SSL_write(client->ssl, from, slice);
        if (written <= 0) {
            client->broken = true;
            return Failed(error, cap, "the secured write failed");
        }
        from += written;
        length -= static_cast<size_t>(written);
    }
    return 0;
}

int TlsClientRead(TlsClient* client, void* buffer, size_t length, size_t* count, char* error,
                  size_t cap) {
    *count = 0;
    int slice = length < static_cast<size_t>(INT_MAX) ? static_cast<int>(length) : INT_MAX;
    int got = SSL_read(client->ssl, buffer, slice);
    if (got > 0) {
        *count = static_cast<size_t>(got);
        return 0;
    }
    if (SSL_get_error(client->ssl, got) == SSL_ERROR_ZERO_RETURN) return 0;
    client->broken = true;
    return Failed(error, cap, "the secured read failed");
}

void TlsClientClose(TlsClient* client) {
    if (client == nullptr) return;
    if (client->ssl != nullptr) {
        if (!client->broken) SSL_shutdown(client->ssl);
        SSL_free(client->ssl);
    }
    SSL_CTX_free(client->context);
    ERR_clear_error();
    delete client;
}

}  // namespace vx
