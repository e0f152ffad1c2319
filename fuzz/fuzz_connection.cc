#include "fuzz_connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "base/ni_handles.h"

namespace vxfuzz {

namespace {

// Room for a whole fuzz input in the connection (the system may grant less).
constexpr int kBufferBytes = 1 << 20;

}  // namespace

FuzzConnection::FuzzConnection() {
    int fds[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) abort();
    for (int fd : fds) {
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof kBufferBytes);
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
    }
    far_ = fds[1];
    socket_.niHandle = vx::NiTableAdd(static_cast<vx::NiOsSocket>(fds[0]), false);
    if (socket_.niHandle == vx::kNiNoFreeHandle) abort();  // a handle leaked by the code under test
}

FuzzConnection::~FuzzConnection() {
    if (socket_.niHandle != vx::kNiNoHandle) vx::NiCloseHandle(socket_.niHandle);
    close(far_);
}

void FuzzConnection::Send(const uint8_t* data, size_t size) {
    while (size > 0) {
        ssize_t sent = send(far_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent <= 0) return;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
}

void FuzzConnection::EndSending() {
    shutdown(far_, SHUT_WR);
}

bool FuzzConnection::AwaitAnswer(int timeoutMs) {
    if (closed_) return false;
    pollfd entry{far_, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) > 0) Drain();
    return !closed_;
}

void FuzzConnection::Drain() {
    char buffer[4096];
    while (!closed_) {
        ssize_t got = recv(far_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got == 0) closed_ = true;
        if (got <= 0) return;
    }
}

void FuzzConnection::DrainUntilClosed() {
    char buffer[4096];
    while (!closed_) {
        ssize_t got = recv(far_, buffer, sizeof buffer, 0);
        if (got <= 0) closed_ = true;
    }
}

}  // namespace vxfuzz
