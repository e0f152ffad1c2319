// The library's exports (snc/vorlixsnc.h): argument and state checks here, the TLS work in the
// platform's layer (snc/tls.h).
#include <mutex>
#include <new>

#include "base/text.h"
#include "snc/error_table.h"
#include "snc/profile.h"
#include "snc/session.h"
#include "snc/tls.h"
#include "snc/trace.h"
#include "snc/vorlixsnc.h"

namespace {

// SncInit and SncDone against each other; sessions run on their own.
std::mutex g_initLock;

bool ValidLevel(int level) {
    return level >= 1 && level <= 3;
}

}  // namespace

extern "C" {

int SncInit(int usage, const char* profile, const char* baseDirectory, int* realProduct) {
    if (realProduct == nullptr) return SNC_ERR_ARGUMENT;
    *realProduct = 0;
    if (usage != SNC_USAGE_SERVER || profile == nullptr || profile[0] == '\0')
        return SNC_ERR_ARGUMENT;
    std::lock_guard<std::mutex> hold(g_initLock);
    vx::snc::TlsServerStop();
    // A profile or certificate that cannot be used leaves the library up without a product:
    // the service then runs with plain connections, or refuses them when security is required.
    vx::snc::Profile settings;
    if (vx::snc::ReadProfile(baseDirectory, profile, &settings) != 0) return SNC_OK;
    if (vx::snc::TlsServerStart(settings) != 0) return SNC_OK;
    *realProduct = 1;
    return SNC_OK;
}

void SncDone(void) {
    std::lock_guard<std::mutex> hold(g_initLock);
    vx::snc::TlsServerStop();
}

void SncSetTrace(SncTraceWriter writer, void* context) {
    vx::snc::SetTraceWriter(writer, context);
}

int SncGetAdapterName(SncSession*, int slot, char* buffer, int size) {
    if (slot != 0 || buffer == nullptr || size <= 0) return SNC_ERR_ARGUMENT;
    if (!vx::snc::TlsServerReady()) return SNC_ERR_STATE;
    vx::snc::TlsProductName(buffer, static_cast<size_t>(size));
    return SNC_OK;
}

int SncNiRawSessionInit(SncSession** session, const SncTransport* transport) {
    if (session == nullptr) return SNC_ERR_ARGUMENT;
    *session = nullptr;
    if (transport == nullptr || transport->recv == nullptr || transport->send == nullptr)
        return SNC_ERR_ARGUMENT;
    SncSession* made = new (std::nothrow) SncSession{};
    if (made == nullptr) return SNC_ERR_MEMORY;
    made->transport = *transport;
    made->state = vx::snc::SessionState::kNew;
    made->qopMinimum = made->qopMaximum = made->qopUse = 3;
    int rc = vx::snc::TlsSessionCreate(made);
    if (rc != SNC_OK) {
        delete made;
        return rc;
    }
    *session = made;
    return SNC_OK;
}

int SncSetQOP(SncSession* session, int minimum, int maximum, int use) {
    if (session == nullptr || !ValidLevel(minimum) || !ValidLevel(maximum) || minimum > maximum ||
        use < minimum || use > maximum)
        return SNC_ERR_ARGUMENT;
    session->qopMinimum = minimum;
    session->qopMaximum = maximum;
    session->qopUse = use;
    return SNC_OK;
}

int SncNiSessionAccept(SncSession* session, int, int timeoutMs) {
    if (session == nullptr) return SNC_ERR_ARGUMENT;
    if (session->state != vx::snc::SessionState::kNew) return SNC_ERR_STATE;
    return vx::snc::TlsAccept(session, timeoutMs);
}

int SncGetPeerName(SncSession* session, char* name, int size) {
    if (session == nullptr || name == nullptr || size <= 0) return SNC_ERR_ARGUMENT;
    name[0] = '\0';
    if (session->state != vx::snc::SessionState::kSecured) return SNC_ERR_STATE;
    return vx::snc::TlsPeerName(session, name, size);
}

int SncNiRawRead(SncSession* session, void* buffer, int length, int timeoutMs, int* count,
                 int singleRead) {
    if (count != nullptr) *count = 0;
    if (session == nullptr || buffer == nullptr || length <= 0 || count == nullptr)
        return SNC_ERR_ARGUMENT;
    if (session->state != vx::snc::SessionState::kSecured) return SNC_ERR_STATE;
    return vx::snc::TlsRead(session, buffer, length, timeoutMs, count, singleRead != 0);
}

int SncNiRawWrite(SncSession* session, const void* data, int length, int timeoutMs, int* count) {
    if (count != nullptr) *count = 0;
    if (session == nullptr || data == nullptr || length <= 0 || count == nullptr)
        return SNC_ERR_ARGUMENT;
    if (session->state != vx::snc::SessionState::kSecured) return SNC_ERR_STATE;
    return vx::snc::TlsWrite(session, data, length, timeoutMs, count);
}

int SncNiErrorOf(SncSession* session) {
    return session != nullptr ? session->niError : SNC_ERR_ARGUMENT;
}

void SncSessionDone(SncSession* session) {
    if (session == nullptr) return;
    vx::snc::TlsSessionFree(session);
    delete session;
}

const char* SncErrorName(int code) {
    return vx::snc::ErrorName(code);
}

const char* SncErrorDescription(int code) {
    return vx::snc::ErrorDescription(code);
}

int SncErrorLine(SncSession* session, int index, char* buffer, int size) {
    if (session == nullptr || buffer == nullptr || size <= 0 || index < 0 ||
        index >= session->errors.count)
        return 0;
    vx::CopyText(buffer, static_cast<size_t>(size), session->errors.lines[index]);
    return 1;
}

}  // extern "C"
