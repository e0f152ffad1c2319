// Winsock under the network interface layer. Winsock is started once per process; sockets are
// made non-blocking (ioctlsocket FIONBIO) and waited for with select. Windows reports a port in
// use as WSAEADDRINUSE or, with exclusive address use or a foreign holder, as WSAEACCES.
#include <winsock2.h>
#include <ws2tcpip.h>
// iphlpapi.h needs the Winsock declarations above.
#include <iphlpapi.h>

#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "base/ni_os.h"
#include "base/text.h"

namespace vx {

namespace {

thread_local int t_lastError = 0;

SOCKET Sock(NiOsSocket socket) {
    return static_cast<SOCKET>(socket);
}

int MapError(int error) {
    switch (error) {
        case WSAEWOULDBLOCK:
        case WSAEINPROGRESS:
            return kNiTimeout;
        case WSAECONNRESET:
        case WSAECONNABORTED:
        case WSAESHUTDOWN:
        case WSAENOTCONN:
            return kNiClosed;
        case WSAECONNREFUSED:
            return kNiRefused;
        case WSAEADDRINUSE:
        case WSAEACCES:
            return kNiPortInUse;
        case WSAENOTSOCK:
            return kNiInvalidHandle;
        case WSAEMFILE:
            return kNiNoFreeHandle;
        case WSANOTINITIALISED:
            return kNiNotInitialised;
        default:
            return kNiFailed;
    }
}

// Records the Winsock error for the trace and gives its Ni result.
int Failed() {
    t_lastError = WSAGetLastError();
    return MapError(t_lastError);
}

// Closes a socket at the end of a scope unless it was handed on.
class SocketGuard {
  public:
    explicit SocketGuard(SOCKET socket) : socket_(socket) {}
    ~SocketGuard() {
        if (socket_ != INVALID_SOCKET) closesocket(socket_);
    }
    SocketGuard(const SocketGuard&) = delete;
    SocketGuard& operator=(const SocketGuard&) = delete;
    SOCKET Get() const { return socket_; }
    bool Valid() const { return socket_ != INVALID_SOCKET; }
    NiOsSocket Release() {
        SOCKET socket = socket_;
        socket_ = INVALID_SOCKET;
        return static_cast<NiOsSocket>(socket);
    }

