// Reads, writes, close and the reply forms of a connection. Plain connections go through the
// network layer here; secured ones through the channel that the security layer installs.
#include "net/socket_io.h"

#include <cstring>

#include "base/clock.h"
#include "base/text.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"

namespace vx {

std::atomic<int32_t> LastNetError{0};

namespace {

constexpr const char* kSourceFile = "socket_io";
// A sender that answers at once is served by the spin phase; each of its peeks waits this long.
constexpr int kSpinPeekTimeoutMs = 3000;
// Reads up to this length are shown in the trace.
constexpr int32_t kTracedReadLength = 259;

std::atomic<const SecuredChannel*> g_securedChannel{nullptr};

// The secured channel of a secured connection; null (and an error line) when the security layer
// that made the session is gone.
const SecuredChannel* ChannelFor(const NetSocket& socket, const char* operation) {
    const SecuredChannel* channel = g_securedChannel;
    if (channel == nullptr)
        TraceError("%s: secured session on ni %i without a security layer\n", operation,
                   socket.niHandle);
    return channel;
}

// One raw read of what is there, without waiting. A time-out that still delivered bytes is a
// success; kNiTimeout means that nothing was there.
//
// Each pass of either phase reads first and peeks only when nothing was there, so that a sender
// that keeps the connection busy is read without a peek. The first read's result stands for what
// the peek would have found: kNiOk the data, kNiClosed or a failure what the peek would have
// answered, and kNiTimeout lets the pass peek (and wait) as before.
int ReadAvailable(NiHandle handle, void* buffer, int32_t length, int32_t* got) {
    int rc = NiRawRead(handle, buffer, length, kNiPoll, got);
    return rc == kNiTimeout && *got > 0 ? kNiOk : rc;
}

void TraceReadData(const void* buffer, int32_t got) {
    const char* bytes = static_cast<const char*>(buffer);
    if (got <= 0) return;
    if (got > kTracedReadLength) {
        Trace(kTraceDetail, "SocketRead read buffer with len %i\n", got);
        return;
    }
    Trace(kTraceDetail, "SocketRead read buff[0] %x (hex)\n",
          static_cast<int>(static_cast<signed char>(bytes[0])));
    if (got >= 2)
        Trace(kTraceDetail, "SocketRead read complete buffer %*.*s with len %i\n", got - 1, got - 1,
              bytes, got);
}

// The spin phase: single reads while the spin time lasts. True when it ended with a result
// (data, end of connection or a failure) in *rc.
bool SpinRead(NiHandle handle, void* buffer, int32_t length, int32_t* got, int* rc) {
    uint64_t deadline = TickCountMs() + static_cast<uint64_t>(g_ListenerParams.NiSpinReadTime);
    NiSetSingleRead(handle, true);
    long peekCounter = 0;
    bool ended = false;
    while (TickCountMs() < deadline) {
        ++peekCounter;
        *rc = ReadAvailable(handle, buffer, length, got);
        if (*rc == kNiTimeout) {
            *rc = NiPeekEx(handle, kNiPeekRead, kSpinPeekTimeoutMs);
            if (*rc == kNiOk) *rc = ReadAvailable(handle, buffer, length, got);
        }
        if (*rc != kNiTimeout) {
            Trace(kTraceDetail, "SocketRead: Leave first loop with break\n");
            ended = true;
            break;
        }
        Trace(kTraceDetail, "SocketRead first loop: l_rc = %d with read_len = %d\n", *rc, *got);
    }
    NiSetSingleRead(handle, false);
    Trace(kTraceDetail, "SocketRead: PeekCounter = %ld\n", peekCounter);
    return ended;
}

// The patient phase: peeks with "NiReadTimeout" until data comes, the connection ends, or more
// time-outs than "NiReadLoopBreak" allow (one more than it says: N + 2 time-outs for N >= 0).
// Without a "NiReadTimeout" the peek waits the idle limit, and its time-out ends the read.
int PatientRead(NiHandle handle, void* buffer, int32_t length, int32_t* got) {
    int32_t loopBreak = g_ListenerParams.NiReadLoopBreak;
    int32_t readTimeout = g_ListenerParams.NiReadTimeout;
    bool idleLimit = readTimeout < 0;
    if (idleLimit) readTimeout = g_ListenerParams.IdleLimitMs;
    int32_t timeouts = -1;
    int rc = kNiTimeout;
    do {
        rc = ReadAvailable(handle, buffer, length, got);
        if (rc == kNiTimeout) {
            rc = NiPeekEx(handle, kNiPeekRead, readTimeout);
            if (rc == kNiTimeout && idleLimit) {
                Trace(kTraceNotable,
                      "SocketRead: nothing received on ni %i for %d ms, connection idle\n", handle,
                      static_cast<int>(readTimeout));
                break;
            }
            if (rc == kNiTimeout) {
                if (loopBreak >= 0) ++timeouts;
                continue;
            }
            if (rc != kNiOk) break;
            rc = ReadAvailable(handle, buffer, length, got);
        } else if (rc != kNiOk) {
            break;  // the end of the connection, or a failure, as the peek would have found it
        }
        if (rc != kNiTimeout) {
            Trace(kTraceDetail, "SocketRead: Leave second loop with break\n");
            break;
        }
        Trace(kTraceDetail, "SocketRead second loop: l_rc = %d with read_len = %d\n", rc, *got);
    } while (timeouts <= loopBreak);
    return rc;
}

int32_t PlainRead(NetSocket& socket, void* buffer, int32_t length) {
    NiHandle handle = socket.niHandle;
    bool blocking = true;
    bool switchedToBlocking = false;
    if (NiHdlGetBlockmode(handle, &blocking) == kNiOk && !blocking) {
        NiHdlSetBlockmode(handle, true);
        switchedToBlocking = true;
    }
    int32_t got = 0;
    int rc = kNiTimeout;
    bool ended = false;
    if (g_ListenerParams.NiSpinReadTime >= 0) ended = SpinRead(handle, buffer, length, &got, &rc);
    if (switchedToBlocking) NiHdlSetBlockmode(handle, false);
    if (!ended) rc = PatientRead(handle, buffer, length, &got);

    if (rc != kNiOk) LastNetError = rc;
    if (rc == kNiClosed) {
        Trace(kTraceDetail, "SocketRead: EOF on socket received\n");
        return 0;
    }
    if (rc != kNiOk) {
        Trace(kTraceDetail, "%s failed with returncode %ld\n", "SocketRead", static_cast<long>(rc));
        return -1;
    }
    TraceReadData(buffer, got);
    return got;
}

int32_t PlainWrite(NetSocket& socket, const void* data, int32_t length) {
    NiHandle handle = socket.niHandle;
    const char* from = static_cast<const char*>(data);
    int32_t total = 0;
    int32_t remaining = length;
    for (;;) {
        int32_t count = 0;
        int rc =
            NiRawWrite(handle, from + total, remaining, g_ListenerParams.NiWriteTimeout, &count);
        if (rc != kNiOk) LastNetError = rc;
        if (rc != kNiOk && rc != kNiTimeout) {
            TraceError("%s failed with returncode %ld\n", "NiRawWrite", static_cast<long>(rc));
            TraceError("SocketWrite: NiRawWrite failed on ni %i - aborting.\n", handle);
            return -1;
        }
        total += count;
        if (count == remaining) return total;
        TraceError("SocketWrite: should write %d, did %d, continue.\n", remaining, count);
        if (count == 0) return -1;
        remaining -= count;
    }
}

}  // namespace

void InstallSecuredChannel(const SecuredChannel* channel) {
    g_securedChannel = channel;
}

int32_t SocketRead(NetSocket& socket, void* buffer, int32_t length) {
    if (IsSecured(socket)) {
        const SecuredChannel* channel = ChannelFor(socket, "SocketRead");
        return channel != nullptr ? channel->read(socket, buffer, length) : -1;
    }
    return PlainRead(socket, buffer, length);
}

int32_t SocketWrite(NetSocket& socket, const void* data, int32_t length) {
    if (IsSecured(socket)) {
        const SecuredChannel* channel = ChannelFor(socket, "SocketWrite");
        return channel != nullptr ? channel->write(socket, data, length) : -1;
    }
    return PlainWrite(socket, data, length);
}

void SocketClose(NetSocket& socket) {
    if (socket.sncSession != nullptr) {
        const SecuredChannel* channel = ChannelFor(socket, "SocketClose");
        if (channel != nullptr) channel->sessionDone(socket);
        socket.sncSession = nullptr;
        socket.secured = false;
    }
    NiHandle handle = socket.niHandle;
    int rc = NiCloseHandle(handle);
    LastNetError = rc;
    // A closed handle may soon stand for another connection: this socket no longer names it.
    socket.niHandle = kNiNoHandle;
    Trace(kTraceDetail, "SocketClose %d called with rc = %d.\n", handle, rc);
}

void SendOK(const char* text, NetSocket& socket) {
    Czelprsrv* prsrv = g_prsrv;
    if (prsrv == nullptr) return;
    size_t size = text != nullptr ? strlen(text) + 10 : 210;
    auto* reply =
        static_cast<char*>(prsrv->TrackedAlloc(size, kSourceFile, __LINE__, "SendOK buffer", 0));
    if (reply == nullptr) return;
    if (text != nullptr)
        FormatText(reply, size, "OK %s\n", text);
    else
        FormatText(reply, size, "OK\n");
    SocketWrite(socket, reply, static_cast<int32_t>(strlen(reply)));
    prsrv->TrackedFree(reply, kSourceFile, __LINE__, "SendOK buffer", 0);
}

void SendAck(int value, NetSocket& socket) {
    auto byte = static_cast<unsigned char>(value);
    SocketWrite(socket, &byte, 1);
}

void SendString(NetSocket& socket, const char* text) {
    if (text == nullptr) return;
    size_t length = strlen(text) + (g_ListenerParams.send_with_null != 0 ? 1 : 0);
    SocketWrite(socket, text, static_cast<int32_t>(length));
}

int AwaitNullbyte(NetSocket& socket) {
    char byte = 1;
    int32_t got = SocketRead(socket, &byte, 1);
    if (got == -1) {
        TraceError("AwaitNullbyte: SocketRead failed on ni %i - aborting.\n", socket.niHandle);
        return -1;
    }
    if (got != 1 || byte != 0) {
        TraceError("AwaitNullbyte: Nullbyte expected, protocol error on ni %i - aborting.\n",
                   socket.niHandle);
        return -1;
    }
    return 0;
}

}  // namespace vx
