// BSD sockets under the network interface layer. Sockets are made non-blocking and
// close-on-exec; sends use MSG_NOSIGNAL, so that a peer that went away never raises SIGPIPE.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "base/clock.h"
#include "base/ni_os.h"
#include "base/text.h"

namespace vx {

namespace {

thread_local int t_lastError = 0;

int Fd(NiOsSocket socket) {
    return static_cast<int>(socket);
}

int MapError(int error) {
    switch (error) {
        case EAGAIN:
#if EWOULDBLOCK != EAGAIN
        case EWOULDBLOCK:
#endif
        case EINPROGRESS:
            return kNiTimeout;
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
        case ENOTCONN:
            return kNiClosed;
        case ECONNREFUSED:
            return kNiRefused;
        case EADDRINUSE:
            return kNiPortInUse;
        case EBADF:
        case ENOTSOCK:
            return kNiInvalidHandle;
        case EMFILE:
        case ENFILE:
            return kNiNoFreeHandle;
        default:
            return kNiFailed;
    }
}

// Records errno for the trace and gives its Ni result.
int Failed() {
    t_lastError = errno;
    return MapError(t_lastError);
}

// Closes a socket at the end of a scope unless it was handed on.
class SocketGuard {
  public:
    explicit SocketGuard(int fd) : fd_(fd) {}
    ~SocketGuard() {
        if (fd_ >= 0) close(fd_);
    }
    SocketGuard(const SocketGuard&) = delete;
    SocketGuard& operator=(const SocketGuard&) = delete;
    int Get() const { return fd_; }
    NiOsSocket Release() {
        int fd = fd_;
        fd_ = -1;
        return static_cast<NiOsSocket>(fd);
    }

