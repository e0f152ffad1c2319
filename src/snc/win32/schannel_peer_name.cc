// The sender's identity: its certificate's subject in RFC 4514 form, built from the subject's
// relative names the way the Linux library writes them (most specific first, short attribute
// names, RFC 4514 escapes, characters outside ASCII kept as UTF-8), so that one list of
// authorized senders serves both platforms.
#include <cstring>

#include "snc/tls.h"
#include "snc/win32/schannel_tls.h"

namespace vx::snc {

namespace {

struct AttributeName {
    const char* oid;
    const char* name;
};

constexpr AttributeName kAttributeNames[] = {
    {"2.5.4.3", "CN"},
    {"2.5.4.4", "SN"},
    {"2.5.4.5", "serialNumber"},
    {"2.5.4.6", "C"},
    {"2.5.4.7", "L"},
    {"2.5.4.8", "ST"},
    {"2.5.4.9", "street"},
    {"2.5.4.10", "O"},
    {"2.5.4.11", "OU"},
    {"2.5.4.12", "title"},
    {"2.5.4.42", "GN"},
    {"2.5.4.43", "initials"},
    {"2.5.4.46", "dnQualifier"},
    {"2.5.4.65", "pseudonym"},
    {"0.9.2342.19200300.100.1.1", "UID"},
    {"0.9.2342.19200300.100.1.25", "DC"},
    {"1.2.840.113549.1.9.1", "emailAddress"},
};

struct LocalFreer {
    void operator()(void* memory) const { ::LocalFree(memory); }
};

// Appends to a fixed buffer; full once anything did not fit.
struct NameWriter {
    char* out;
    size_t cap;
    size_t length = 0;
    bool full = false;

    void Put(const char* text, size_t count) {
        if (full || length + count >= cap) {
            full = true;
            return;
        }
        memcpy(out + length, text, count);
        length += count;
        out[length] = '\0';
    }
    void Put(const char* text) { Put(text, strlen(text)); }
};

const char* ShortName(const char* oid) {
    for (const AttributeName& entry : kAttributeNames)
        if (strcmp(entry.oid, oid) == 0) return entry.name;
    return oid;  // unknown: the dotted number, as the Linux library writes it
}

// One value's UTF-8 bytes with RFC 4514's escapes: the special characters behind a backslash, a
// leading '#' or blank and a trailing blank too, control characters as "\XX".
void PutEscaped(NameWriter* writer, const char* text, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        bool special = strchr(",+\"\\<>;", c) != nullptr && c != '\0';
        bool edge = (i == 0 && (c == '#' || c == ' ')) || (i + 1 == count && c == ' ');
        if (c < 0x20 || c == 0x7f) {
            char hex[4];
            FormatText(hex, sizeof hex, "\\%02X", c);
            writer->Put(hex);
        } else if (special || edge) {
            char pair[2] = {'\\', static_cast<char>(c)};
            writer->Put(pair, 2);
        } else {
            writer->Put(text + i, 1);
        }
    }
}

// A value that is no text: "#" and the hex of its bytes.
void PutHex(NameWriter* writer, const BYTE* data, DWORD size) {
    writer->Put("#");
    for (DWORD i = 0; i < size; ++i) {
        char hex[3];
        FormatText(hex, sizeof hex, "%02X", data[i]);
        writer->Put(hex);
    }
}

bool IsText(DWORD valueType) {
    switch (valueType & CERT_RDN_TYPE_MASK) {
        case CERT_RDN_ANY_TYPE:
        case CERT_RDN_ENCODED_BLOB:
        case CERT_RDN_OCTET_STRING:
            return false;
        default:
            return true;
    }
}

// The value decoded as UTF-16 (X509_UNICODE_NAME), written as escaped UTF-8.
bool PutValue(NameWriter* writer, const CERT_RDN_ATTR& attribute) {
    if (!IsText(attribute.dwValueType)) {
        PutHex(writer, attribute.Value.pbData, attribute.Value.cbData);
        return true;
    }
    const wchar_t* wide = reinterpret_cast<const wchar_t*>(attribute.Value.pbData);
    int wideLength = static_cast<int>(attribute.Value.cbData / sizeof(wchar_t));
    // Some crypt32 builds count the terminating NUL in the value's size.
    while (wideLength > 0 && wide[wideLength - 1] == L'\0') --wideLength;
    if (wideLength == 0) return true;
    int size = WideCharToMultiByte(CP_UTF8, 0, wide, wideLength, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
    std::vector<char> utf8(static_cast<size_t>(size));
    WideCharToMultiByte(CP_UTF8, 0, wide, wideLength, utf8.data(), size, nullptr, nullptr);
    PutEscaped(writer, utf8.data(), utf8.size());
    return true;
}

}  // namespace

int SubjectText(const CERT_CONTEXT* certificate, char* out, int size) {
    if (size <= 0) return SNC_ERR_ARGUMENT;
    out[0] = '\0';
    CERT_NAME_INFO* rawInfo = nullptr;
    DWORD infoSize = 0;
    const CERT_NAME_BLOB& subject = certificate->pCertInfo->Subject;
    if (!CryptDecodeObjectEx(X509_ASN_ENCODING, X509_UNICODE_NAME, subject.pbData, subject.cbData,
                             CRYPT_DECODE_ALLOC_FLAG, nullptr, &rawInfo, &infoSize))
        return SNC_ERR_PROTOCOL;
    std::unique_ptr<CERT_NAME_INFO, LocalFreer> info(rawInfo);
    NameWriter writer{out, static_cast<size_t>(size)};
    // The certificate holds the least specific name first; RFC 4514 writes it last. The values
    // of one multi-valued name come backwards too, as the Linux library writes them.
    for (DWORD r = info->cRDN; r-- > 0;) {
        const CERT_RDN& rdn = info->rgRDN[r];
        if (r + 1 != info->cRDN) writer.Put(",");
        for (DWORD a = rdn.cRDNAttr; a-- > 0;) {
            if (a + 1 != rdn.cRDNAttr) writer.Put("+");
            writer.Put(ShortName(rdn.rgRDNAttr[a].pszObjId));
            writer.Put("=");
            if (!PutValue(&writer, rdn.rgRDNAttr[a])) return SNC_ERR_PROTOCOL;
        }
    }
    // A cut name could match another authorized sender: it must fit whole.
    if (writer.full) {
        out[0] = '\0';
        return SNC_ERR_ARGUMENT;
    }
    return SNC_OK;
}

int TlsPeerName(SncSession* session, char* name, int size) {
    if (!session->tls->peer) return SNC_ERR_STATE;
    return SubjectText(session->tls->peer.get(), name, size);
}

}  // namespace vx::snc
