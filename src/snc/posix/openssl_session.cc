// A session's TLS over its transport: OpenSSL reads and writes records in two memory BIOs, and
// this file carries them to and from the transport, within the caller's time-out.
#include <openssl/err.h>
#include <openssl/x509.h>

#include <new>

#include "snc/deadline.h"
#include "snc/posix/openssl_tls.h"
#include "snc/tls.h"
#include "snc/trace.h"

namespace vx::snc {

namespace {

int TransportFailed(SncSession* session, const char* what, int code) {
    session->niError = code;
    AddErrorLine(&session->errors, "transport %s failed with code %d", what, code);
    return SNC_ERR_NI;
}

// Sends every record OpenSSL has written so far.
int Flush(SncSession* session, const Deadline& deadline) {
    TlsSession* tls = session->tls;
    int pending;
    while ((pending = BIO_read(tls->out, tls->chunk, sizeof tls->chunk)) > 0) {
        int done = 0;
        while (done < pending) {
            int sent = 0;
            int rc = session->transport.send(session->transport.context, tls->chunk + done,
                                             pending - done, deadline.Remaining(), &sent);
            if (rc != 0) return TransportFailed(session, "send", rc);
            if (sent <= 0) return TransportFailed(session, "send", kTransportClosed);
            done += sent;
        }
    }
    return SNC_OK;
}

// Hands OpenSSL the next bytes the peer sent.
int Receive(SncSession* session, const Deadline& deadline) {
    TlsSession* tls = session->tls;
    int count = 0;
    int rc = session->transport.recv(session->transport.context, tls->chunk, sizeof tls->chunk,
                                     deadline.Remaining(), &count);
    if (rc != 0) return TransportFailed(session, "receive", rc);
    if (count <= 0) return TransportFailed(session, "receive", kTransportClosed);
    if (BIO_write(tls->in, tls->chunk, count) != count) return SNC_ERR_MEMORY;
    return SNC_OK;
}

// Runs one OpenSSL call (SSL_accept, SSL_read, SSL_write) until it completes, moving records
// through the transport whenever it waits for them. SNC_OK with *result the call's positive
// value; SNC_ERR_NI for the transport or a peer that closed the stream; SNC_ERR_PROTOCOL when
// TLS failed (the error lines say why).
template <typename Call>
int Drive(SncSession* session, const Deadline& deadline, Call call, int* result) {
    SSL* ssl = session->tls->ssl;
    for (;;) {
        ERR_clear_error();
        int value = call(ssl);
        int error = value > 0 ? SSL_ERROR_NONE : SSL_get_error(ssl, value);
        if (error != SSL_ERROR_NONE && error != SSL_ERROR_WANT_READ &&
            error != SSL_ERROR_WANT_WRITE)
            TakeErrorQueue(&session->errors);
        // Also after a failure: the alert that tells the peer why goes out with it.
        int sent = Flush(session, deadline);
        switch (error) {
            case SSL_ERROR_NONE:
                *result = value;
                return sent;
            case SSL_ERROR_WANT_READ: {
                if (sent != SNC_OK) return sent;
                int rc = Receive(session, deadline);
                if (rc != SNC_OK) return rc;
                break;
            }
            case SSL_ERROR_WANT_WRITE:
                if (sent != SNC_OK) return sent;
                break;
            case SSL_ERROR_ZERO_RETURN:
                return TransportFailed(session, "stream (closed by the peer)", kTransportClosed);
            default:
                return SNC_ERR_PROTOCOL;
        }
    }
}

// Why the peer's certificate was refused, when it was.
void AddVerifyResult(SncSession* session) {
    long verify = SSL_get_verify_result(session->tls->ssl);
    if (verify != X509_V_OK)
        AddErrorLine(&session->errors, "peer certificate refused: %s",
                     X509_verify_cert_error_string(verify));
}

}  // namespace

int TlsSessionCreate(SncSession* session) {
    TlsSession* tls = new (std::nothrow) TlsSession{};
    if (tls == nullptr) return SNC_ERR_MEMORY;
    tls->ssl = NewServerSsl();
    tls->in = BIO_new(BIO_s_mem());
    tls->out = BIO_new(BIO_s_mem());
    if (tls->ssl == nullptr || tls->in == nullptr || tls->out == nullptr) {
        bool ready = TlsServerReady();
        BIO_free(tls->in);
        BIO_free(tls->out);
        SSL_free(tls->ssl);
        delete tls;
        return ready ? SNC_ERR_MEMORY : SNC_ERR_STATE;
    }
    SSL_set_bio(tls->ssl, tls->in, tls->out);
    session->tls = tls;
    return SNC_OK;
}

void TlsSessionFree(SncSession* session) {
    if (session->tls == nullptr) return;
    SSL_free(session->tls->ssl);  // frees both BIOs
    delete session->tls;
    session->tls = nullptr;
}

int TlsAccept(SncSession* session, int timeoutMs) {
    ClearErrorLines(&session->errors);
    int done = 0;
    int rc = Drive(session, Deadline(timeoutMs), SSL_accept, &done);
    if (rc == SNC_OK) {
        session->state = SessionState::kSecured;
        return SNC_OK;
    }
    session->state = SessionState::kFailed;
    if (rc == SNC_ERR_PROTOCOL) {
        rc = SNC_ERR_HANDSHAKE;
        AddVerifyResult(session);
    }
    TraceErrorLines("hand-shake failed", session->errors);
    return rc;
}

int TlsRead(SncSession* session, void* buffer, int length, int timeoutMs, int* count,
            bool singleRead) {
    ClearErrorLines(&session->errors);
    Deadline deadline(timeoutMs);
    char* into = static_cast<char*>(buffer);
    *count = 0;
    while (*count < length) {
        int got = 0;
        int rc = Drive(
            session, deadline,
            [&](SSL* ssl) { return SSL_read(ssl, into + *count, length - *count); }, &got);
        if (rc == SNC_ERR_PROTOCOL) {
            session->state = SessionState::kFailed;
            TraceLine("secured stream broken: %s", FirstErrorLine(session->errors));
        }
        if (rc != SNC_OK) return rc;
        *count += got;
        if (singleRead) break;
    }
    return SNC_OK;
}

int TlsWrite(SncSession* session, const void* data, int length, int timeoutMs, int* count) {
    ClearErrorLines(&session->errors);
    int written = 0;
    int rc = Drive(
        session, Deadline(timeoutMs), [&](SSL* ssl) { return SSL_write(ssl, data, length); },
        &written);
    if (rc == SNC_ERR_PROTOCOL) {
        session->state = SessionState::kFailed;
        TraceLine("secured stream broken: %s", FirstErrorLine(session->errors));
    }
    if (rc == SNC_OK) *count = written;
    return rc;
}

}  // namespace vx::snc
