// Socket I/O of a connection: every byte the print protocols exchange with a sender passes
// through these operations. They carry the service's policy for slow senders (a short spin phase
// for fast replies, then a patient phase with the configured time-outs) and its reply forms.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/ni.h"

struct SncSession;  // a secured session of the security library (snc/vorlixsnc.h)

namespace vx {

using ::SncSession;

// The connection's socket: its network handle and, once a secured session stands, that session.
struct NetSocket {
    NiHandle niHandle = kNiNoHandle;
    SncSession* sncSession = nullptr;
    bool secured = false;
};

// The last return code of the network layer; a diagnostic value, last writer wins.
extern std::atomic<int32_t> LastNetError;

// A connection goes through its secured session only when the session is set and established.
inline bool IsSecured(const NetSocket& socket) {
    return socket.sncSession != nullptr && socket.secured;
}

// The secured path of the operations below, installed by the security layer when it sets up.
// Until then no connection has a session and every operation takes the plain path.
struct SecuredChannel {
    int32_t (*read)(NetSocket& socket, void* buffer, int32_t length);
    int32_t (*write)(NetSocket& socket, const void* data, int32_t length);
    void (*sessionDone)(NetSocket& socket);
};
// The channel must outlive every connection; null removes it.
void InstallSecuredChannel(const SecuredChannel* channel);

// One read of up to length bytes: the count (1..length), 0 when the peer closed the
// connection, -1 on any other failure. It does not wait for the full length.
int32_t SocketRead(NetSocket& socket, void* buffer, int32_t length);
// Writes all length bytes: length, or -1 on failure.
int32_t SocketWrite(NetSocket& socket, const void* data, int32_t length);
void SocketClose(NetSocket& socket);

// "OK" or "OK <text>", then a line feed.
void SendOK(const char* text, NetSocket& socket);
// One byte: 0 for a positive acknowledgement, 0xFF for a negative one (value -1).
void SendAck(int value, NetSocket& socket);
// The text, and its terminating NUL when "send_with_null" is set.
void SendString(NetSocket& socket, const char* text);
// Reads one byte: 0 when it is a NUL byte, -1 otherwise.
int AwaitNullbyte(NetSocket& socket);

}  // namespace vx
