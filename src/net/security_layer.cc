#include "net/security_layer.h"

#include <atomic>
#include <cstring>

#include "base/ni.h"
#include "base/process.h"
#include "base/sync.h"
#include "base/text.h"
#include "net/authorized_senders.h"
#include "net/secured_channel.h"
#include "net/security_lock.h"
#include "net/security_state.h"
#include "net/snc_errors.h"
#include "net/snc_library.h"
#include "net/snc_transport.h"
#include "printserver/global_setting.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr const char* kProfile = "ZELLPD.INI";
// Where a security product without a profile of the service's own keeps its settings.
constexpr const char* kFallbackProfile = "WIN.INI";
constexpr int kAcceptSizeHint = 32700;
constexpr int kAdapterNameSize = 199;

// Set while the library is initialised (and must be shut down at the end).
std::atomic<bool> g_sncInitialised{false};
std::atomic<bool> g_securityStarted{false};

// The library's trace lines go into the network trace, whose writer ends each line itself.
void WriteNetworkTrace(void*, const char* line) {
    if (line == nullptr) return;
    char text[kTraceLineSize];
    CopyText(text, line);
    size_t length = strlen(text);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r'))
        text[--length] = '\0';
    NiTraceWrite(1, "%s", text);
}

// SncInit with the profile, then with the fallback profile when only the placeholder adapter
// came up. 0 with *realProduct, or the library's code.
int InitLibrary(const SncFunctions& snc, int* realProduct) {
    char baseDirectory[kMaxPath] = {};
    GetBaseDirectory(baseDirectory, sizeof baseDirectory);
    *realProduct = 0;
    int rc = snc.SncInit(SNC_USAGE_SERVER, kProfile, baseDirectory, realProduct);
    if (rc == SNC_OK && *realProduct == 0) {
        snc.SncDone();
        rc = snc.SncInit(SNC_USAGE_SERVER, kFallbackProfile, baseDirectory, realProduct);
    }
    g_sncInitialised = rc == SNC_OK;
    return rc;
}

// No real product: plain connections, unless security is required.
int32_t StateWithoutProduct(int32_t mode) {
    switch (mode) {
        case kSecurityUnused:
            Trace(kTraceNotable, "No Zel Security Library installed.\n");
            return kSecurityNone;
        case kSecurityOffered:
            Trace(kTraceBanner, "No Zel Security Library installed.\n");
            return kSecurityNone;
        case kSecurityRequired:
            Trace(kTraceBanner, "No Zel Security Library installed.\n");
            TraceError("Cannot accept jobs without Zel Security.\n");
            return kSecurityRequiredMissing;
        default:
            TraceError("Invalid snc_mode %d\n", static_cast<int>(mode));
            return kSecurityUnused;
    }
}

void StartProduct(const SncFunctions& snc) {
    Trace(kTraceBanner, "Zel Security Library initialized.\n");
    char adapter[kAdapterNameSize] = {};
    if (snc.SncGetAdapterName(nullptr, 0, adapter, sizeof adapter) == SNC_OK)
        Trace(kTraceNotable, "Security product: %s\n", adapter);
    Trace(kTraceNotable, "Loading authorized communication partners\n");
    LoadAuthorizedSenders();
    g_SecurityAvailable = 1;
    g_SncMaxQop = kQopPrivacy;
    InstallSecuredChannel(&SncSecuredChannel());
}

// Ends the connection's session (if any) and forgets it.
void DropSession(NetSocket& connection) {
    SncSecuredChannel().sessionDone(connection);
    connection.sncSession = nullptr;
    connection.secured = false;
}

bool SessionFailed(NetSocket& connection, const char* call, int rc) {
    TraceSncCallFailed(call, rc);
    ReportSncError(connection.sncSession, rc);
    DropSession(connection);
    return false;
}

}  // namespace

