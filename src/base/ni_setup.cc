// Start-up, names and addresses, and the life of handles in the network interface layer:
// connect, listen, accept and close, each traced at level 2 and every failure at level 1.
#include "base/clock.h"
#include "base/ni.h"
#include "base/ni_handles.h"
#include "base/ni_os.h"
#include "base/sync.h"

namespace vx {

namespace {

// Enters a new socket into the table; closes it when no handle is free.
int AdoptSocket(NiOsSocket socket, bool listener, const char* caller, NiHandle* out) {
    NiHandle handle = NiTableAdd(socket, listener);
    if (handle < 0) {
        NiOsClose(socket);
        NiTraceWrite(1, "%s: no free handle (rc = %d)", caller, handle);
        return handle;
    }
    *out = handle;
    return kNiOk;
}

// How often a connection that waits for room looks for a free handle.
constexpr uint32_t kRoomPollMs = 10;

// Makes room for an accepted socket that found the table full: shuts the oldest idle connection
// down and waits for its owner to free its handle. 0 and the handle, or kNiNoFreeHandle (the
// socket is then closed).
int AdoptIntoFullTable(NiOsSocket socket, NiHandle* out, NiAcceptNote* note) {
    note->noRoom = true;
    note->closedIdle = NiShutDownOldestIdle(kNiIdleMinQuietMs);
    if (note->closedIdle != kNiNoHandle) {
        uint64_t end = TickCountMs() + kNiRoomWaitMs;
        do {
            SleepMs(kRoomPollMs);
            NiHandle handle = NiTableAdd(socket, false);
            if (handle >= 0) {
                *out = handle;
                return kNiOk;
            }
        } while (TickCountMs() < end);
    }
    NiOsClose(socket);
    NiTraceWrite(1, "NiAccept: no free handle, connection refused (rc = %d)", kNiNoFreeHandle);
    return kNiNoFreeHandle;
}

// The process has no descriptor for the waiting connection: shut the oldest idle connection down
// and take the waiting one once a descriptor is free. Without an idle connection the waiting one
// stays in the system's queue, and the pause keeps the accept loop from spinning on it.
int AcceptWithoutDescriptors(NiOsSocket listener, NiOsSocket* socket, NiAddress* from,
                             NiAcceptNote* note) {
    note->noRoom = true;
    note->closedIdle = NiShutDownOldestIdle(kNiIdleMinQuietMs);
    uint64_t end = TickCountMs() + kNiRoomWaitMs;
    do {
        SleepMs(kRoomPollMs);
        if (note->closedIdle == kNiNoHandle) continue;
        int rc = NiOsAccept(listener, socket, from);
        if (rc != kNiNoFreeHandle) return rc;
    } while (TickCountMs() < end);
    return kNiNoFreeHandle;
}

}  // namespace

int NiHandleLimit() {
    return NiTableLimit();
}

NiHandle NiShutDownOldestIdle(int minQuietMs) {
    NiHandle handle = NiTableShutDownOldestIdle(
        TickCountMs(), static_cast<uint64_t>(minQuietMs < 0 ? 0 : minQuietMs));
    if (handle != kNiNoHandle) NiTraceWrite(2, "NiShutDownOldestIdle: handle %d shut down", handle);
    return handle;
}

int NiShutDownConnections() {
    int count = NiTableShutDownConnections();
    NiTraceWrite(2, "NiShutDownConnections: %d connections shut down", count);
    return count;
}

int NiInit(int maxHandles) {
    int rc = NiOsStartup();
    if (rc != kNiOk) {
        NiTraceWrite(1, "NiInit: socket start-up failed, system error %d (rc = %d)",
                     NiOsLastError(), rc);
        return rc;
    }
    // Where the process may open fewer files than handles, the table fills (and makes room)
    // before the system refuses connections and the jobs' files.
    int ceiling = NiOsSocketCeiling();
    rc = NiTableInit(maxHandles < ceiling ? maxHandles : ceiling);
    if (rc != kNiOk) {
        NiTraceWrite(1, "NiInit: %d handles asked for (rc = %d)", maxHandles, rc);
        return rc;
    }
    NiTraceWrite(2, "NiInit: up to %d handles", NiHandleLimit());
    return kNiOk;
}

int NiMyHostName(char* name, size_t cap) {
    if (name == nullptr || cap == 0) return kNiInvalidHandle;
    name[0] = '\0';
    int rc = NiOsHostName(name, cap);
    if (rc != kNiOk)
        NiTraceWrite(1, "NiMyHostName: system error %d (rc = %d)", NiOsLastError(), rc);
    return rc;
}

int NiHostToAddr(const char* host, NiAddress* out) {
    if (host == nullptr || host[0] == '\0' || out == nullptr) return kNiInvalidHandle;
    int rc = NiOsResolve(host, out);
    if (rc != kNiOk)
        NiTraceWrite(1, "NiHostToAddr: %s does not resolve (rc = %d)", host, rc);
    else
        NiTraceWrite(3, "NiHostToAddr: %s is %s", host, NiAddrToStr(*out));
    return rc;
}

int NiConnect(const char* host, const char* service, int timeoutMs, NiHandle* out) {
    if (host == nullptr || service == nullptr || out == nullptr) return kNiInvalidHandle;
    *out = kNiNoHandle;
    if (!NiTableReady()) return kNiNotInitialised;
    NiOsSocket socket = kNiOsNoSocket;
    int rc = NiOsConnect(host, service, timeoutMs, &socket);
    if (rc != kNiOk) {
        // A refused connection is the normal answer of a free port: no failure line for it.
        NiTraceWrite(rc == kNiRefused ? 2 : 1, "NiConnect: %s:%s failed (rc = %d)", host, service,
                     rc);
        return rc;
    }
    rc = AdoptSocket(socket, false, "NiConnect", out);
    if (rc == kNiOk)
        NiTraceWrite(2, "NiConnect: handle %d connected to %s:%s", *out, host, service);
    return rc;
}

int NiServerHandle(uint16_t* port, NiHandle* out) {
    if (port == nullptr || out == nullptr) return kNiInvalidHandle;
    *out = kNiNoHandle;
    if (!NiTableReady()) return kNiNotInitialised;
    uint16_t asked = *port;
    NiOsSocket socket = kNiOsNoSocket;
    bool dualStack = false;
    int rc = NiOsListen(port, &socket, &dualStack);
    if (rc != kNiOk) {
        NiTraceWrite(1, "NiServerHandle: port %u not available, system error %d (rc = %d)",
                     static_cast<unsigned>(asked), NiOsLastError(), rc);
        return rc;
    }
    rc = AdoptSocket(socket, true, "NiServerHandle", out);
    if (rc == kNiOk)
        NiTraceWrite(2, "NiServerHandle: handle %d listens on port %u (%s)", *out,
                     static_cast<unsigned>(*port), dualStack ? "IPv6 and IPv4" : "IPv4 only");
    return rc;
}

int NiAccept(NiHandle listener, int timeoutMs, NiHandle* out, NiAddress* peer) {
    NiAcceptNote note;
    return NiAcceptEx(listener, timeoutMs, out, peer, &note);
}

int NiAcceptEx(NiHandle listener, int timeoutMs, NiHandle* out, NiAddress* peer,
               NiAcceptNote* note) {
    NiAcceptNote unused;
    if (note == nullptr) note = &unused;
    *note = NiAcceptNote{};
    if (out == nullptr) return kNiInvalidHandle;
    *out = kNiNoHandle;
    NiHandleEntry entry;
    if (!NiTableGet(listener, &entry) || !entry.listener) return kNiInvalidHandle;
    int ready = NiOsWait(entry.socket, false, timeoutMs);
    if (ready == 0) {
        NiTraceWrite(3, "NiAccept: no connection on handle %d within %d ms", listener, timeoutMs);
        return kNiTimeout;
    }
    if (ready < 0) {
        NiTraceWrite(1, "NiAccept: waiting on handle %d failed, system error %d (rc = %d)",
                     listener, NiOsLastError(), ready);
        return ready;
    }
    NiOsSocket socket = kNiOsNoSocket;
    NiAddress from = peer != nullptr ? *peer : NiMappedZeroAddress();
    int rc = NiOsAccept(entry.socket, &socket, &from);
    if (rc == kNiNoFreeHandle) rc = AcceptWithoutDescriptors(entry.socket, &socket, &from, note);
    if (rc != kNiOk) {
        // The waiting peer may have given up between the wait and the accept.
        NiTraceWrite(rc == kNiTimeout ? 3 : 1, "NiAccept: on handle %d failed (rc = %d)", listener,
                     rc);
        return rc;
    }
    NiHandle handle = NiTableAdd(socket, false);
    if (handle >= 0) {
        *out = handle;
    } else {
        rc = AdoptIntoFullTable(socket, out, note);
        if (rc != kNiOk) return rc;
    }
    if (peer != nullptr) *peer = from;
    NiTraceWrite(2, "NiAccept: handle %d from %s", *out, NiAddrToStr(from));
    return kNiOk;
}

int NiCloseHandle(NiHandle handle) {
    NiOsSocket socket = NiTableRemove(handle);
    if (socket == kNiOsNoSocket) {
        NiTraceWrite(1, "NiCloseHandle: handle %d is not open", handle);
        return kNiInvalidHandle;
    }
    NiOsClose(socket);
    NiTraceWrite(2, "NiCloseHandle: handle %d closed", handle);
    return kNiOk;
}

}  // namespace vx
