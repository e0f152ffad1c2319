#include "test_pki.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

namespace vxtest {

namespace {

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertificateFree {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FileClose {
    void operator()(FILE* file) const { fclose(file); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Certificate = std::unique_ptr<X509, CertificateFree>;

struct Issued {
    Key key;
    Certificate certificate;
};

bool AddExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (extension == nullptr) return false;
    bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

// A certificate for subject O=organization, CN=commonName, signed by issuer (itself when null).
Issued Issue(const char* organization, const char* commonName, const Issued* issuer, bool ca) {
    static long serial = 1;
    Issued made{Key(EVP_EC_gen("P-256")), Certificate(X509_new())};
    X509* x = made.certificate.get();
    X509_set_version(x, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x), serial++);
    X509_gmtime_adj(X509_getm_notBefore(x), -3600);
    X509_gmtime_adj(X509_getm_notAfter(x), 24 * 3600);
    X509_set_pubkey(x, made.key.get());
    X509_NAME* name = X509_get_subject_name(x);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(organization), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
    X509* signer = issuer != nullptr ? issuer->certificate.get() : x;
    X509_set_issuer_name(x, X509_get_subject_name(signer));
    EXPECT_TRUE(AddExtension(x, signer, NID_basic_constraints,
                             ca ? "critical,CA:TRUE" : "critical,CA:FALSE"));
    EVP_PKEY* signingKey = issuer != nullptr ? issuer->key.get() : made.key.get();
    EXPECT_GT(X509_sign(x, signingKey, EVP_sha256()), 0);
    return made;
}

bool WritePem(const std::string& path, X509* certificate, EVP_PKEY* key) {
    std::unique_ptr<FILE, FileClose> file(fopen(path.c_str(), "w"));
    if (!file) return false;
    if (certificate != nullptr) return PEM_write_X509(file.get(), certificate) == 1;
    return PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
}

bool WritePair(const std::string& directory, const char* name, const Issued& issued,
               PemPair* pair) {
    pair->certificate = directory + "/" + name + ".pem";
    pair->key = directory + "/" + name + ".key";
    return WritePem(pair->certificate, issued.certificate.get(), nullptr) &&
           WritePem(pair->key, nullptr, issued.key.get());
}

}  // namespace

bool MakeTestPki(TestPki* pki) {
    char pattern[] = "/tmp/vorlixsnc-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        ADD_FAILURE() << "cannot make a temporary directory";
        return false;
    }
    pki->directory = pattern;
    Issued ca = Issue("Example", "Example CA", nullptr, true);
    Issued otherCa = Issue("Elsewhere", "Elsewhere CA", nullptr, true);
    Issued server = Issue("Example", "printhost", &ca, false);
    Issued sender = Issue("Example", "app1", &ca, false);
    Issued stranger = Issue("Example", "app1", &otherCa, false);
    pki->ca = pki->directory + "/ca.pem";
    pki->otherCa = pki->directory + "/other-ca.pem";
    bool written = WritePem(pki->ca, ca.certificate.get(), nullptr) &&
                   WritePem(pki->otherCa, otherCa.certificate.get(), nullptr) &&
                   WritePair(pki->directory, "server", server, &pki->server) &&
                   WritePair(pki->directory, "app1", sender, &pki->sender) &&
                   WritePair(pki->directory, "stranger", stranger, &pki->stranger);
    EXPECT_TRUE(written) << "cannot write the certificates to " << pki->directory;
    return written;
}

void RemoveTestPki(const TestPki& pki) {
    std::error_code ignored;
    if (!pki.directory.empty()) std::filesystem::remove_all(pki.directory, ignored);
}

void WriteTestFile(const TestPki& pki, const std::string& name, const std::string& text) {
    std::ofstream file(pki.directory + "/" + name, std::ios::binary | std::ios::trunc);
    file << text;
    ASSERT_TRUE(file.good()) << name;
}

}  // namespace vxtest