  private:
    int fd_;
};

struct AddrInfoFree {
    void operator()(addrinfo* list) const {
        if (list != nullptr) freeaddrinfo(list);
    }
};
using AddrInfoList = std::unique_ptr<addrinfo, AddrInfoFree>;

struct InterfacesFree {
    void operator()(ifaddrs* list) const {
        if (list != nullptr) freeifaddrs(list);
    }
};
using InterfaceList = std::unique_ptr<ifaddrs, InterfacesFree>;

int NewSocket(int family, int type) {
    return socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
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
    if (guard.Get() < 0) return Failed();
    if (connect(guard.Get(), candidate.ai_addr, candidate.ai_addrlen) != 0) {
        if (errno != EINPROGRESS) return Failed();
        int ready = NiOsWait(static_cast<NiOsSocket>(guard.Get()), true, timeoutMs);
        if (ready == 0) return kNiTimeout;
        if (ready < 0) return ready;
        int error = 0;
        socklen_t size = sizeof error;
        if (getsockopt(guard.Get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return Failed();
        if (error != 0) {
            t_lastError = error;
            return MapError(error);
        }
    }
    // Our writers hand over whole messages; a short one after another (LPD's closing zero
    // byte after the data) must not wait for the peer's delayed acknowledgement.
    int on = 1;
    setsockopt(guard.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    *out = guard.Release();
    return kNiOk;
}

// A listening socket of one family; *unavailable when the host lacks that family.
int ListenOn(int family, uint16_t* port, NiOsSocket* out, bool* unavailable) {
    *unavailable = false;
    SocketGuard guard(NewSocket(family, SOCK_STREAM));
    if (guard.Get() < 0) {
        *unavailable = errno == EAFNOSUPPORT;
        return Failed();
    }
    int on = 1;
    int off = 0;
    // Restarting must not wait for old connections in TIME_WAIT; a second listener on the same
    // port is refused all the same.
    setsockopt(guard.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_storage address{};
    socklen_t size = 0;
    if (family == AF_INET6) {
        if (setsockopt(guard.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) != 0) {
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
        *unavailable = errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT;
        return Failed();
    }
    if (listen(guard.Get(), SOMAXCONN) != 0) return Failed();
    socklen_t bound = sizeof address;
    if (getsockname(guard.Get(), reinterpret_cast<sockaddr*>(&address), &bound) != 0)
        return Failed();
    *port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                     : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    *out = guard.Release();
    return kNiOk;
}

}  // namespace

int NiOsStartup() {
    // Every connection costs a descriptor, and the usual soft limit (1024) is below the handle
    // table: raise it to the hard limit, capped where the hard limit is unlimited.
    constexpr rlim_t kEnoughFiles = 1 << 20;
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        rlim_t wanted = files.rlim_max == RLIM_INFINITY ? kEnoughFiles : files.rlim_max;
        if (files.rlim_cur != RLIM_INFINITY && files.rlim_cur < wanted) {
            files.rlim_cur = wanted;
            setrlimit(RLIMIT_NOFILE, &files);
        }
    }
    return kNiOk;
}

int NiOsSocketCeiling() {
    // Descriptors kept for what the connections' jobs open: data files, journals, the print
    // system's connections, the trace logs.
    constexpr rlim_t kReservedFiles = 128;
    constexpr rlim_t kFewest = 16;
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) return INT_MAX;
    if (files.rlim_cur < kReservedFiles + kFewest) return static_cast<int>(kFewest);
    rlim_t ceiling = files.rlim_cur - kReservedFiles;
    return ceiling > INT_MAX ? INT_MAX : static_cast<int>(ceiling);
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
    socklen_t size = sizeof from;
    int fd;
    do {
        fd = accept4(Fd(listener), reinterpret_cast<sockaddr*>(&from), &size,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        int rc = Failed();
        // A peer that gave up before it was taken leaves nothing to accept.
        return rc == kNiClosed ? kNiTimeout : rc;
    }
    // Replies are single acknowledgement bytes: sent at once, not held back for the peer's
    // delayed acknowledgement of the previous one.
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    *peer = ToAddress(reinterpret_cast<sockaddr*>(&from));
    *out = static_cast<NiOsSocket>(fd);
    return kNiOk;
}

bool NiOsIsLocal(const NiAddress& address) {
    // The addresses of the host's interfaces. Binding a socket to the address is no test: with
    // ip_nonlocal_bind the system lets a socket bind to an address the host does not own.
    ifaddrs* found = nullptr;
    if (getifaddrs(&found) != 0) {
        t_lastError = errno;
        return false;
    }
    InterfaceList list(found);
    for (const ifaddrs* entry = found; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) continue;
        int family = entry->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) continue;
        // IPv4 addresses in the mapped form, as peers of a dual-stack listener arrive.
        NiAddress own = ToAddress(entry->ifa_addr);
        if (memcmp(own.bytes, address.bytes, sizeof own.bytes) == 0) return true;
    }
    return false;
}

int NiOsWait(NiOsSocket socket, bool forWrite, int timeoutMs) {
    bool forever = timeoutMs < 0;
    uint64_t end = TickCountMs() + static_cast<uint64_t>(forever ? 0 : timeoutMs);
    pollfd entry{Fd(socket), static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
    for (;;) {
        int n = poll(&entry, 1, LeftUntil(forever, end));
        if (n > 0) return 1;  // errors and hang-ups count as ready: the next call reports them
        if (n == 0) return 0;
        if (errno != EINTR) return Failed();
    }
}

int NiOsShutdownWakeMs() {
    return -1;  // poll reports a socket shut down by another thread at once
}

long NiOsRecv(NiOsSocket socket, void* buffer, size_t length, bool peek) {
    for (;;) {
        ssize_t n = recv(Fd(socket), buffer, length, peek ? MSG_PEEK : 0);
        if (n >= 0) return static_cast<long>(n);
        if (errno != EINTR) return Failed();
    }
}

long NiOsSend(NiOsSocket socket, const void* data, size_t length) {
    for (;;) {
        ssize_t n = send(Fd(socket), data, length, MSG_NOSIGNAL);
        if (n > 0) return static_cast<long>(n);
        if (n == 0) return kNiTimeout;
        if (errno != EINTR) return Failed();
    }
}

void NiOsClose(NiOsSocket socket) {
    close(Fd(socket));
}

void NiOsShutdown(NiOsSocket socket) {
    shutdown(Fd(socket), SHUT_RDWR);
}

}  // namespace vx
