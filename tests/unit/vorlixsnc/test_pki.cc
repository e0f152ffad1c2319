#include "test_pki.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace vxtest {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using File = std::unique_ptr<FILE, decltype(&fclose)>;

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
// ok turns false when OpenSSL fails.
Issued Issue(const char* organization, const char* commonName, const Issued* issuer, bool ca,
             bool* ok) {
    static long serial = 1;
    Issued made{Key(EVP_EC_gen("P-256"), EVP_PKEY_free), Certificate(X509_new(), X509_free)};
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
    EVP_PKEY* signingKey = issuer != nullptr ? issuer->key.get() : made.key.get();
    if (!AddExtension(x, signer, NID_basic_constraints,
                      ca ? "critical,CA:TRUE" : "critical,CA:FALSE") ||
        X509_sign(x, signingKey, EVP_sha256()) <= 0)
        *ok = false;
    return made;
}

bool WritePem(const std::string& path, X509* certificate, EVP_PKEY* key) {
    File file(fopen(path.c_str(), "w"), fclose);
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

bool MakeTestPki(TestPki* pki, const std::string& directory) {
    char pattern[] = "/tmp/vorlixsnc-test-XXXXXX";
    std::error_code error;
    if (directory.empty() ? mkdtemp(pattern) == nullptr
                          : !std::filesystem::create_directories(directory, error) && error)
        return false;
    pki->directory = directory.empty() ? pattern : directory;
    bool ok = true;
    Issued ca = Issue("Example", "Example CA", nullptr, true, &ok);
    Issued otherCa = Issue("Elsewhere", "Elsewhere CA", nullptr, true, &ok);
    Issued server = Issue("Example", "printhost", &ca, false, &ok);
    Issued sender = Issue("Example", "app1", &ca, false, &ok);
    Issued outsider = Issue("Example", "app2", &ca, false, &ok);
    pki->ca = pki->directory + "/ca.pem";
    pki->otherCa = pki->directory + "/other-ca.pem";
    return ok && WritePem(pki->ca, ca.certificate.get(), nullptr) &&
           WritePem(pki->otherCa, otherCa.certificate.get(), nullptr) &&
           WritePair(pki->directory, "server", server, &pki->server) &&
           WritePair(pki->directory, "app1", sender, &pki->sender) &&
           WritePair(pki->directory, "app2", outsider, &pki->outsider);
}

void RemoveTestPki(const TestPki& pki) {
    std::error_code ignored;
    if (!pki.directory.empty()) std::filesystem::remove_all(pki.directory, ignored);
}

bool WriteTestFile(const TestPki& pki, const std::string& name, const std::string& text) {
    std::ofstream file(pki.directory + "/" + name, std::ios::binary | std::ios::trunc);
    file << text;
    return file.good();
}

std::string ReadTestFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace vxtest
