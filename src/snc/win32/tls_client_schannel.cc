// The TLS client over Schannel (SSPI). The sender's certificate and its key come from a PFX file
// imported into a store of this process only; the service's certificate is checked by hand
// against the CA file with crypt32's chain engine, because the CA is not among the host's roots.
#define SECURITY_WIN32
// clang-format off
#include <windows.h>
#include <wincrypt.h>
#include <schannel.h>
#include <security.h>
#include <sspi.h>
// clang-format on

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "base/text.h"
#include "snc/tls_client.h"
#include "snc/win32/crypt_certificates.h"

namespace vx {

namespace {

// Records travel in pieces of at most this many bytes (with header and trailer).
constexpr size_t kMaxRecord = 16384 + 512;

using snc::CertPtr;
using snc::StorePtr;

int Failed(char* error, size_t cap, const char* what, SECURITY_STATUS status) {
    FormatText(error, cap, "%s (0x%08lx)", what, static_cast<unsigned long>(status));
    return -1;
}

}  // namespace

struct TlsClient {
    TlsClientIo io;
    StorePtr store;
    CertPtr certificate;
    CertPtr ca;
    CredHandle credentials{};
    CtxtHandle context{};
    bool haveCredentials = false;
    bool haveContext = false;
    bool broken = false;
    SecPkgContext_StreamSizes sizes{};
    std::vector<BYTE> incoming;  // received, not yet decrypted
    std::vector<BYTE> plain;     // decrypted, not yet handed out
    size_t plainStart = 0;
    bool ended = false;  // the service ended the secured session

