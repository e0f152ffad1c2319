// The sender's side of a secured session: a TLS client (TLS 1.2 or later) that runs its
// hand-shake and its records over a connection the caller already holds, through two callbacks,
// so that the caller's own time-outs and error reports stay in charge of the bytes.
//
// Credentials: on Linux (OpenSSL) certificate and key are PEM files (key empty or null: the key
// is in the certificate file); on Windows (Schannel) the
// certificate is a PFX file holding the certificate with its private key, and key is the PFX
// file's password (empty or null: none). ca is a PEM file with the CA certificate the service's
// certificate must be signed by. The service's certificate is checked against that CA only; its
// name is not compared with the host name (the service is addressed by whatever name or address
// reaches it).
//
// Return codes: 0 success, -1 failure with a one-line reason in the caller's error buffer.
#pragma once

#include <cstddef>
#include <memory>

namespace vx {

// How the TLS client reaches the service. recv delivers at least one and at most length bytes
// into buffer with *count set, send writes all of length; both return 0, or -1 when the
// connection failed (the caller's callbacks keep their own account of why).
struct TlsClientIo {
    void* context = nullptr;
    int (*recv)(void* context, void* buffer, size_t length, size_t* count) = nullptr;
    int (*send)(void* context, const void* data, size_t length) = nullptr;
};

struct TlsClientCredentials {
    const char* certificate = nullptr;
    const char* key = nullptr;
    const char* ca = nullptr;
};

struct TlsClient;

// Runs the hand-shake as a client. On success *client is the session (release it with
// TlsClientClose); on failure *client is null and error says why (cut to cap).
int TlsClientOpen(const TlsClientCredentials& credentials, const TlsClientIo& io,
                  TlsClient** client, char* error, size_t cap);

// Encrypts and sends all of data.
int TlsClientWrite(TlsClient* client, const void* data, size_t length, char* error, size_t cap);

// Receives the next decrypted bytes, at most length: 0 with *count > 0, or 0 with *count == 0
// when the service ended the secured session; -1 on failure.
int TlsClientRead(TlsClient* client, void* buffer, size_t length, size_t* count, char* error,
                  size_t cap);

// Ends the session (a close notification goes out when the connection still stands) and
// releases it. A null client is ignored.
void TlsClientClose(TlsClient* client);

struct TlsClientCloser {
    void operator()(TlsClient* client) const { TlsClientClose(client); }
};
using TlsClientPtr = std::unique_ptr<TlsClient, TlsClientCloser>;

}  // namespace vx
