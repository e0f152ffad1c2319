// The network listener: set-up of the network layer and its parameters, the start of listening
// with the check that no other process serves the port, and the accept of one connection.
#include "net/listener.h"

#include <cstring>

#include "base/clock.h"
#include "base/syserror.h"
#include "base/text.h"
#include "printserver/process_locks.h"
#include "printserver/zelprsrv.h"

namespace vx {

ListenerParams g_ListenerParams;
NiHandle g_ListenHandle = kNiNoHandle;

namespace {

constexpr size_t kHostNameSize = 100;

// "LPDPort" as a 16-bit port; a stored 0 means the LPD port.
int32_t ReadLpdPort(Czelprsrv& settings) {
    auto port = static_cast<uint16_t>(settings.GetSetting("LPDPort"));
    return port == 0 ? BuiltInDefault("LPDPort") : port;
}

int32_t ReadSendWithNull(Czelprsrv& settings) {
    return settings.GetSetting("send_with_null") != 0 ? 1 : 0;
}

// Connections that met a full handle table, counted per burst so that a flood of them writes two
// lines, not one per connection: the error when the first one comes, the counts when the burst
// is over (the next connection that finds room, or a quiet accept wait) or has lasted
// kRefusalBurstReportMs. Only the accepting thread touches it.
struct RefusalBurst {
    bool open = false;
    uint64_t startMs = 0;
    long refused = 0;
    long closedIdle = 0;
};

constexpr uint64_t kRefusalBurstReportMs = 60000;
RefusalBurst g_refusals;

void CloseRefusalBurst() {
    RefusalBurst& burst = g_refusals;
    if (!burst.open) return;
    Trace(kTraceBanner,
          "Network handles were all in use for %lu s: connections refused: %ld, idle "
          "connections closed to make room: %ld.\n",
          static_cast<unsigned long>((TickCountMs() - burst.startMs) / 1000), burst.refused,
          burst.closedIdle);
    burst = RefusalBurst{};
}

void NoteFullTable(const NiAcceptNote& note, bool refused) {
    RefusalBurst& burst = g_refusals;
    if (burst.open && TickCountMs() - burst.startMs >= kRefusalBurstReportMs) CloseRefusalBurst();
    if (!burst.open) {
        TraceError(
            "All %d network handles are in use: new connections are refused unless an idle "
            "connection can be closed.\n",
            NiHandleLimit());
        burst.open = true;
        burst.startMs = TickCountMs();
    }
    if (note.closedIdle != kNiNoHandle) {
        ++burst.closedIdle;
        Trace(kTraceNotable, "Idle connection %d closed to make room for a new one.\n",
              note.closedIdle);
    }
    if (refused) ++burst.refused;
}

}  // namespace

void ReadListenerParams(Czelprsrv& settings) {
    ListenerParams& p = g_ListenerParams;
    p.NiReadTimeout = HundredthsToMs(settings.GetSetting("NiReadTimeout"));
    p.NiReadLoopBreak = settings.GetSetting("NiReadLoopBreak");
    p.NiWriteTimeout = HundredthsToMs(settings.GetSetting("NiWriteTimeout"));
    p.NiAcceptTimeout = settings.GetSetting("NiAcceptTimeout");
    p.NiSpinReadTime = HundredthsToMs(settings.GetSetting("NiSpinReadTime"));
    p.LPDPort = ReadLpdPort(settings);
    p.send_with_null = ReadSendWithNull(settings);
}

int InitNetwork(char* name, size_t size) {
    // This network layer has no name of its own to report.
    if (name != nullptr && size > 0) name[0] = '\0';
    Czelprsrv* prsrv = g_prsrv;
    if (prsrv != nullptr && prsrv->OpenNiTrace() == 0) {
        SetLastSystemError(3);
        prsrv->ReportLastError("OpenNiTraceFile", 1);
    }
    int rc = NiInit(kNiMaxHandles);
    if (rc == kNiOk && NiHandleLimit() < kNiMaxHandles)
        Trace(kTraceBanner, "The limit of open files leaves %d network handles.\n",
              NiHandleLimit());
    if (prsrv != nullptr) ReadListenerParams(*prsrv);
    return rc == kNiOk ? 1 : 0;
}

int StartListening(NiHandle* listenHandle) {
    *listenHandle = kNiNoHandle;
    char host[kHostNameSize] = {};
    int rc = NiMyHostName(host, sizeof host);
    if (rc != kNiOk) {
        TraceError("Cannot read my hostname! (rc = %ld)\n", static_cast<long>(rc));
        return -1;
    }
    char* blank = strchr(host, ' ');
    if (blank != nullptr) *blank = '\0';
    Trace(kTraceNotable, "Hostname: %s\n", host);

    NiAddress address{};
    if (NiHostToAddr(host, &address) != kNiOk)
        Trace(kTraceBanner, "IP address unknown.\n");
    else
        Trace(kTraceNormal, "IP address: %s\n", NiAddrToStr(address));

    Czelprsrv* prsrv = g_prsrv;
    if (prsrv != nullptr) g_ListenerParams.LPDPort = ReadLpdPort(*prsrv);
    int32_t port = g_ListenerParams.LPDPort;
    char service[16];
    FormatText(service, sizeof service, "%d", port);

    // Whoever answers on the port already serves it: a second service must not start.
    NiHandle probe = kNiNoHandle;
    if (NiConnect("localhost", service, kNiWaitForever, &probe) == kNiOk) {
        TraceError("The TCP port (%d) for Vorlix is in use.\n", port);
        NiCloseHandle(probe);
        return -1;
    }

    if (prsrv != nullptr) g_ListenerParams.send_with_null = ReadSendWithNull(*prsrv);

    auto listenPort = static_cast<uint16_t>(port);
    rc = NiServerHandle(&listenPort, listenHandle);
    if (rc == kNiOk) {
        Trace(kTraceNotable, "Ni2Listen: port %d OK, socket %d\n", port, *listenHandle);
        return 0;
    }
    TraceError("%s failed with code = %d\n", "Ni2Listen", rc);
    if (rc == kNiPortInUse) {
        LockHold fileHold(ProcessFileLock());
        Trace(kTraceBanner, "The TCP port (%d) for Vorlix is in use.\n", port);
    }
    *listenHandle = kNiNoHandle;
    return -1;
}

int AcceptNetworkConnection(NetSocket* connection, NiHandle listenHandle, int* isLocal) {
    if (listenHandle == kNiNoHandle || connection == nullptr) return -1;
    NiAddress peer = NiMappedZeroAddress();
    NiHandle handle = kNiNoHandle;
    NiAcceptNote note;
    int rc = NiAcceptEx(listenHandle, g_ListenerParams.NiAcceptTimeout, &handle, &peer, &note);
    if (note.noRoom)
        NoteFullTable(note, rc != kNiOk);
    else if (rc == kNiOk || rc == kNiTimeout)
        CloseRefusalBurst();
    if (rc != kNiOk) return -1;
    int local = NiIsLocalAddress(peer);
    if (isLocal != nullptr) *isLocal = local;
    Trace(kTraceDetail, "NiAccept creates new socket %d\n", handle);
    connection->niHandle = handle;
    connection->sncSession = nullptr;
    connection->secured = false;
    return 0;
}

}  // namespace vx