  private:
    SOCKET socket_;
};

struct AddrInfoFree {
    void operator()(addrinfo* list) const {
        if (list != nullptr) freeaddrinfo(list);
    }
};
using AddrInfoList = std::unique_ptr<addrinfo, AddrInfoFree>;

bool MakeNonBlocking(SOCKET socket) {
    u_long on = 1;
    return ioctlsocket(socket, FIONBIO, &on) == 0;
}

SOCKET NewSocket(int family, int type) {
    SOCKET socket = ::socket(family, type, 0);
    if (socket != INVALID_SOCKET && !MakeNonBlocking(socket)) {
        closesocket(socket);
        return INVALID_SOCKET;
    }
    return socket;
}

NiAddress ToAddress(const sockaddr* address) {
    NiAddress out = NiMappedZeroAddress();
    if (address->sa_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(address);
        memcpy(out.bytes + 12, &v4->sin_addr, 4);
    } else if (address->sa_family == AF_INET6) {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(address);
        memcpy(out.bytes, &v6->sin6_addr, 16);
    }
    return out;
}

// Milliseconds left before end (-1: no limit), never below 0.
int LeftUntil(bool forever, uint64_t end) {
    if (forever) return -1;
    uint64_t now = TickCountMs();
    return now >= end ? 0 : static_cast<int>(end - now);
}

// Connects one socket to one address within the time-out; 0 and the socket, or an Ni result.
int ConnectOne(const addrinfo& candidate, int timeoutMs, NiOsSocket* out) {
    SocketGuard guard(NewSocket(candidate.ai_family, candidate.ai_socktype));
    if (!guard.Valid()) return Failed();
    if (connect(guard.Get(), candidate.ai_addr, static_cast<int>(candidate.ai_addrlen)) != 0) {
        if (WSAGetLastError() != WSAEWOULDBLOCK) return Failed();
        // A failed connect shows in the exception set, a made one in the write set.
        int ready = NiOsWait(static_cast<NiOsSocket>(guard.Get()), true, timeoutMs);
        if (ready == 0) return kNiTimeout;
        if (ready < 0) return ready;
        int error = 0;
        int size = sizeof error;
        if (getsockopt(guard.Get(), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) !=
            0)
            return Failed();
        if (error != 0) {
            t_lastError = error;
            return MapError(error);
        }
    }
    // Our writers hand over whole messages; a short one after another (LPD's closing zero
    // byte after the data) must not wait for the peer's delayed acknowledgement.
    BOOL on = TRUE;
    setsockopt(guard.Get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
               sizeof on);
    *out = guard.Release();
    return kNiOk;
}

// A listening socket of one family; *unavailable when the host lacks that family.
int ListenOn(int family, uint16_t* port, NiOsSocket* out, bool* unavailable) {
    *unavailable = false;
    SocketGuard guard(NewSocket(family, SOCK_STREAM));
    if (!guard.Valid()) {
        *unavailable = WSAGetLastError() == WSAEAFNOSUPPORT;
        return Failed();
    }
    // Nobody else may bind the port while the service holds it.
    BOOL on = TRUE;
    setsockopt(guard.Get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on),
               sizeof on);
    sockaddr_storage address{};
    int size = 0;
    if (family == AF_INET6) {
        DWORD off = 0;
        if (setsockopt(guard.Get(), IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<const char*>(&off),
                       sizeof off) != 0) {
            *unavailable = true;
            return Failed();
        }
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&address);
        v6->sin6_family = AF_INET6;
        v6->sin6_addr = in6addr_any;
        v6->sin6_port = htons(*port);
        size = sizeof *v6;
    } else {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&address);
        v4->sin_family = AF_INET;
        v4->sin_addr.s_addr = htonl(INADDR_ANY);
        v4->sin_port = htons(*port);
        size = sizeof *v4;
    }
    if (bind(guard.Get(), reinterpret_cast<sockaddr*>(&address), size) != 0) {
        int error = WSAGetLastError();
        *unavailable = error == WSAEADDRNOTAVAIL || error == WSAEAFNOSUPPORT;
        return Failed();
    }
    if (listen(guard.Get(), SOMAXCONN) != 0) return Failed();
    int bound = sizeof address;
    if (getsockname(guard.Get(), reinterpret_cast<sockaddr*>(&address), &bound) != 0)
        return Failed();
    *port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                     : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    *out = guard.Release();
    return kNiOk;
}

}  // namespace

int NiOsStartup() {
    static std::once_flag once;
    static int result = kNiOk;
    std::call_once(once, [] {
        WSADATA data;
        int error = WSAStartup(MAKEWORD(2, 2), &data);
        if (error != 0) {
            t_lastError = error;
            result = kNiFailed;
        }
    });
    return result;
}

int NiOsSocketCeiling() {
    return INT_MAX;
}

int NiOsLastError() {
    return t_lastError;
}

int NiOsHostName(char* name, size_t cap) {
    char full[256] = {};
    if (gethostname(full, sizeof full - 1) != 0) return Failed();
    CopyText(name, cap, full);
    return kNiOk;
}

int NiOsResolve(const char* host, NiAddress* out) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int rc = getaddrinfo(host, nullptr, &hints, &found);
    AddrInfoList list(found);
    if (rc != 0 || found == nullptr) {
        t_lastError = rc;
        return kNiHostUnknown;
    }
    const addrinfo* chosen = found;
    for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
        if (a->ai_family == AF_INET) {
            chosen = a;
            break;
        }
    }
    *out = ToAddress(chosen->ai_addr);
    return kNiOk;
}

int NiOsConnect(const char* host, const char* service, int timeoutMs, NiOsSocket* out) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    int resolved = getaddrinfo(host, service, &hints, &found);
    AddrInfoList list(found);
    if (resolved != 0 || found == nullptr) {
        t_lastError = resolved;
        return kNiHostUnknown;
    }
    bool forever = timeoutMs < 0;
    uint64_t end = TickCountMs() + static_cast<uint64_t>(forever ? 0 : timeoutMs);
    int rc = kNiRefused;
    // Every address of the name in turn ("localhost" may be ::1 and 127.0.0.1).
    for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
        rc = ConnectOne(*a, LeftUntil(forever, end), out);
        if (rc == kNiOk || LeftUntil(forever, end) == 0) break;
    }
    return rc;
}

