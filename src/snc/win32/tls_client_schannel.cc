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

namespace vx {

namespace {

// Records travel in pieces of at most this many bytes (with header and trailer).
constexpr size_t kMaxRecord = 16384 + 512;

struct StoreCloser {
    void operator()(void* store) const { CertCloseStore(static_cast<HCERTSTORE>(store), 0); }
};
using StorePtr = std::unique_ptr<void, StoreCloser>;

struct CertCloser {
    void operator()(const CERT_CONTEXT* cert) const { CertFreeCertificateContext(cert); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertCloser>;

struct ChainCloser {
    void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using ChainPtr = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainCloser>;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

int Failed(char* error, size_t cap, const char* what, SECURITY_STATUS status) {
    FormatText(error, cap, "%s (0x%08lx)", what, static_cast<unsigned long>(status));
    return -1;
}

int ReadWholeFile(const char* path, std::vector<BYTE>* out) {
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (!file) return -1;
    BYTE chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, file.get())) > 0)
        out->insert(out->end(), chunk, chunk + got);
    return ferror(file.get()) ? -1 : 0;
}

// The certificate with a private key in the PFX file; the store keeps the key reachable.
int LoadPfx(const char* path, const char* password, StorePtr* store, CertPtr* cert, char* error,
            size_t cap) {
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0 || bytes.empty()) {
        FormatText(error, cap, "cannot read the certificate %s", path);
        return -1;
    }
    wchar_t widePassword[256] = {};
    if (password != nullptr &&
        MultiByteToWideChar(CP_UTF8, 0, password, -1, widePassword, 256) == 0 &&
        password[0] != '\0') {
        FormatText(error, cap, "%s", "the PFX password is too long");
        return -1;
    }
    CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), bytes.data()};
    store->reset(PFXImportCertStore(&blob, widePassword, 0));
    SecureZeroMemory(widePassword, sizeof widePassword);
    if (!*store) {
        FormatText(error, cap, "cannot import the PFX file %s (wrong password?) (error %lu)", path,
                   static_cast<unsigned long>(GetLastError()));
        return -1;
    }
    const CERT_CONTEXT* found = nullptr;
    while ((found = CertEnumCertificatesInStore(store->get(), found)) != nullptr) {
        DWORD size = 0;
        if (CertGetCertificateContextProperty(found, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) {
            cert->reset(CertDuplicateCertificateContext(found));
            CertFreeCertificateContext(found);
            return 0;
        }
    }
    FormatText(error, cap, "the PFX file %s holds no certificate with its private key", path);
    return -1;
}

// The first certificate of a PEM (or DER) file.
int LoadCa(const char* path, CertPtr* ca, char* error, size_t cap) {
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0 || bytes.empty()) {
        FormatText(error, cap, "cannot read the CA file %s", path);
        return -1;
    }
    std::vector<BYTE> der(bytes.size());
    DWORD derSize = static_cast<DWORD>(der.size());
    bytes.push_back(0);
    if (!CryptStringToBinaryA(reinterpret_cast<const char*>(bytes.data()), 0,
                              CRYPT_STRING_BASE64HEADER, der.data(), &derSize, nullptr, nullptr)) {
        // Not PEM: perhaps the certificate's DER bytes themselves.
        derSize = static_cast<DWORD>(bytes.size() - 1);
        memcpy(der.data(), bytes.data(), derSize);
    }
    ca->reset(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), derSize));
    if (!*ca) {
        FormatText(error, cap, "the CA file %s holds no certificate", path);
        return -1;
    }
    return 0;
}

// The service's certificate must chain up to the CA and carry the CA's signature where it meets
// it. The chain engine's own verdict on the root is not asked for: the CA is no trusted root here.
int CheckServerCertificate(const CERT_CONTEXT* server, const CERT_CONTEXT* ca, char* error,
                           size_t cap) {
    StorePtr extra(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!extra ||
        !CertAddCertificateContextToStore(extra.get(), ca, CERT_STORE_ADD_ALWAYS, nullptr))
        return Failed(error, cap, "the CA could not be set up",
                      static_cast<SECURITY_STATUS>(GetLastError()));
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    const CERT_CHAIN_CONTEXT* rawChain = nullptr;
    if (!CertGetCertificateChain(nullptr, server, nullptr, extra.get(), &para, 0, nullptr,
                                 &rawChain))
        return Failed(error, cap, "the service's certificate chain could not be built",
                      static_cast<SECURITY_STATUS>(GetLastError()));
    ChainPtr chain(rawChain);
    DWORD tolerated = CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_REVOCATION_STATUS_UNKNOWN |
                      CERT_TRUST_IS_OFFLINE_REVOCATION | CERT_TRUST_IS_PARTIAL_CHAIN;
    DWORD status = chain->TrustStatus.dwErrorStatus & ~tolerated;
    if (status != 0) {
        FormatText(error, cap,
                   "the service's certificate was refused: chain error 0x%08lx (expired, not yet "
                   "valid or badly signed)",
                   static_cast<unsigned long>(status));
        return -1;
    }
    if (chain->cChain < 1 || chain->rgpChain[0]->cElement < 1) {
        FormatText(error, cap, "%s", "the service's certificate was refused: no chain");
        return -1;
    }
    const CERT_SIMPLE_CHAIN* simple = chain->rgpChain[0];
    const CERT_CONTEXT* top = simple->rgpElement[simple->cElement - 1]->pCertContext;
    // The element below the CA is the one the CA must have signed (the service's own certificate
    // when the CA signed it directly).
    const CERT_CONTEXT* signedByCa =
        simple->cElement >= 2 ? simple->rgpElement[simple->cElement - 2]->pCertContext : server;
    bool topIsCa = CertCompareCertificate(X509_ASN_ENCODING, top->pCertInfo, ca->pCertInfo);
    if (!topIsCa) {
        // A partial chain ends at the service's certificate: the CA must still have signed it.
        signedByCa = top;
    }
    if (!CryptVerifyCertificateSignatureEx(
            0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
            const_cast<CERT_CONTEXT*>(signedByCa), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
            const_cast<CERT_CONTEXT*>(ca), 0, nullptr)) {
        FormatText(error, cap, "%s",
                   "the service's certificate was refused: it is not signed by the --ca "
                   "certificate");
        return -1;
    }
    return 0;
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
    if (LoadPfx(credentials.certificate, credentials.key, &session->store, &session->certificate,
                error, cap) != 0 ||
        LoadCa(credentials.ca, &session->ca, error, cap) != 0)
        return -1;
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
    if (CheckServerCertificate(server.get(), session->ca.get(), error, cap) != 0) {
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
