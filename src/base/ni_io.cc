// Peek, reads and writes of the network interface layer. The sockets underneath never block;
// waiting happens here, against one deadline per call, so that every time-out holds however the
// bytes trickle in. Traced at level 3 (every call) and level 1 (failures).
#include "base/clock.h"
#include "base/ni.h"
#include "base/ni_handles.h"
#include "base/ni_os.h"

namespace vx {

namespace {

// The end of a call's time-out.
class Deadline {
  public:
    explicit Deadline(int timeoutMs)
        : forever_(timeoutMs < 0),
          end_(TickCountMs() + static_cast<uint64_t>(timeoutMs < 0 ? 0 : timeoutMs)) {}
    // Milliseconds left: -1 for no limit, 0 when the time is up.
    int Left() const {
        if (forever_) return -1;
        uint64_t now = TickCountMs();
        return now >= end_ ? 0 : static_cast<int>(end_ - now);
    }

  private:
    bool forever_;
    uint64_t end_;
};

// The entry of a connection handle and the time-out that holds for it: a handle in
// non-blocking mode never waits.
bool ConnectionEntry(NiHandle handle, int* timeoutMs, NiHandleEntry* entry) {
    if (!NiTableGet(handle, entry) || entry->listener) return false;
    if (!entry->blocking) *timeoutMs = 0;
    return true;
}

bool IsShutDown(NiHandle handle) {
    NiHandleEntry entry;
    return NiTableGet(handle, &entry) && entry.shutDown;
}

// Waits on a connection's socket like NiOsWait; kNiClosed once the connection was shut down
// (to make room, or at the end of the service) while the thread waited.
int WaitOnConnection(NiHandle handle, NiOsSocket socket, bool forWrite, int timeoutMs) {
    int slice = NiOsShutdownWakeMs();
    if (slice < 0) return NiOsWait(socket, forWrite, timeoutMs);
    Deadline deadline(timeoutMs);
    for (;;) {
        if (IsShutDown(handle)) return kNiClosed;
        int left = deadline.Left();
        int ready = NiOsWait(socket, forWrite, left < 0 || left > slice ? slice : left);
        if (ready != 0 || deadline.Left() == 0) return ready;
    }
}

// Waits for the socket within what is left of the deadline: 0 ready, else an Ni result.
int AwaitReady(NiHandle handle, NiOsSocket socket, bool forWrite, const Deadline& deadline) {
    int left = deadline.Left();
    if (left == 0) return kNiTimeout;
    int ready = WaitOnConnection(handle, socket, forWrite, left);
    if (ready == 0) return kNiTimeout;
    return ready < 0 ? ready : kNiOk;
}

}  // namespace

int NiPeekEx(NiHandle handle, NiPeekMode mode, int timeoutMs) {
    NiHandleEntry entry;
    if (!ConnectionEntry(handle, &timeoutMs, &entry)) return kNiInvalidHandle;
    Deadline deadline(timeoutMs);
    bool forWrite = mode == kNiPeekWrite;
    // A connection waiting here for its sender is idle: it may be shut down to make room.
    if (!forWrite) NiTableNoteWait(handle, true);
    int rc = kNiTimeout;
    for (;;) {
        // Looking first lets a time-out of 0 still see what is already there.
        if (!forWrite) {
            char first;
            long n = NiOsRecv(entry.socket, &first, 1, true);
            rc = n > 0 ? kNiOk : n == 0 ? kNiClosed : static_cast<int>(n);
            if (rc != kNiTimeout) break;
        }
        int ready = WaitOnConnection(handle, entry.socket, forWrite, deadline.Left());
        if (ready == 0) {
            rc = kNiTimeout;
            break;
        }
        if (ready < 0 || forWrite) {
            rc = ready < 0 ? ready : kNiOk;
            break;
        }
    }
    if (!forWrite) NiTableNoteWait(handle, false);
    if (rc == kNiTimeout)
        NiTraceWrite(3, "NiPeekEx: handle %d time-out after %d ms", handle, timeoutMs);
    else if (rc == kNiOk || rc == kNiClosed)
        NiTraceWrite(3, "NiPeekEx: handle %d rc = %d", handle, rc);
    else
        NiTraceWrite(1, "NiPeekEx: handle %d failed, system error %d (rc = %d)", handle,
                     NiOsLastError(), rc);
    return rc;
}

int NiRawRead(NiHandle handle, void* buffer, int32_t length, int timeoutMs, int32_t* count) {
    if (count != nullptr) *count = 0;
    NiHandleEntry entry;
    if (buffer == nullptr || count == nullptr || length < 0 ||
        !ConnectionEntry(handle, &timeoutMs, &entry))
        return kNiInvalidHandle;
    Deadline deadline(timeoutMs);
    if (timeoutMs != kNiPoll) NiTableNoteWait(handle, true);
    char* into = static_cast<char*>(buffer);
    int32_t got = 0;
    int rc = kNiOk;
    while (got < length) {
        long n = NiOsRecv(entry.socket, into + got, static_cast<size_t>(length - got), false);
        if (n > 0) {
            got += static_cast<int32_t>(n);
            if (entry.singleRead) break;
            continue;
        }
        rc = n == 0 ? kNiClosed : static_cast<int>(n);
        if (rc == kNiTimeout) rc = AwaitReady(handle, entry.socket, false, deadline);
        if (rc != kNiOk) break;
    }
    // Bytes that arrived before the peer closed (or the connection failed) are delivered first;
    // the next read reports the end.
    if (got > 0 && rc != kNiTimeout) rc = kNiOk;
    if (timeoutMs != kNiPoll) NiTableNoteWait(handle, false);
    if (got > 0) NiTableNoteBytes(handle);
    *count = got;
    if (rc == kNiOk || rc == kNiTimeout || rc == kNiClosed)
        NiTraceWrite(3, "NiRawRead: handle %d, %d of %d bytes (rc = %d)", handle, got, length, rc);
    else
        NiTraceWrite(1, "NiRawRead: handle %d failed, system error %d (rc = %d)", handle,
                     NiOsLastError(), rc);
    return rc;
}

int NiRawWrite(NiHandle handle, const void* data, int32_t length, int timeoutMs, int32_t* count) {
    if (count != nullptr) *count = 0;
    NiHandleEntry entry;
    if (data == nullptr || count == nullptr || length < 0 ||
        !ConnectionEntry(handle, &timeoutMs, &entry))
        return kNiInvalidHandle;
    Deadline deadline(timeoutMs);
    const char* from = static_cast<const char*>(data);
    int32_t sent = 0;
    int rc = kNiOk;
    while (sent < length) {
        long n = NiOsSend(entry.socket, from + sent, static_cast<size_t>(length - sent));
        if (n > 0) {
            sent += static_cast<int32_t>(n);
            continue;
        }
        rc = static_cast<int>(n);
        if (rc == kNiTimeout) rc = AwaitReady(handle, entry.socket, true, deadline);
        if (rc != kNiOk) break;
    }
    *count = sent;
    if (rc == kNiOk || rc == kNiTimeout)
        NiTraceWrite(3, "NiRawWrite: handle %d, %d of %d bytes (rc = %d)", handle, sent, length,
                     rc);
    else
        NiTraceWrite(1,
                     "NiRawWrite: handle %d failed after %d of %d bytes, system error %d "
                     "(rc = %d)",
                     handle, sent, length, NiOsLastError(), rc);
    return rc;
}

int NiHdlGetBlockmode(NiHandle handle, bool* blocking) {
    NiHandleEntry entry;
    if (blocking == nullptr || !NiTableGet(handle, &entry)) return kNiInvalidHandle;
    *blocking = entry.blocking;
    return kNiOk;
}

int NiHdlSetBlockmode(NiHandle handle, bool blocking) {
    return NiTableSetBlocking(handle, blocking) ? kNiOk : kNiInvalidHandle;
}

int NiSetSingleRead(NiHandle handle, bool on) {
    return NiTableSetSingleRead(handle, on) ? kNiOk : kNiInvalidHandle;
}

}  // namespace vx