int NiOsListen(uint16_t* port, NiOsSocket* out, bool* dualStack) {
    bool unavailable = false;
    uint16_t asked = *port;
    int rc = ListenOn(AF_INET6, port, out, &unavailable);
    *dualStack = rc == kNiOk;
    if (rc == kNiOk || !unavailable) return rc;
    *port = asked;
    return ListenOn(AF_INET, port, out, &unavailable);
}

int NiOsAccept(NiOsSocket listener, NiOsSocket* out, NiAddress* peer) {
    sockaddr_storage from{};
    int size = sizeof from;
    SocketGuard accepted(accept(Sock(listener), reinterpret_cast<sockaddr*>(&from), &size));
    if (!accepted.Valid()) {
        int rc = Failed();
        // A peer that gave up before it was taken leaves nothing to accept.
        return rc == kNiClosed ? kNiTimeout : rc;
    }
    if (!MakeNonBlocking(accepted.Get())) return Failed();
    // Replies are single acknowledgement bytes: sent at once, not held back for the peer's
    // delayed acknowledgement of the previous one.
    BOOL on = TRUE;
    setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
               sizeof on);
    *peer = ToAddress(reinterpret_cast<sockaddr*>(&from));
    *out = accepted.Release();
    return kNiOk;
}

bool NiOsIsLocal(const NiAddress& address) {
    // The unicast addresses of every adapter: binding a socket is no test here, because some
    // Winsock implementations let a socket bind to an address the host does not own.
    std::vector<unsigned char> buffer(16384);
    ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    ULONG size = static_cast<ULONG>(buffer.size());
    ULONG rc = ERROR_BUFFER_OVERFLOW;
    for (int tries = 0; tries < 3 && rc == ERROR_BUFFER_OVERFLOW; ++tries) {
        buffer.resize(size);
        rc = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr,
                                  reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
    }
    if (rc != NO_ERROR) {
        t_lastError = static_cast<int>(rc);
        return false;
    }
    for (auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()); adapter != nullptr;
         adapter = adapter->Next) {
        for (auto* unicast = adapter->FirstUnicastAddress; unicast != nullptr;
             unicast = unicast->Next) {
            NiAddress own = ToAddress(unicast->Address.lpSockaddr);
            if (memcmp(own.bytes, address.bytes, sizeof own.bytes) == 0) return true;
        }
    }
    return false;
}

int NiOsWait(NiOsSocket socket, bool forWrite, int timeoutMs) {
    fd_set ready;
    fd_set failed;
    FD_ZERO(&ready);
    FD_ZERO(&failed);
    FD_SET(Sock(socket), &ready);
    FD_SET(Sock(socket), &failed);
    timeval limit{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    int n = select(0, forWrite ? nullptr : &ready, forWrite ? &ready : nullptr,
                   forWrite ? &failed : nullptr, timeoutMs < 0 ? nullptr : &limit);
    if (n == SOCKET_ERROR) return Failed();
    return n > 0 ? 1
                 : 0;  // a failure in the exception set counts as ready: the next call reports it
}

int NiOsShutdownWakeMs() {
    return 250;
}

long NiOsRecv(NiOsSocket socket, void* buffer, size_t length, bool peek) {
    int size = length > INT_MAX ? INT_MAX : static_cast<int>(length);
    int n = recv(Sock(socket), static_cast<char*>(buffer), size, peek ? MSG_PEEK : 0);
    if (n == SOCKET_ERROR) return Failed();
    return n;
}

long NiOsSend(NiOsSocket socket, const void* data, size_t length) {
    int size = length > INT_MAX ? INT_MAX : static_cast<int>(length);
    int n = send(Sock(socket), static_cast<const char*>(data), size, 0);
    if (n == SOCKET_ERROR) return Failed();
    return n > 0 ? n : kNiTimeout;
}

void NiOsClose(NiOsSocket socket) {
    closesocket(Sock(socket));
}

void NiOsShutdown(NiOsSocket socket) {
    shutdown(Sock(socket), SD_BOTH);
}

}  // namespace vx
