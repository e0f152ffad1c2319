#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "snc/posix/openssl_tls.h"
#include "snc/tls.h"

namespace vx::snc {

namespace {

struct BioFree {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

// RFC 4514 order and escaping (most specific name first, "CN=app1,O=Example"), with the
// characters outside ASCII kept as UTF-8 instead of hex escapes, as RFC 4514 writes them.
constexpr unsigned long kNameFlags = XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB;

}  // namespace

int SubjectText(X509* certificate, char* out, int size) {
    std::unique_ptr<BIO, BioFree> text(BIO_new(BIO_s_mem()));
    if (!text) return SNC_ERR_MEMORY;
    if (X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, kNameFlags) < 0)
        return SNC_ERR_PROTOCOL;
    char* data = nullptr;
    long length = BIO_get_mem_data(text.get(), &data);
    // A cut name could match another authorized sender: it must fit whole.
    if (length < 0 || length >= size) return SNC_ERR_ARGUMENT;
    memcpy(out, data, static_cast<size_t>(length));
    out[length] = '\0';
    return SNC_OK;
}

int TlsPeerName(SncSession* session, char* name, int size) {
    X509* certificate = SSL_get0_peer_certificate(session->tls->ssl);
    if (certificate == nullptr) return SNC_ERR_STATE;
    return SubjectText(certificate, name, size);
}

}  // namespace vx::snc