    TlsClient() = default;
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;
    ~TlsClient() {
        if (haveContext) DeleteSecurityContext(&context);
        if (haveCredentials) FreeCredentialsHandle(&credentials);
    }
};

namespace {

int SendToken(TlsClient* client, SecBuffer& token) {
    if (token.cbBuffer == 0 || token.pvBuffer == nullptr) return 0;
    int rc = client->io.send(client->io.context, token.pvBuffer, token.cbBuffer);
    FreeContextBuffer(token.pvBuffer);
    token.pvBuffer = nullptr;
    token.cbBuffer = 0;
    return rc;
}

int ReceiveMore(TlsClient* client) {
    BYTE chunk[kMaxRecord];
    size_t count = 0;
    if (client->io.recv(client->io.context, chunk, sizeof chunk, &count) != 0 || count == 0)
        return -1;
    client->incoming.insert(client->incoming.end(), chunk, chunk + count);
    return 0;
}

constexpr ULONG kContextFlags = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT |
                                ISC_REQ_CONFIDENTIALITY | ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_STREAM |
                                ISC_REQ_EXTENDED_ERROR | ISC_REQ_MANUAL_CRED_VALIDATION;

int Handshake(TlsClient* client, char* error, size_t cap) {
    ULONG attributes = 0;
    SecBuffer out{0, SECBUFFER_TOKEN, nullptr};
    SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &out};
    SECURITY_STATUS status =
        InitializeSecurityContextA(&client->credentials, nullptr, nullptr, kContextFlags, 0, 0,
                                   nullptr, 0, &client->context, &outDesc, &attributes, nullptr);
    if (status != SEC_I_CONTINUE_NEEDED)
        return Failed(error, cap, "the TLS hand-shake could not start", status);
    client->haveContext = true;
    if (SendToken(client, out) != 0) {
        FormatText(error, cap, "%s", "the connection failed during the TLS hand-shake");
        return -1;
    }
    bool needMore = true;
    for (;;) {
        if (needMore && ReceiveMore(client) != 0) {
            FormatText(error, cap, "%s", "the connection failed during the TLS hand-shake");
            return -1;
        }
        SecBuffer in[2] = {
            {static_cast<ULONG>(client->incoming.size()), SECBUFFER_TOKEN, client->incoming.data()},
            {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc inDesc{SECBUFFER_VERSION, 2, in};
        SecBuffer outs[1] = {{0, SECBUFFER_TOKEN, nullptr}};
        SecBufferDesc outsDesc{SECBUFFER_VERSION, 1, outs};
        status = InitializeSecurityContextA(&client->credentials, &client->context, nullptr,
                                            kContextFlags, 0, 0, &inDesc, 0, nullptr, &outsDesc,
                                            &attributes, nullptr);
        if (status == SEC_E_INCOMPLETE_MESSAGE) {
            needMore = true;
            continue;
        }
        if (SendToken(client, outs[0]) != 0) {
            FormatText(error, cap, "%s", "the connection failed during the TLS hand-shake");
            return -1;
        }
        if (status != SEC_E_OK && status != SEC_I_CONTINUE_NEEDED &&
            status != SEC_I_INCOMPLETE_CREDENTIALS)
            return Failed(error, cap, "the TLS hand-shake failed", status);
        // What the step did not consume belongs to the next one.
        if (in[1].BufferType == SECBUFFER_EXTRA && in[1].cbBuffer > 0) {
            client->incoming.erase(client->incoming.begin(),
                                   client->incoming.end() - in[1].cbBuffer);
            needMore = false;
        } else {
            client->incoming.clear();
            needMore = true;
        }
        if (status == SEC_E_OK) return 0;
        if (status == SEC_I_INCOMPLETE_CREDENTIALS) needMore = false;
    }
}

int Encrypt(TlsClient* client, const BYTE* data, size_t length) {
    const SecPkgContext_StreamSizes& sizes = client->sizes;
    std::vector<BYTE> record(sizes.cbHeader + sizes.cbMaximumMessage + sizes.cbTrailer);
    while (length > 0) {
        size_t slice = length < sizes.cbMaximumMessage ? length : sizes.cbMaximumMessage;
        memcpy(record.data() + sizes.cbHeader, data, slice);
        SecBuffer buffers[4] = {
            {sizes.cbHeader, SECBUFFER_STREAM_HEADER, record.data()},
            {static_cast<ULONG>(slice), SECBUFFER_DATA, record.data() + sizes.cbHeader},
            {sizes.cbTrailer, SECBUFFER_STREAM_TRAILER, record.data() + sizes.cbHeader + slice},
            {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
        if (EncryptMessage(&client->context, 0, &desc, 0) != SEC_E_OK) return -1;
        size_t total = buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer;
        if (client->io.send(client->io.context, record.data(), total) != 0) return -2;
        data += slice;
        length -= slice;
    }
    return 0;
}

// Decrypts the next record into plain; 1 when the service ended the session.
int DecryptNext(TlsClient* client, char* error, size_t cap) {
    for (;;) {
        if (!client->incoming.empty()) {
            SecBuffer buffers[4] = {{static_cast<ULONG>(client->incoming.size()), SECBUFFER_DATA,
                                     client->incoming.data()},
                                    {0, SECBUFFER_EMPTY, nullptr},
                                    {0, SECBUFFER_EMPTY, nullptr},
                                    {0, SECBUFFER_EMPTY, nullptr}};
            SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
            SECURITY_STATUS status = DecryptMessage(&client->context, &desc, 0, nullptr);
            if (status == SEC_I_CONTEXT_EXPIRED) return 1;
            if (status == SEC_E_OK) {
                std::vector<BYTE> extra;
                for (SecBuffer& b : buffers) {
                    if (b.BufferType == SECBUFFER_DATA)
                        client->plain.assign(static_cast<BYTE*>(b.pvBuffer),
                                             static_cast<BYTE*>(b.pvBuffer) + b.cbBuffer);
                    if (b.BufferType == SECBUFFER_EXTRA)
                        extra.assign(static_cast<BYTE*>(b.pvBuffer),
                                     static_cast<BYTE*>(b.pvBuffer) + b.cbBuffer);
                }
                client->incoming.swap(extra);
                client->plainStart = 0;
                if (!client->plain.empty()) return 0;
                continue;
            }
            if (status != SEC_E_INCOMPLETE_MESSAGE)
                return Failed(error, cap, "the secured stream is broken", status);
        }
        if (ReceiveMore(client) != 0) {
            FormatText(error, cap, "%s", "the connection failed in the secured session");
            return -1;
        }
    }
}

}  // namespace

int TlsClientOpen(const TlsClientCredentials& credentials, const TlsClientIo& io,
                  TlsClient** client, char* error, size_t cap) {
    *client = nullptr;
    if (credentials.certificate == nullptr || credentials.certificate[0] == '\0' ||
        credentials.ca == nullptr || credentials.ca[0] == '\0') {
        FormatText(error, cap, "%s", "a certificate and a CA file are needed");
        return -1;
    }
    TlsClientPtr session(new TlsClient);
    session->io = io;
    char why[256];
    if (snc::ImportPfxFile(credentials.certificate, credentials.key, &session->store,
                           &session->certificate, why, sizeof why) != 0) {
        FormatText(error, cap, "cannot use the certificate %s: %s", credentials.certificate, why);
        return -1;
    }
    if (snc::ReadPemCertificate(credentials.ca, &session->ca, why, sizeof why) != 0) {
        FormatText(error, cap, "cannot use the CA file %s: %s", credentials.ca, why);
        return -1;
    }
    const CERT_CONTEXT* own = session->certificate.get();
    SCHANNEL_CRED schannel{};
    schannel.dwVersion = SCHANNEL_CRED_VERSION;
    schannel.cCreds = 1;
    schannel.paCred = &own;
    schannel.grbitEnabledProtocols = SP_PROT_TLS1_2_CLIENT;
    schannel.dwFlags = SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS;
    char package[] = UNISP_NAME_A;
    SECURITY_STATUS status =
        AcquireCredentialsHandleA(nullptr, package, SECPKG_CRED_OUTBOUND, nullptr, &schannel,
                                  nullptr, nullptr, &session->credentials, nullptr);
    if (status != SEC_E_OK)
        return Failed(error, cap, "the TLS client's credentials could not be set up", status);
    session->haveCredentials = true;
    if (Handshake(session.get(), error, cap) != 0) {
        session->broken = true;
        return -1;
    }
    const CERT_CONTEXT* rawServer = nullptr;
    status =
        QueryContextAttributesA(&session->context, SECPKG_ATTR_REMOTE_CERT_CONTEXT, &rawServer);
    if (status != SEC_E_OK || rawServer == nullptr) {
        session->broken = true;
        return Failed(error, cap, "the service sent no certificate", status);
    }
    CertPtr server(rawServer);
    if (snc::CheckIssuedByCa(server.get(), session->ca.get(), why, sizeof why) != 0) {
        FormatText(error, cap, "the service's certificate was refused: %s", why);
        session->broken = true;
        return -1;
    }
    status = QueryContextAttributesA(&session->context, SECPKG_ATTR_STREAM_SIZES, &session->sizes);
    if (status != SEC_E_OK) {
        session->broken = true;
        return Failed(error, cap, "the TLS session's sizes are unknown", status);
    }
    *client = session.release();
    return 0;
}

int TlsClientWrite(TlsClient* client, const void* data, size_t length, char* error, size_t cap) {
    int rc = Encrypt(client, static_cast<const BYTE*>(data), length);
    if (rc == 0) return 0;
    client->broken = true;
    FormatText(error, cap, "%s",
               rc == -2 ? "the connection failed in the secured session" : "encryption failed");
    return -1;
}

int TlsClientRead(TlsClient* client, void* buffer, size_t length, size_t* count, char* error,
                  size_t cap) {
    *count = 0;
    if (client->ended) return 0;
    if (client->plainStart == client->plain.size()) {
        int rc = DecryptNext(client, error, cap);
        if (rc == 1) {
            client->ended = true;
            return 0;
        }
        if (rc != 0) {
            client->broken = true;
            return -1;
        }
    }
    size_t have = client->plain.size() - client->plainStart;
    size_t take = have < length ? have : length;
    memcpy(buffer, client->plain.data() + client->plainStart, take);
    client->plainStart += take;
    *count = take;
    return 0;
}

void TlsClientClose(TlsClient* client) {
    if (client == nullptr) return;
    if (client->haveContext && !client->broken && !client->ended) {
        // The close notification: the context is told to shut down, and its last token sent.
        DWORD type = SCHANNEL_SHUTDOWN;
        SecBuffer in{sizeof type, SECBUFFER_TOKEN, &type};
        SecBufferDesc inDesc{SECBUFFER_VERSION, 1, &in};
        if (ApplyControlToken(&client->context, &inDesc) == SEC_E_OK) {
            SecBuffer out{0, SECBUFFER_TOKEN, nullptr};
            SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &out};
            ULONG attributes = 0;
            if (InitializeSecurityContextA(&client->credentials, &client->context, nullptr,
                                           kContextFlags, 0, 0, nullptr, 0, nullptr, &outDesc,
                                           &attributes, nullptr) == SEC_E_OK)
                SendToken(client, out);
            else if (out.pvBuffer != nullptr)
                FreeContextBuffer(out.pvBuffer);
        }
    }
    delete client;
}

}  // namespace vx
