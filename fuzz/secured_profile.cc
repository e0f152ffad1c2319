#include "secured_profile.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace vxfuzz {

namespace {

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertificateFree {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct BioFree {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, KeyFree>;
using CertificatePtr = std::unique_ptr<X509, CertificateFree>;
using BioPtr = std::unique_ptr<BIO, BioFree>;

[[noreturn]] void Fail(const char* what) {
    fprintf(stderr, "secured profile: cannot %s\n", what);
    abort();
}

KeyPtr MakeKey() {
    KeyPtr key(EVP_EC_gen("P-256"));
    if (!key) Fail("make a key");
    return key;
}

void AddExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (extension == nullptr || X509_add_ext(certificate, extension, -1) != 1)
        Fail("add a certificate extension");
    X509_EXTENSION_free(extension);
}

// A certificate for key with the subject O=organisation, CN=common; issuer null makes it a
// self-signed CA. Valid from a day ago for two days, so that clocks a little apart agree.
CertificatePtr MakeCertificate(EVP_PKEY* key, const char* organisation, const char* common,
                               X509* issuer, EVP_PKEY* issuerKey, long serial) {
    CertificatePtr certificate(X509_new());
    X509* c = certificate.get();
    if (!c || X509_set_version(c, X509_VERSION_3) != 1) Fail("make a certificate");
    ASN1_INTEGER_set(X509_get_serialNumber(c), serial);
    X509_gmtime_adj(X509_getm_notBefore(c), -24L * 3600);
    X509_gmtime_adj(X509_getm_notAfter(c), 24L * 3600);
    X509_NAME* name = X509_get_subject_name(c);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(organisation), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(common), -1, -1, 0);
    bool isCa = issuer == nullptr;
    X509* signer = isCa ? c : issuer;
    X509_set_issuer_name(c, X509_get_subject_name(signer));
    X509_set_pubkey(c, key);
    AddExtension(c, signer, NID_subject_key_identifier, "hash");
    if (isCa) {
        AddExtension(c, signer, NID_basic_constraints, "critical,CA:TRUE");
        AddExtension(c, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        AddExtension(c, signer, NID_authority_key_identifier, "keyid");
        AddExtension(c, signer, NID_basic_constraints, "CA:FALSE");
        AddExtension(c, signer, NID_key_usage, "digitalSignature");
    }
    if (X509_sign(c, isCa ? key : issuerKey, EVP_sha256()) <= 0) Fail("sign a certificate");
    return certificate;
}

void WriteCertificate(const std::string& path, X509* certificate) {
    BioPtr file(BIO_new_file(path.c_str(), "w"));
    if (!file || PEM_write_bio_X509(file.get(), certificate) != 1) Fail("write a certificate");
}

void WriteKey(const std::string& path, EVP_PKEY* key) {
    BioPtr file(BIO_new_file(path.c_str(), "w"));
    if (!file ||
        PEM_write_bio_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        Fail("write a key");
}

SenderFiles WriteSender(const std::string& directory, const char* name, const char* organisation,
                        const char* common, X509* ca, EVP_PKEY* caKey, long serial) {
    KeyPtr key = MakeKey();
    CertificatePtr certificate =
        MakeCertificate(key.get(), organisation, common, ca, caKey, serial);
    SenderFiles files{directory + "/" + name + ".pem", directory + "/" + name + ".key"};
    WriteCertificate(files.certificate, certificate.get());
    WriteKey(files.key, key.get());
    return files;
}

}  // namespace

SecuredProfile WriteSecuredProfile(const std::string& baseDirectory,
                                   const std::string& senderDirectory) {
    std::error_code ec;
    std::filesystem::create_directories(baseDirectory + "/snc", ec);
    std::filesystem::create_directories(senderDirectory, ec);

    KeyPtr caKey = MakeKey();
    CertificatePtr ca = MakeCertificate(caKey.get(), "Vorlix Fuzz", "fuzz-ca", nullptr, nullptr, 1);
    SecuredProfile profile;
    profile.ca = senderDirectory + "/ca.pem";
    WriteCertificate(profile.ca, ca.get());
    WriteCertificate(baseDirectory + "/snc/ca.pem", ca.get());

    KeyPtr serverKey = MakeKey();
    CertificatePtr server =
        MakeCertificate(serverKey.get(), "Vorlix Fuzz", "localhost", ca.get(), caKey.get(), 2);
    WriteCertificate(baseDirectory + "/snc/server.pem", server.get());
    WriteKey(baseDirectory + "/snc/server.key", serverKey.get());

    // The sender's name reads O=..., CN=... backwards: "CN=fuzz-sender,O=Vorlix Fuzz".
    profile.authorized = WriteSender(senderDirectory, "sender", "Vorlix Fuzz", "fuzz-sender",
                                     ca.get(), caKey.get(), 3);
    profile.unauthorized = WriteSender(senderDirectory, "stranger", "Vorlix Fuzz", "fuzz-stranger",
                                       ca.get(), caKey.get(), 4);

    BioPtr ini(BIO_new_file((baseDirectory + "/ZELLPD.INI").c_str(), "w"));
    if (!ini || BIO_puts(ini.get(),
                         "[vorlixsnc]\r\ncertificate=snc/server.pem\r\n"
                         "key=snc/server.key\r\nca=snc/ca.pem\r\n") <= 0)
        Fail("write ZELLPD.INI");
    return profile;
}

}  // namespace vxfuzz