void InitSecurity() {
    int32_t mode = GlobalSetting("snc_mode");
    int32_t state = mode;  // a product that is there keeps the configured mode
    g_SncMinQop = GlobalSetting("snc_min_qop");
    g_SecurityAvailable = 0;
    g_SncMaxQop = 0;
    g_securityStarted = true;

    Trace(kTraceNotable, "Initializing Zel Security Library.\n");
    if (Snc() == nullptr) LoadSncLibrary();
    const SncFunctions* snc = Snc();
    int realProduct = 0;
    int rc = SNC_OK;
    if (snc != nullptr) {
        snc->SncSetTrace(WriteNetworkTrace, nullptr);
        rc = InitLibrary(*snc, &realProduct);
    }

    if (rc != SNC_OK) {
        TraceError("Zel Security Library initialisation failed. (rc=%d)\n", rc);
        if (mode == kSecurityRequired) {
            TraceError("Cannot accept jobs without Zel Security.\n");
            state = kSecurityRequiredMissing;
        } else {
            state = kSecurityNone;
        }
    } else if (realProduct == 0) {
        state = StateWithoutProduct(mode);
    } else {
        StartProduct(*snc);
    }
    g_SecurityState = state;
    g_SncCmdMax = GlobalSetting("snc_cmdmax");
}

bool PrepareConnectionSecurity(NetSocket& connection) {
    int32_t state = g_SecurityState;
    if (state == kSecurityRequiredMissing) {
        TraceError("Connection rejected. Insufficient security.\n");
        return false;
    }
    connection.sncSession = nullptr;
    connection.secured = false;
    if (state <= 0) return true;
    const SncFunctions* snc = Snc();
    if (snc == nullptr) return true;  // no library to make a session with: the connection is plain
    SncTransport transport = NiTransport(connection.niHandle);
    SncSession* session = nullptr;
    int rc;
    {
        LockHold hold(SecurityLock());
        rc = snc->SncNiRawSessionInit(&session, &transport);
    }
    if (rc != SNC_OK) {
        TraceSncCallFailed("SncNiRawSessionInit", rc);
        return false;
    }
    connection.sncSession = session;
    return true;
}

bool AcceptSecuredSession(NetSocket& connection, const void*, int32_t, char mode, int* authorized) {
    int ownAuthorized = 1;
    if (authorized == nullptr) authorized = &ownAuthorized;
    *authorized = 1;
    if (mode != 'A' && mode != 'S' && mode != 'X')
        TraceError("Unknown security mode: %c. Using sealed mode.\n", mode);
    const SncFunctions* snc = Snc();
    if (snc == nullptr || connection.sncSession == nullptr) {
        TraceError("Secured session (mode %c) requested: no security product in use.\n", mode);
        return false;
    }

    // The configured minimum rules whatever the letter asks for.
    int32_t minQop = g_SncMinQop;
    int rc = snc->SncSetQOP(connection.sncSession, minQop, kQopPrivacy, minQop);
    if (rc != SNC_OK) return SessionFailed(connection, "SncSetQOP", rc);
    // The hand-shake waits for the sender, so it runs without the security lock: a sender that
    // never finishes it must not stop the other connections.
    rc = snc->SncNiSessionAccept(connection.sncSession, kAcceptSizeHint, kNiWaitForever);
    if (rc != SNC_OK) return SessionFailed(connection, "SncNiSessionAccept", rc);

    char sender[kSenderNameSize] = {};
    rc = snc->SncGetPeerName(connection.sncSession, sender, sizeof sender);
    if (rc != SNC_OK) {
        TraceSncCallFailed("SncGetPeerName", rc);
        ReportSncError(connection.sncSession, rc);
        TraceError("Cannot continue without peer identity.\n");
        TraceError("SncGetPeerName failed - aborting.\n");
        DropSession(connection);
        return false;
    }
    sender[sizeof sender - 1] = '\0';
    connection.secured = true;

    if (SenderValidationOff()) {
        Trace(kTraceBanner, "Incoming secured call.\n");
        Trace(kTraceBanner, "Sender: %s\n", sender);
        Trace(kTraceBanner, "Validation of sender is switched off.\n");
        return true;
    }
    if (IsAuthorizedSender(sender)) {
        Trace(kTraceNormal, "Incoming secured call.\n");
        Trace(kTraceNormal, "Sender: %s\n", sender);
        return true;
    }
    TraceError("Incoming connection from unauthorized sender.\n");
    TraceError("Sender: %s\n", sender);
    *authorized = 0;
    SetLastUnauthorizedSender(sender);
    return true;
}

void ExitSecurity() {
    if (!g_securityStarted.exchange(false)) return;
    Trace(kTraceNotable, "Finish Zel security library.\n");
    InstallSecuredChannel(nullptr);
    ClearAuthorizedSenders();
    const SncFunctions* snc = Snc();
    if (snc != nullptr && g_sncInitialised.exchange(false)) {
        snc->SncSetTrace(nullptr, nullptr);
        snc->SncDone();
    }
    UnloadSncLibrary();
}

}  // namespace vx
