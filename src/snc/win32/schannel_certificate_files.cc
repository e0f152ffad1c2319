// The profile's certificate files on Windows: the server's PFX file (certificate with its private
// key) and the CA's PEM file, read into crypt32's certificate contexts.
#include <cstdio>
#include <cstring>

#include "snc/trace.h"
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

constexpr size_t kMaxFileSize = 1024 * 1024;  // certificate files are a few kilobytes
constexpr int kMaxPassword = 256;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// Traces why a file of the profile was refused; -1 for the caller to return.
int Refused(const char* what, const char* path, const char* why) {
    TraceLine("cannot use the %s %s: sessions cannot be secured", what, path);
    TraceLine("  %s", why);
    return -1;
}

int RefusedWithError(const char* what, const char* path, const char* why) {
    char text[SNC_ERROR_LINE_MAX];
    FormatText(text, sizeof text, "%s (error %lu)", why,
               static_cast<unsigned long>(GetLastError()));
    return Refused(what, path, text);
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

}  // namespace

int LoadServerPfx(const char* path, const char* password, StorePtr* store, CertPtr* certificate) {
    const char* what = "certificate";
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0) return Refused(what, path, "the file cannot be read");
    // Schannel needs the key with the certificate: a PEM pair would need a key import of its own.
    if (IsPem(bytes))
        return Refused(what, path,
                       "it is a PEM file: on Windows the certificate must be a PFX file holding "
                       "the certificate and its private key, the key its password");
    CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), bytes.data()};
    if (!PFXIsPFXBlob(&blob)) return Refused(what, path, "it is not a PFX file");
    wchar_t widePassword[kMaxPassword] = {};
    if (password[0] != '\0' && MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, password, -1,
                                                   widePassword, kMaxPassword) == 0)
        return Refused(what, path, "the PFX password (the profile's key) is too long or not UTF-8");
    store->reset(PFXImportCertStore(&blob, widePassword, 0));
    SecureZeroMemory(widePassword, sizeof widePassword);
    if (!*store)
        return RefusedWithError(what, path,
                                "the PFX file cannot be imported (a wrong password in the "
                                "profile's key?)");
    const CERT_CONTEXT* found = nullptr;
    while ((found = CertEnumCertificatesInStore(store->get(), found)) != nullptr) {
        DWORD size = 0;
        if (CertGetCertificateContextProperty(found, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) {
            certificate->reset(CertDuplicateCertificateContext(found));
            CertFreeCertificateContext(found);
            return 0;
        }
    }
    return Refused(what, path, "the PFX file holds no certificate with its private key");
}

int LoadCaCertificate(const char* path, CertPtr* ca) {
    const char* what = "CA certificate";
    std::vector<BYTE> bytes;
    if (ReadWholeFile(path, &bytes) != 0) return Refused(what, path, "the file cannot be read");
    bytes.push_back(0);
    DWORD derSize = 0;
    const char* text = reinterpret_cast<const char*>(bytes.data());
    if (!CryptStringToBinaryA(text, 0, CRYPT_STRING_BASE64HEADER, nullptr, &derSize, nullptr,
                              nullptr))
        return Refused(what, path, "it is not a PEM file");
    std::vector<BYTE> der(derSize);
    if (!CryptStringToBinaryA(text, 0, CRYPT_STRING_BASE64HEADER, der.data(), &derSize, nullptr,
                              nullptr))
        return Refused(what, path, "it is not a PEM file");
    ca->reset(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), derSize));
    if (!*ca) return RefusedWithError(what, path, "it holds no certificate");
    return 0;
}

}  // namespace vx::snc
