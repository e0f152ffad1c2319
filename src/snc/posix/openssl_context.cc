// The server's credentials: one SSL_CTX for the process, made at SncInit from the profile's
// files. Each session's SSL holds its own reference, so SncDone never pulls it from under one.
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <memory>
#include <mutex>

#include "snc/posix/openssl_tls.h"
#include "snc/tls.h"
#include "snc/trace.h"

namespace vx::snc {

namespace {

struct ContextFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using ContextHandle = std::unique_ptr<SSL_CTX, ContextFree>;

std::mutex g_contextLock;
ContextHandle g_context;

// Traces why a file of the profile was refused; false for the caller to return.
bool Refused(const char* what, const char* path) {
    TraceLine("cannot use the %s %s: sessions cannot be secured", what, path);
    TraceErrorQueue("  ");
    return false;
}

void TraceCertificate(SSL_CTX* context, const char* path) {
    char subject[SNC_PEER_NAME_MAX] = "?";
    X509* certificate = SSL_CTX_get0_certificate(context);
    if (certificate != nullptr) SubjectText(certificate, subject, sizeof subject);
    TraceLine("server certificate %s loaded: %s", path, subject);
}

bool LoadCredentials(SSL_CTX* context, const Profile& profile) {
    if (SSL_CTX_use_certificate_chain_file(context, profile.certificate) != 1)
        return Refused("certificate", profile.certificate);
    // An empty key: the key follows the certificate in its file.
    const char* key = profile.key[0] != '\0' ? profile.key : profile.certificate;
    if (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1)
        return Refused("key", key);
    if (SSL_CTX_check_private_key(context) != 1)
        return Refused("key (it does not match the certificate)", key);
    if (SSL_CTX_load_verify_locations(context, profile.ca, nullptr) != 1)
        return Refused("CA certificate", profile.ca);
    // The CA names the server sends in its certificate request, so a sender picks the right one.
    STACK_OF(X509_NAME)* authorities = SSL_load_client_CA_file(profile.ca);
    if (authorities == nullptr) return Refused("CA certificate", profile.ca);
    SSL_CTX_set_client_CA_list(context, authorities);
    TraceCertificate(context, profile.certificate);
    TraceLine("senders' certificates are checked against %s", profile.ca);
    return true;
}

}  // namespace

int TlsServerStart(const Profile& profile) {
    TlsServerStop();
    ERR_clear_error();
    ContextHandle context(SSL_CTX_new(TLS_server_method()));
    if (!context) {
        Refused("TLS library", "context");
        return -1;
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    // Every sender proves who it is; a sender without a certificate is refused.
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    // One connection carries one command: nothing is resumed, so no tickets or cache.
    SSL_CTX_set_num_tickets(context.get(), 0);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    if (!LoadCredentials(context.get(), profile)) return -1;
    std::lock_guard<std::mutex> hold(g_contextLock);
    g_context = std::move(context);
    return 0;
}

void TlsServerStop() {
    std::lock_guard<std::mutex> hold(g_contextLock);
    g_context.reset();
}

bool TlsServerReady() {
    std::lock_guard<std::mutex> hold(g_contextLock);
    return g_context != nullptr;
}

void TlsProductName(char* out, size_t cap) {
    FormatText(out, cap, "TLS with client certificates (%s)", OpenSSL_version(OPENSSL_VERSION));
}

SSL* NewServerSsl() {
    std::lock_guard<std::mutex> hold(g_contextLock);
    return g_context ? SSL_new(g_context.get()) : nullptr;
}

}  // namespace vx::snc
