// A session's TLS over its transport with Schannel (SSPI) as the server: the hand-shake through
// AcceptSecurityContext, records through EncryptMessage / DecryptMessage, every byte carried to
// and from the transport by this file within the caller's time-out.
#include <algorithm>
#include <cstring>
#include <new>

#include "snc/deadline.h"
#include "snc/tls.h"
#include "snc/trace.h"
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

// A sender proves who it is (client certificate required); records are private and in order.
constexpr ULONG kAcceptFlags = ASC_REQ_MUTUAL_AUTH | ASC_REQ_CONFIDENTIALITY |
                               ASC_REQ_SEQUENCE_DETECT | ASC_REQ_REPLAY_DETECT | ASC_REQ_STREAM |
                               ASC_REQ_EXTENDED_ERROR | ASC_REQ_ALLOCATE_MEMORY;

// A transport read: at most one record with its header and trailer.
constexpr int kReceiveChunk = 16 * 1024 + 512;
// Bytes waiting for Schannel beyond this are no TLS a sender would send.
constexpr size_t kMaxIncoming = 64 * 1024;

struct StatusText {
    SECURITY_STATUS status;
    const char* text;
};

constexpr StatusText kStatusTexts[] = {
    {SEC_E_UNSUPPORTED_FUNCTION, "the TLS server side is not supported here"},
    {SEC_E_ALGORITHM_MISMATCH, "no protocol version or cipher in common"},
    {SEC_E_INVALID_TOKEN, "the peer's message is no TLS"},
    {SEC_E_ILLEGAL_MESSAGE, "the peer's message is malformed"},
    {SEC_E_NO_CREDENTIALS, "the server's credentials are unusable"},
    {SEC_E_INCOMPLETE_CREDENTIALS, "the peer sent no certificate"},
    {SEC_E_CERT_UNKNOWN, "the peer's certificate is unknown"},
    {SEC_E_UNTRUSTED_ROOT, "the peer's certificate has an untrusted root"},
    {SEC_E_CERT_EXPIRED, "the peer's certificate has expired"},
    {SEC_E_DECRYPT_FAILURE, "a record cannot be decrypted"},
    {SEC_E_MESSAGE_ALTERED, "a record was altered"},
    {SEC_E_INTERNAL_ERROR, "Schannel failed inside"},
};

void AddStatusLine(ErrorLines* errors, const char* call, SECURITY_STATUS status) {
    const char* text = "Schannel error";
    for (const StatusText& entry : kStatusTexts)
        if (entry.status == status) text = entry.text;
    AddErrorLine(errors, "%s: %s (0x%08lx)", call, text, static_cast<unsigned long>(status));
}

int TransportFailed(SncSession* session, const char* what, int code) {
    session->niError = code;
    AddErrorLine(&session->errors, "transport %s failed with code %d", what, code);
    return SNC_ERR_NI;
}

int SendAll(SncSession* session, const void* data, size_t length, const Deadline& deadline) {
    const char* from = static_cast<const char*>(data);
    size_t done = 0;
    while (done < length) {
        int sent = 0;
        int rc =
            session->transport.send(session->transport.context, from + done,
                                    static_cast<int>(length - done), deadline.Remaining(), &sent);
        if (rc != 0) return TransportFailed(session, "send", rc);
        if (sent <= 0) return TransportFailed(session, "send", kTransportClosed);
        done += static_cast<size_t>(sent);
    }
    return SNC_OK;
}

// Sends a buffer Schannel made (a hand-shake token or an alert) and frees it.
int SendToken(SncSession* session, SecBuffer* token, const Deadline& deadline) {
    if (token->pvBuffer == nullptr) return SNC_OK;
    int rc =
        token->cbBuffer > 0 ? SendAll(session, token->pvBuffer, token->cbBuffer, deadline) : SNC_OK;
    FreeContextBuffer(token->pvBuffer);
    token->pvBuffer = nullptr;
    token->cbBuffer = 0;
    return rc;
}

// Appends the next bytes the peer sent to the incoming ones.
int Receive(SncSession* session, const Deadline& deadline) {
    TlsSession* tls = session->tls;
    if (tls->incoming.size() > kMaxIncoming) {
        AddErrorLine(&session->errors, "the peer's record is too long");
        return SNC_ERR_PROTOCOL;
    }
    size_t had = tls->incoming.size();
    tls->incoming.resize(had + kReceiveChunk);
    int count = 0;
    int rc = session->transport.recv(session->transport.context, tls->incoming.data() + had,
                                     kReceiveChunk, deadline.Remaining(), &count);
    tls->incoming.resize(had + (rc == 0 && count > 0 ? static_cast<size_t>(count) : 0));
    if (rc != 0) return TransportFailed(session, "receive", rc);
    if (count <= 0) return TransportFailed(session, "receive", kTransportClosed);
    return SNC_OK;
}

