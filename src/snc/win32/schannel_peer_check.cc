// The sender's certificate against the profile's CA, with crypt32's chain engine: the CA is no
// root of the host's, so the engine's own verdict on the root is not asked for; what counts is
// that the chain ends at the CA and that the CA's signature holds.
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

struct ChainCloser {
    void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using ChainPtr = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainCloser>;

int Refused(ErrorLines* errors, const char* why) {
    AddErrorLine(errors, "peer certificate refused: %s", why);
    return SNC_ERR_HANDSHAKE;
}

// The chain's flaws that refuse a certificate, in words; null when none does. An untrusted root,
// a partial chain and an unknown revocation state are tolerated: the CA's signature decides.
const char* ChainFlaw(DWORD status) {
    if (status & CERT_TRUST_IS_NOT_TIME_VALID) return "certificate has expired or is not yet valid";
    if (status & CERT_TRUST_IS_NOT_SIGNATURE_VALID) return "certificate signature failure";
    if (status & CERT_TRUST_IS_REVOKED) return "certificate revoked";
    if (status & CERT_TRUST_IS_NOT_VALID_FOR_USAGE) return "certificate not valid for this use";
    if (status & CERT_TRUST_IS_CYCLIC) return "the certificate chain is cyclic";
    DWORD tolerated = CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_REVOCATION_STATUS_UNKNOWN |
                      CERT_TRUST_IS_OFFLINE_REVOCATION | CERT_TRUST_IS_PARTIAL_CHAIN;
    if ((status & ~tolerated) != 0) return "the certificate chain is invalid";
    return nullptr;
}

}  // namespace

int CheckPeerCertificate(const CERT_CONTEXT* peer, const CERT_CONTEXT* ca, ErrorLines* errors) {
    if (peer == nullptr) return Refused(errors, "the peer sent no certificate");
    StorePtr extra(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!extra ||
        !CertAddCertificateContextToStore(extra.get(), ca, CERT_STORE_ADD_ALWAYS, nullptr)) {
        AddErrorLine(errors, "the CA cannot be set up (error %lu)",
                     static_cast<unsigned long>(GetLastError()));
        return SNC_ERR_HANDSHAKE;
    }
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    const CERT_CHAIN_CONTEXT* rawChain = nullptr;
    if (!CertGetCertificateChain(nullptr, peer, nullptr, extra.get(), &para, 0, nullptr,
                                 &rawChain)) {
        AddErrorLine(errors, "the peer's certificate chain cannot be built (error %lu)",
                     static_cast<unsigned long>(GetLastError()));
        return SNC_ERR_HANDSHAKE;
    }
    ChainPtr chain(rawChain);
    // The engine's summary may pass a partial chain: its status is read here, flaw by flaw.
    const char* flaw = ChainFlaw(chain->TrustStatus.dwErrorStatus);
    if (flaw != nullptr) return Refused(errors, flaw);
    if (chain->cChain < 1 || chain->rgpChain[0]->cElement < 1)
        return Refused(errors, "no certificate chain");
    const CERT_SIMPLE_CHAIN* simple = chain->rgpChain[0];
    const CERT_CONTEXT* top = simple->rgpElement[simple->cElement - 1]->pCertContext;
    if (!CertCompareCertificate(X509_ASN_ENCODING, top->pCertInfo, ca->pCertInfo))
        return Refused(errors, "unable to get local issuer certificate (not issued by the CA)");
    // The element below the CA is the one it must have signed (the peer's own certificate when
    // the CA signed it directly); a chain of the CA alone is the CA presenting itself.
    if (simple->cElement < 2) return Refused(errors, "the peer presented the CA itself");
    const CERT_CONTEXT* signedByCa = simple->rgpElement[simple->cElement - 2]->pCertContext;
    if (!CryptVerifyCertificateSignatureEx(
            0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
            const_cast<CERT_CONTEXT*>(signedByCa), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
            const_cast<CERT_CONTEXT*>(ca), 0, nullptr))
        return Refused(errors, "certificate signature failure (the CA's signature does not hold)");
    return SNC_OK;
}

}  // namespace vx::snc
