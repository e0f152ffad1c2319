// Certificates through crypt32, as the security library and the sender's TLS client both need
// them: the certificate with its private key from a PFX file, a CA from a PEM file, and the check
// that a certificate was issued by that CA (which is no root of the host's).
#pragma once

// clang-format off
#include <windows.h>
#include <wincrypt.h>
// clang-format on

#include <cstddef>
#include <memory>

namespace vx::snc {

struct StoreCloser {
    void operator()(void* store) const { CertCloseStore(static_cast<HCERTSTORE>(store), 0); }
};
using StorePtr = std::unique_ptr<void, StoreCloser>;

struct CertCloser {
    void operator()(const CERT_CONTEXT* certificate) const {
        CertFreeCertificateContext(certificate);
    }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertCloser>;

// The certificate that has its private key in the PFX file (password: UTF-8, empty for none); the
// store keeps the key reachable. 0, or -1 with the reason in why.
int ImportPfxFile(const char* path, const char* password, StorePtr* store, CertPtr* certificate,
                  char* why, size_t whySize);

// The first certificate of a PEM file. 0, or -1 with the reason in why.
int ReadPemCertificate(const char* path, CertPtr* certificate, char* why, size_t whySize);

// The certificate must chain up to the CA and carry the CA's signature where it meets it; the CA
// itself is refused. 0, or -1 with the reason in why.
int CheckIssuedByCa(const CERT_CONTEXT* certificate, const CERT_CONTEXT* ca, char* why,
                    size_t whySize);

}  // namespace vx::snc