// Keeps what a step left unread (SECBUFFER_EXTRA: the tail of the incoming bytes).
void KeepExtra(std::vector<BYTE>* incoming, const SecBuffer& extra) {
    if (extra.BufferType == SECBUFFER_EXTRA && extra.cbBuffer > 0 &&
        extra.cbBuffer <= incoming->size())
        incoming->erase(incoming->begin(), incoming->end() - extra.cbBuffer);
    else
        incoming->clear();
}

// Runs AcceptSecurityContext until the hand-shake is done. SNC_OK, SNC_ERR_NI, SNC_ERR_PROTOCOL.
int Handshake(SncSession* session, const Deadline& deadline) {
    TlsSession* tls = session->tls;
    for (;;) {
        if (tls->incoming.empty()) {
            int rc = Receive(session, deadline);
            if (rc != SNC_OK) return rc;
        }
        SecBuffer in[2] = {
            {static_cast<ULONG>(tls->incoming.size()), SECBUFFER_TOKEN, tls->incoming.data()},
            {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc inDesc{SECBUFFER_VERSION, 2, in};
        SecBuffer out[2] = {{0, SECBUFFER_TOKEN, nullptr}, {0, SECBUFFER_ALERT, nullptr}};
        SecBufferDesc outDesc{SECBUFFER_VERSION, 2, out};
        ULONG attributes = 0;
        SECURITY_STATUS status = AcceptSecurityContext(
            &tls->credentials->handle, tls->haveContext ? &tls->context : nullptr, &inDesc,
            kAcceptFlags, 0, tls->haveContext ? nullptr : &tls->context, &outDesc, &attributes,
            nullptr);
        if (status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED) tls->haveContext = true;
        if (status == SEC_E_INCOMPLETE_MESSAGE) {
            // The record is not whole yet: the same bytes again with more behind them.
            int rc = Receive(session, deadline);
            if (rc != SNC_OK) return rc;
            continue;
        }
        // Also after a failure: the alert that tells the peer why goes out with it.
        int sent = SendToken(session, &out[0], deadline);
        int alert = SendToken(session, &out[1], deadline);
        if (status != SEC_E_OK && status != SEC_I_CONTINUE_NEEDED) {
            AddStatusLine(&session->errors, "AcceptSecurityContext", status);
            return SNC_ERR_PROTOCOL;
        }
        if (sent != SNC_OK) return sent;
        if (alert != SNC_OK) return alert;
        KeepExtra(&tls->incoming, in[1]);
        if (status == SEC_E_OK) return SNC_OK;
    }
}

// After the hand-shake: the sender's certificate against the CA, and the record sizes.
int Establish(SncSession* session) {
    TlsSession* tls = session->tls;
    const CERT_CONTEXT* rawPeer = nullptr;
    SECURITY_STATUS status =
        QueryContextAttributesA(&tls->context, SECPKG_ATTR_REMOTE_CERT_CONTEXT, &rawPeer);
    if (status != SEC_E_OK || rawPeer == nullptr) {
        AddErrorLine(&session->errors, "peer certificate refused: the peer sent no certificate");
        return SNC_ERR_HANDSHAKE;
    }
    CertPtr peer(rawPeer);
    int rc = CheckPeerCertificate(peer.get(), tls->credentials->ca.get(), &session->errors);
    if (rc != SNC_OK) return rc;
    status = QueryContextAttributesA(&tls->context, SECPKG_ATTR_STREAM_SIZES, &tls->sizes);
    if (status != SEC_E_OK || tls->sizes.cbMaximumMessage == 0) {
        AddStatusLine(&session->errors, "QueryContextAttributes (stream sizes)", status);
        return SNC_ERR_HANDSHAKE;
    }
    tls->peer = std::move(peer);
    return SNC_OK;
}

void StreamBroken(SncSession* session) {
    session->state = SessionState::kFailed;
    TraceLine("secured stream broken: %s", FirstErrorLine(session->errors));
}

// Decrypts the next record into the plain bytes. SNC_OK with plain bytes waiting, SNC_ERR_NI
// (also when the peer ended the secured session), SNC_ERR_PROTOCOL.
int DecryptNext(SncSession* session, const Deadline& deadline) {
    TlsSession* tls = session->tls;
    for (;;) {
        if (!tls->incoming.empty()) {
            SecBuffer buffers[4] = {
                {static_cast<ULONG>(tls->incoming.size()), SECBUFFER_DATA, tls->incoming.data()},
                {0, SECBUFFER_EMPTY, nullptr},
                {0, SECBUFFER_EMPTY, nullptr},
                {0, SECBUFFER_EMPTY, nullptr}};
            SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
            SECURITY_STATUS status = DecryptMessage(&tls->context, &desc, 0, nullptr);
            if (status == SEC_E_OK) {
                // Both buffers point into the incoming bytes: copy before they move.
                tls->plain.clear();
                tls->plainStart = 0;
                SecBuffer extra{0, SECBUFFER_EMPTY, nullptr};
                for (const SecBuffer& buffer : buffers) {
                    if (buffer.BufferType == SECBUFFER_DATA)
                        tls->plain.assign(static_cast<BYTE*>(buffer.pvBuffer),
                                          static_cast<BYTE*>(buffer.pvBuffer) + buffer.cbBuffer);
                    if (buffer.BufferType == SECBUFFER_EXTRA) extra = buffer;
                }
                KeepExtra(&tls->incoming, extra);
                if (!tls->plain.empty()) return SNC_OK;
                continue;  // an empty record
            }
            if (status == SEC_I_CONTEXT_EXPIRED)
                return TransportFailed(session, "stream (closed by the peer)", kTransportClosed);
            if (status == SEC_I_RENEGOTIATE) {
                AddErrorLine(&session->errors, "the peer asked for a new hand-shake: refused");
                return SNC_ERR_PROTOCOL;
            }
            if (status != SEC_E_INCOMPLETE_MESSAGE) {
                AddStatusLine(&session->errors, "DecryptMessage", status);
                return SNC_ERR_PROTOCOL;
            }
        }
        int rc = Receive(session, deadline);
        if (rc != SNC_OK) return rc;
    }
}

}  // namespace

int TlsSessionCreate(SncSession* session) {
    std::shared_ptr<ServerCredentials> credentials = CurrentCredentials();
    if (!credentials) return SNC_ERR_STATE;
    TlsSession* tls = new (std::nothrow) TlsSession;
    if (tls == nullptr) return SNC_ERR_MEMORY;
    tls->credentials = std::move(credentials);
    session->tls = tls;
    return SNC_OK;
}

void TlsSessionFree(SncSession* session) {
    delete session->tls;  // deletes the security context; the credentials go with the last one
    session->tls = nullptr;
}

int TlsAccept(SncSession* session, int timeoutMs) {
    ClearErrorLines(&session->errors);
    int rc = Handshake(session, Deadline(timeoutMs));
    if (rc == SNC_OK) rc = Establish(session);
    if (rc == SNC_OK) {
        session->state = SessionState::kSecured;
        return SNC_OK;
    }
    session->state = SessionState::kFailed;
    if (rc == SNC_ERR_PROTOCOL) rc = SNC_ERR_HANDSHAKE;
    TraceErrorLines("hand-shake failed", session->errors);
    return rc;
}

int TlsRead(SncSession* session, void* buffer, int length, int timeoutMs, int* count,
            bool singleRead) {
    ClearErrorLines(&session->errors);
    TlsSession* tls = session->tls;
    Deadline deadline(timeoutMs);
    char* into = static_cast<char*>(buffer);
    *count = 0;
    while (*count < length) {
        if (tls->plainStart == tls->plain.size()) {
            int rc = DecryptNext(session, deadline);
            if (rc == SNC_ERR_PROTOCOL) StreamBroken(session);
            if (rc != SNC_OK) return rc;
        }
        size_t have = tls->plain.size() - tls->plainStart;
        size_t take = std::min(have, static_cast<size_t>(length - *count));
        memcpy(into + *count, tls->plain.data() + tls->plainStart, take);
        tls->plainStart += take;
        *count += static_cast<int>(take);
        if (singleRead) break;
    }
    return SNC_OK;
}

int TlsWrite(SncSession* session, const void* data, int length, int timeoutMs, int* count) {
    ClearErrorLines(&session->errors);
    TlsSession* tls = session->tls;
    const SecPkgContext_StreamSizes& sizes = tls->sizes;
    Deadline deadline(timeoutMs);
    std::vector<BYTE> record(sizes.cbHeader + sizes.cbMaximumMessage + sizes.cbTrailer);
    const BYTE* from = static_cast<const BYTE*>(data);
    int written = 0;
    while (written < length) {
        ULONG slice = std::min(static_cast<ULONG>(length - written), sizes.cbMaximumMessage);
        memcpy(record.data() + sizes.cbHeader, from + written, slice);
        SecBuffer buffers[4] = {
            {sizes.cbHeader, SECBUFFER_STREAM_HEADER, record.data()},
            {slice, SECBUFFER_DATA, record.data() + sizes.cbHeader},
            {sizes.cbTrailer, SECBUFFER_STREAM_TRAILER, record.data() + sizes.cbHeader + slice},
            {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
        SECURITY_STATUS status = EncryptMessage(&tls->context, 0, &desc, 0);
        if (status != SEC_E_OK) {
            AddStatusLine(&session->errors, "EncryptMessage", status);
            StreamBroken(session);
            return SNC_ERR_PROTOCOL;
        }
        size_t total = buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer;
        int rc = SendAll(session, record.data(), total, deadline);
        if (rc != SNC_OK) return rc;
        written += static_cast<int>(slice);
        *count = written;
    }
    return SNC_OK;
}

}  // namespace vx::snc
