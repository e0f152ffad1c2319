#include "snc/win32/crypt_certificates.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "base/text.h"

namespace vx::snc {

namespace {

constexpr size_t kMaxFileSize = 1024 * 1024;  // certificate files are a few kilobytes
constexpr int kMaxPassword = 256;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

struct ChainCloser {
    void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using ChainPtr = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainCloser>;

int Why(char* why, size_t whySize, const char* text) {
    CopyText(why, whySize, text);
    return -1;
}

int WhyWithError(char* why, size_t whySize, const char* text) {
    FormatText(why, whySize, "%s (error %lu)", text, static_cast<unsigned long>(GetLastError()));
    return -1;
}

int ReadWholeFile(const char* path, std::vector<BYTE>* out) {
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (!file) return -1;
    BYTE chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        out->insert(out->end(), chunk, chunk + got);
        if (out->size() > kMaxFileSize) return -1;
    }
    return ferror(file.get()) || out->empty() ? -1 : 0;
}

bool IsPem(const std::vector<BYTE>& bytes) {
    static const char kBegin[] = "-----BEGIN";
    for (size_t i = 0; i + sizeof kBegin - 1 <= bytes.size() && i < 64; ++i)
        if (memcmp(bytes.data() + i, kBegin, sizeof kBegin - 1) == 0) return true;
    return false;
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

int ImportPfxFile(const char* path, const char* password, StorePtr* store, CertPtr* certificate,
                  char* why, size_t whySize) {
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0) return Why(why, whySize, "the file cannot be read");
    // Schannel needs the key with the certificate: a PEM pair would need a key import of its own.
    if (IsPem(bytes))
        return Why(why, whySize,
                   "it is a PEM file: on Windows the certificate must be a PFX file holding the "
                   "certificate and its private key, the key its password");
    CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), bytes.data()};
    if (!PFXIsPFXBlob(&blob)) return Why(why, whySize, "it is not a PFX file");
    wchar_t widePassword[kMaxPassword] = {};
    if (password != nullptr && password[0] != '\0' &&
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, password, -1, widePassword,
                            kMaxPassword) == 0)
        return Why(why, whySize, "the PFX password is too long or not UTF-8");
    store->reset(PFXImportCertStore(&blob, widePassword, 0));
    SecureZeroMemory(widePassword, sizeof widePassword);
    if (!*store)
        return WhyWithError(why, whySize, "the PFX file cannot be imported (a wrong password?)");
    const CERT_CONTEXT* found = nullptr;
    while ((found = CertEnumCertificatesInStore(store->get(), found)) != nullptr) {
        DWORD size = 0;
        if (CertGetCertificateContextProperty(found, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) {
            certificate->reset(CertDuplicateCertificateContext(found));
            CertFreeCertificateContext(found);
            return 0;
        }
    }
    return Why(why, whySize, "the PFX file holds no certificate with its private key");
}

int ReadPemCertificate(const char* path, CertPtr* certificate, char* why, size_t whySize) {
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0) return Why(why, whySize, "the file cannot be read");
    bytes.push_back(0);
    DWORD derSize = 0;
    const char* text = reinterpret_cast<const char*>(bytes.data());
    if (!CryptStringToBinaryA(text, 0, CRYPT_STRING_BASE64HEADER, nullptr, &derSize, nullptr,
                              nullptr))
        return Why(why, whySize, "it is not a PEM file");
    std::vector<BYTE> der(derSize);
    if (!CryptStringToBinaryA(text, 0, CRYPT_STRING_BASE64HEADER, der.data(), &derSize, nullptr,
                              nullptr))
        return Why(why, whySize, "it is not a PEM file");
    certificate->reset(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), derSize));
    if (!*certificate) return WhyWithError(why, whySize, "it holds no certificate");
    return 0;
}

int CheckIssuedByCa(const CERT_CONTEXT* certificate, const CERT_CONTEXT* ca, char* why,
                    size_t whySize) {
    StorePtr extra(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!extra ||
        !CertAddCertificateContextToStore(extra.get(), ca, CERT_STORE_ADD_ALWAYS, nullptr))
        return WhyWithError(why, whySize, "the CA cannot be set up");
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    const CERT_CHAIN_CONTEXT* rawChain = nullptr;
    if (!CertGetCertificateChain(nullptr, certificate, nullptr, extra.get(), &para, 0, nullptr,
                                 &rawChain))
        return WhyWithError(why, whySize, "the certificate chain cannot be built");
    ChainPtr chain(rawChain);
    // The engine's summary may pass a partial chain: its status is read here, flaw by flaw.
    const char* flaw = ChainFlaw(chain->TrustStatus.dwErrorStatus);
    if (flaw != nullptr) return Why(why, whySize, flaw);
    if (chain->cChain < 1 || chain->rgpChain[0]->cElement < 1)
        return Why(why, whySize, "no certificate chain");
    const CERT_SIMPLE_CHAIN* simple = chain->rgpChain[0];
    const CERT_CONTEXT* top = simple->rgpElement[simple->cElement - 1]->pCertContext;
    if (!CertCompareCertificate(X509_ASN_ENCODING, top->pCertInfo, ca->pCertInfo))
        return Why(why, whySize, "unable to get local issuer certificate (not issued by the CA)");
    // The element below the CA is the one it must have signed (the certificate itself when the CA
    // signed it directly); a chain of the CA alone is the CA presenting itself.
    if (simple->cElement < 2) return Why(why, whySize, "it is the CA itself");
    const CERT_CONTEXT* signedByCa = simple->rgpElement[simple->cElement - 2]->pCertContext;
    if (!CryptVerifyCertificateSignatureEx(
            0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
            const_cast<CERT_CONTEXT*>(signedByCa), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
            const_cast<CERT_CONTEXT*>(ca), 0, nullptr))
        return Why(why, whySize,
                   "certificate signature failure (the CA's signature does not hold)");
    return 0;
}

}  // namespace vx::snc
