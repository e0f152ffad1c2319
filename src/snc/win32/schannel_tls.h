// The Schannel pieces the win32 TLS layer's files share: the server's credentials, a session's
// SSPI state, the certificate files and the checks on the peer's certificate.
#pragma once

#define SECURITY_WIN32
// clang-format off
#include <windows.h>
#include <wincrypt.h>
#include <schannel.h>
#include <security.h>
#include <sspi.h>
// clang-format on

#include <cstddef>
#include <memory>
#include <vector>

#include "snc/session.h"
#include "snc/win32/crypt_certificates.h"

namespace vx::snc {

// What SncInit loaded: the server certificate with its key (kept reachable by the PFX's store),
// the CA of the senders' certificates and Schannel's inbound credentials over them. Sessions
// hold a reference, so SncDone never pulls it from under one.
struct ServerCredentials {
    StorePtr store;
    CertPtr certificate;
    CertPtr ca;
    CredHandle handle{};
    bool haveHandle = false;

    ServerCredentials() = default;
    ServerCredentials(const ServerCredentials&) = delete;
    ServerCredentials& operator=(const ServerCredentials&) = delete;
    ~ServerCredentials() {
        if (haveHandle) FreeCredentialsHandle(&handle);
    }
};

// The credentials loaded now; null when there are none.
std::shared_ptr<ServerCredentials> CurrentCredentials();

// A session's Schannel state: its security context and the bytes between the transport and it.
struct TlsSession {
    std::shared_ptr<ServerCredentials> credentials;
    CtxtHandle context{};
    bool haveContext = false;
    SecPkgContext_StreamSizes sizes{};
    CertPtr peer;                // the sender's certificate, once the hand-shake checked it
    std::vector<BYTE> incoming;  // received, not yet taken by Schannel
    std::vector<BYTE> plain;     // decrypted, not yet handed out
    size_t plainStart = 0;

    TlsSession() = default;
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;
    ~TlsSession() {
        if (haveContext) DeleteSecurityContext(&context);
    }
};

// The certificate with its private key from a PFX file (password: UTF-8, empty for none). 0, or
// -1 with the reason traced, naming the file.
int LoadServerPfx(const char* path, const char* password, StorePtr* store, CertPtr* certificate);
// The first certificate of a PEM file. 0, or -1 with the reason traced, naming the file.
int LoadCaCertificate(const char* path, CertPtr* ca);

// The sender's certificate must chain up to the CA and carry the CA's signature. SNC_OK, or
// SNC_ERR_HANDSHAKE with the reason in the error lines.
int CheckPeerCertificate(const CERT_CONTEXT* peer, const CERT_CONTEXT* ca, ErrorLines* errors);

// The certificate's subject in RFC 4514 form ("CN=app1,O=Example"). SNC_OK, SNC_ERR_ARGUMENT
// when it does not fit whole in size bytes, or SNC_ERR_PROTOCOL when the name cannot be read.
int SubjectText(const CERT_CONTEXT* certificate, char* out, int size);

}  // namespace vx::snc
