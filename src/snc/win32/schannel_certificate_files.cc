// The profile's certificate files on Windows: the server's PFX file (certificate with its private
// key) and the CA's PEM file, read into crypt32's certificate contexts.
#include "snc/trace.h"
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

// Traces why a file of the profile was refused; -1 for the caller to return.
int Refused(const char* what, const char* path, const char* why) {
    TraceLine("cannot use the %s %s: sessions cannot be secured", what, path);
    TraceLine("  %s", why);
    return -1;
}

}  // namespace

int LoadServerPfx(const char* path, const char* password, StorePtr* store, CertPtr* certificate) {
    char why[SNC_ERROR_LINE_MAX];
    if (ImportPfxFile(path, password, store, certificate, why, sizeof why) != 0)
        return Refused("certificate", path, why);
    return 0;
}

int LoadCaCertificate(const char* path, CertPtr* ca) {
    char why[SNC_ERROR_LINE_MAX];
    if (ReadPemCertificate(path, ca, why, sizeof why) != 0)
        return Refused("CA certificate", path, why);
    return 0;
}

int CheckPeerCertificate(const CERT_CONTEXT* peer, const CERT_CONTEXT* ca, ErrorLines* errors) {
    char why[SNC_ERROR_LINE_MAX];
    if (peer == nullptr)
        CopyText(why, "the peer sent no certificate");
    else if (CheckIssuedByCa(peer, ca, why, sizeof why) == 0)
        return SNC_OK;
    AddErrorLine(errors, "peer certificate refused: %s", why);
    return SNC_ERR_HANDSHAKE;
}

}  // namespace vx::snc
