// The socket primitives of the operating system under the network interface layer: Winsock on
// Windows (base/win32/ni.cc), BSD sockets elsewhere (base/posix/ni.cc). Only the layer's own
// files use them. Every socket made here is non-blocking; waiting is done with NiOsWait, so that
// every time-out holds.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/ni.h"

namespace vx {

// SOCKET on Windows, a file descriptor elsewhere.
using NiOsSocket = uint64_t;
constexpr NiOsSocket kNiOsNoSocket = ~uint64_t{0};

// Once per process (Winsock start-up; elsewhere the limit of open files is raised as far as the
// system allows, so that the handle table, not that limit, bounds the connections); 0 or an Ni
// result.
int NiOsStartup();
// How many sockets the process may hold and still open the files its jobs need: the limit of
// open files less a reserve (no lower limit of its own where the system has none).
int NiOsSocketCeiling();
// The system's code of the last failed socket call, for trace lines.
int NiOsLastError();

int NiOsHostName(char* name, size_t cap);
int NiOsResolve(const char* host, NiAddress* out);
// A connected socket to host and service within the time-out (-1: no limit).
int NiOsConnect(const char* host, const char* service, int timeoutMs, NiOsSocket* out);
// A listening socket on *port for all interfaces (*port 0: the system's choice, written back);
// *dualStack tells whether it is an IPv6 socket that also takes IPv4 peers.
int NiOsListen(uint16_t* port, NiOsSocket* out, bool* dualStack);
// Takes one waiting connection; kNiTimeout when none is waiting, kNiNoFreeHandle when the process
// or the system has no descriptor to spare.
int NiOsAccept(NiOsSocket listener, NiOsSocket* out, NiAddress* peer);
bool NiOsIsLocal(const NiAddress& address);

// 1 when the socket is readable (or writable), 0 when the time-out passed, else an Ni result.
int NiOsWait(NiOsSocket socket, bool forWrite, int timeoutMs);
// Where a wait does not end when another thread shuts the socket down (Winsock's select), waits
// last at most this long, and the layer looks between them; -1 where the wait ends by itself.
int NiOsShutdownWakeMs();
// Bytes received (> 0), 0 when the peer closed, kNiTimeout when nothing is there now, or another
// Ni result. peek leaves the bytes in the socket.
long NiOsRecv(NiOsSocket socket, void* buffer, size_t length, bool peek);
// Bytes sent (> 0), kNiTimeout when the socket takes nothing now, kNiClosed when the peer is
// gone, or another Ni result.
long NiOsSend(NiOsSocket socket, const void* data, size_t length);
void NiOsClose(NiOsSocket socket);
// Ends both directions of a connection without giving up the socket: a thread waiting on it wakes
// and sees the end of the connection, and the socket stays its owner's to close.
void NiOsShutdown(NiOsSocket socket);

}  // namespace vx
