// The server's credentials on Windows: made at SncInit from the profile's PFX and CA files, then
// handed to Schannel as inbound credentials that ask every sender for its certificate.
#include <mutex>

#include "snc/tls.h"
#include "snc/trace.h"
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

std::mutex g_credentialsLock;
std::shared_ptr<ServerCredentials> g_credentials;

void TraceCertificate(const CERT_CONTEXT* certificate, const char* path) {
    char subject[SNC_PEER_NAME_MAX] = "?";
    SubjectText(certificate, subject, sizeof subject);
    TraceLine("server certificate %s loaded: %s", path, subject);
}

int AcquireInbound(ServerCredentials* credentials, const char* path) {
    const CERT_CONTEXT* own = credentials->certificate.get();
    SCHANNEL_CRED schannel{};
    schannel.dwVersion = SCHANNEL_CRED_VERSION;
    schannel.cCreds = 1;
    schannel.paCred = &own;
    schannel.grbitEnabledProtocols = SP_PROT_TLS1_2_SERVER;
    // The senders' certificates are checked against the profile's CA after the hand-shake (it is
    // no root of the host's), and never mapped to the host's accounts.
    schannel.dwFlags = SCH_CRED_NO_SYSTEM_MAPPER;
    char package[] = UNISP_NAME_A;
    SECURITY_STATUS status =
        AcquireCredentialsHandleA(nullptr, package, SECPKG_CRED_INBOUND, nullptr, &schannel,
                                  nullptr, nullptr, &credentials->handle, nullptr);
    if (status != SEC_E_OK) {
        TraceLine("cannot use the certificate %s: sessions cannot be secured", path);
        TraceLine("  Schannel refused it as a server's credentials (0x%08lx)",
                  static_cast<unsigned long>(status));
        return -1;
    }
    credentials->haveHandle = true;
    return 0;
}

}  // namespace

int TlsServerStart(const Profile& profile) {
    TlsServerStop();
    auto credentials = std::make_shared<ServerCredentials>();
    if (LoadServerPfx(profile.certificate, profile.keyText, &credentials->store,
                      &credentials->certificate) != 0 ||
        LoadCaCertificate(profile.ca, &credentials->ca) != 0 ||
        AcquireInbound(credentials.get(), profile.certificate) != 0)
        return -1;
    TraceCertificate(credentials->certificate.get(), profile.certificate);
    TraceLine("senders' certificates are checked against %s", profile.ca);
    std::lock_guard<std::mutex> hold(g_credentialsLock);
    g_credentials = std::move(credentials);
    return 0;
}

void TlsServerStop() {
    std::lock_guard<std::mutex> hold(g_credentialsLock);
    g_credentials.reset();
}

bool TlsServerReady() {
    std::lock_guard<std::mutex> hold(g_credentialsLock);
    return g_credentials != nullptr;
}

void TlsProductName(char* out, size_t cap) {
    CopyText(out, cap, "TLS with client certificates (Schannel)");
}

std::shared_ptr<ServerCredentials> CurrentCredentials() {
    std::lock_guard<std::mutex> hold(g_credentialsLock);
    return g_credentials;
}

}  // namespace vx::snc
