// The network interface layer ("Ni"): TCP connections over IPv4 and IPv6 behind small integer
// handles, with time-outs in milliseconds, peek, accept with a time-out, and a trace file of its
// own ("vorlix.nit"). The service's listener and socket I/O are built on it.
//
// Time-outs: -1 waits for ever, 0 only looks, a positive value waits at most that many ms.
// A handle in non-blocking mode never waits: every time-out counts as 0 for it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

using NiHandle = int32_t;
constexpr NiHandle kNiNoHandle = -1;
constexpr int kNiMaxHandles = 2048;

constexpr int kNiWaitForever = -1;
constexpr int kNiPoll = 0;

// Results of the layer's operations. -8 is left free: the security layer above uses it to say
// "the error lies in the network layer below".
enum NiResult : int {
    kNiOk = 0,
    kNiFailed = -1,          // a system call failed; the trace names it
    kNiInvalidHandle = -2,   // unknown handle or unusable argument
    kNiHostUnknown = -3,     // the name does not resolve
    kNiPortInUse = -4,       // another socket holds the port
    kNiTimeout = -5,         // the time-out passed (a read or write may still have moved bytes)
    kNiClosed = -6,          // the peer closed the connection
    kNiNoFreeHandle = -7,    // all handles are taken
    kNiNotInitialised = -9,  // NiInit has not succeeded
    kNiRefused = -10,        // nobody accepts connections there
};

// A host address in the 16-byte IPv6 form; IPv4 addresses in the mapped form ::ffff:a.b.c.d.
struct NiAddress {
    uint8_t bytes[16];
};

// ::ffff:0.0.0.0, where an accept starts from.
NiAddress NiMappedZeroAddress();
bool NiIsMappedIpv4(const NiAddress& address);
// True for 127.0.0.0/8 (mapped) and ::1.
bool NiIsLoopback(const NiAddress& address);

// Sets the layer up for at most maxHandles handles (no more than kNiMaxHandles, and fewer where
// the process may not open that many files); on Windows it also starts Winsock. Later calls
// change nothing and return 0.
int NiInit(int maxHandles);
// The number of handles the layer gives out (0 before NiInit).
int NiHandleLimit();

// The host's own name, cut to the buffer.
int NiMyHostName(char* name, size_t cap);
// The first address of a host name, IPv4 preferred; kNiHostUnknown when it does not resolve.
int NiHostToAddr(const char* host, NiAddress* out);
// The address as text: dotted decimal for IPv4 (mapped) addresses, IPv6 text otherwise. The
// text lives in a buffer of the calling thread until its next call.
const char* NiAddrToStr(const NiAddress& address);
// Non-zero when the address belongs to this host.
int NiIsLocalAddress(const NiAddress& address);

// Connects to host on the service (decimal port text) within the time-out.
int NiConnect(const char* host, const char* service, int timeoutMs, NiHandle* out);
// A listening handle on *port on all interfaces: a dual-stack IPv6 socket, or IPv4 where the
// host has no IPv6. A *port of 0 lets the system choose a free port, which is written back.
// kNiPortInUse when another socket holds the port.
int NiServerHandle(uint16_t* port, NiHandle* out);
// Waits at most timeoutMs for a connection on a listening handle; the peer's address goes to
// *peer when peer is not null. kNiTimeout when nobody came.
int NiAccept(NiHandle listener, int timeoutMs, NiHandle* out, NiAddress* peer);

// What an accept met when every handle (or every descriptor of the process) was taken.
struct NiAcceptNote {
    bool noRoom = false;                // the table (or the process) was full
    NiHandle closedIdle = kNiNoHandle;  // the idle connection shut down to make room
};
// A connection that finds no free handle makes room: the connection that has waited the longest
// in a read without a byte (quiet for at least kNiIdleMinQuietMs) is shut down, and the new one
// takes its handle once its owner has closed it (within kNiRoomWaitMs). Otherwise the new
// connection is refused: closed at once, kNiNoFreeHandle. *note says what happened.
constexpr int kNiIdleMinQuietMs = 2000;
constexpr int kNiRoomWaitMs = 1000;
int NiAcceptEx(NiHandle listener, int timeoutMs, NiHandle* out, NiAddress* peer,
               NiAcceptNote* note);

// Shuts down the connection that has waited the longest in a read without receiving a byte and
// has been quiet for at least minQuietMs: its reader wakes and sees the end of the connection, and
// closes the handle as usual. The handle, or kNiNoHandle when no connection qualifies.
NiHandle NiShutDownOldestIdle(int minQuietMs);
// Shuts down every open connection (listening handles stay), for the end of the service: each
// reader and writer sees the end of its connection. How many were shut down.
int NiShutDownConnections();

enum NiPeekMode { kNiPeekRead = 0, kNiPeekWrite = 1 };
// Read mode: 0 when data is waiting, kNiClosed when the peer has closed, kNiTimeout when
// nothing came within the time-out. Write mode: 0 when a write would not wait.
int NiPeekEx(NiHandle handle, NiPeekMode mode, int timeoutMs);

// Reads up to length bytes into buffer; *count receives what arrived, whatever the result.
// 0 when the buffer is full, or after the first bytes in single-read mode; kNiTimeout when the
// time-out passed first (with or without bytes); kNiClosed when the peer closed the connection.
// Bytes that arrived before the peer closed come with 0; the next read gives kNiClosed.
int NiRawRead(NiHandle handle, void* buffer, int32_t length, int timeoutMs, int32_t* count);
// Writes length bytes; *count receives what was written. 0 when all went out, kNiTimeout when
// the time-out passed first. Never raises SIGPIPE.
int NiRawWrite(NiHandle handle, const void* data, int32_t length, int timeoutMs, int32_t* count);

int NiHdlGetBlockmode(NiHandle handle, bool* blocking);
int NiHdlSetBlockmode(NiHandle handle, bool blocking);
// In single-read mode a raw read returns after the first successful receive instead of
// waiting for the full length.
int NiSetSingleRead(NiHandle handle, bool on);
int NiCloseHandle(NiHandle handle);

// ---- the layer's trace file ----
// Levels: 1 failures, 2 connections (listen, accept, connect, close), 3 every read, write,
// peek and time-out. A line is written when the file is open and its level is at most the
// trace level (3 at start).
enum NiTraceOpenFlag { kNiTraceTruncate = 0, kNiTraceAppend = 1 };
void NiSetTraceLevel(int level);
int NiGetTraceLevel();
// Opens (flag: truncate or append) the trace file and sets the level; 0 on success, -1 when
// the file cannot be opened. A trace file already open is closed first.
int NiTraceOpen(const char* path, int flag, int level);
void NiTraceClose();
bool NiTraceIsOpen();
// One line ("\n" is added) in the trace file; for the layers that share it.
void NiTraceWrite(int level, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

}  // namespace vx
