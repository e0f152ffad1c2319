// Feeds a sender's side of a secured session to the connection handler of a service that only
// serves secured sessions ("snc_mode" 2), with the real security library loaded as the service
// loads it and a profile made at start-up (test_pki.h). The sender opens with "SC" and
// asks for the session with "KS"; the first input byte then says what follows:
//   even:        the rest is the sender's side of the hand-shake, raw on the wire, in segments
//                separated by "~~~~" (each sent after the service answered the previous one);
//   odd:         a real TLS client runs the hand-shake, as the authorized sender (bit 1 clear)
//                or as a sender of the same CA that is not authorized (bit 1 set), and the rest
//                is extended-protocol packets inside the session, one per segment; with bit 2
//                set the rest goes raw on the wire after the hand-shake instead (records the
//                service cannot open).
// Every wait of the sender's has a time-out; the service reads until the sender has ended.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "base/ni_handles.h"
#include "base/registry.h"
#include "fuzz_connection.h"
#include "fuzz_service.h"
#include "net/security_layer.h"
#include "net/security_state.h"
#include "net/socket_io.h"
#include "protocol/connection_handler.h"
#include "snc/tls_client.h"
#include "vorlixsnc/test_pki.h"

namespace {

// The harness's settings key (fuzz_service.cc).
constexpr const char* kSettingsKey = "Software\\Zel\\VorlixFuzz";
constexpr char kSegmentSeparator[] = "~~~~";
constexpr size_t kSeparatorLength = sizeof kSegmentSeparator - 1;
// How long the sender waits for an answer before it sends on regardless.
constexpr int kAnswerWaitMs = 50;
// Longest wait for the service's part: a hand-shake or the end of the connection. Far beyond
// what a working service needs; reaching it is a hang.
constexpr int kServiceWaitMs = 10000;
constexpr int kBufferBytes = 1 << 20;

void Seed(const char* name, const char* text) {
    vx::RegKey key;
    if (vx::RegCreate(vx::kHiveCurrentUser, kSettingsKey, key.Receive()) != vx::kRegOk ||
        vx::RegSetText(key.Get(), name, text, static_cast<uint32_t>(strlen(text))) != vx::kRegOk)
        abort();
}

// The service set up once: security required, one authorized sender (the PKI's "app1"; its
// "app2" is of the same CA but not in the list), the certificates and a ZELLPD.INI naming them in
// the base directory, and the library initialised with it.
const vxtest::TestPki& StartSecuredService() {
    static const vxtest::TestPki pki = [] {
        const std::string& root = vxfuzz::StartService();
        Seed("snc_mode", "2");
        Seed("NumAuth", "1");
        Seed("Auth1", "CN=app1,O=Example");
        vxtest::TestPki made;
        if (!vxtest::MakeTestPki(&made, root + "/home") ||
            !vxtest::WriteTestFile(made, "ZELLPD.INI",
                                   "[vorlixsnc]\r\ncertificate=server.pem\r\n"
                                   "key=server.key\r\nca=ca.pem\r\n"))
            abort();
        vx::InitSecurity();
        if (vx::g_SecurityState != vx::kSecurityRequired || vx::g_SecurityAvailable != 1) abort();
        return made;
    }();
    return pki;
}

const uint8_t* FindSeparator(const uint8_t* from, const uint8_t* end) {
    for (const uint8_t* p = from; p + kSeparatorLength <= end; ++p)
        if (memcmp(p, kSegmentSeparator, kSeparatorLength) == 0) return p;
    return end;
}

// The libFuzzer's time-out alarm interrupts the waits and calls of whichever thread it lands on:
// an interrupted one goes on, for what is left of its time.
bool WaitFor(int fd, short events, int timeoutMs) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd entry{fd, events, 0};
        int rc = poll(&entry, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (rc > 0) return true;
        if (rc == 0 || errno != EINTR) return false;
    }
}

ssize_t Receive(int fd, void* buffer, size_t length, int flags) {
    ssize_t got;
    do got = recv(fd, buffer, length, flags);
    while (got < 0 && errno == EINTR);
    return got;
}

// Sends all of data, each part once the connection has room (a full connection cuts it).
bool SendAll(int fd, const void* data, size_t size) {
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        if (!WaitFor(fd, POLLOUT, kServiceWaitMs)) return false;
        ssize_t sent;
        do sent = send(fd, from, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        while (sent < 0 && errno == EINTR);
        if (sent <= 0) return false;
        from += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

// Nothing more will come from the service: it has closed its end, or the connection failed.
bool Ended(ssize_t got) {
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

// The sender's end of a connection whose near end the connection handler serves on a thread.
class SecuredSender {
  public:
    SecuredSender() {
        int fds[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) abort();
        for (int fd : fds) {
            setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof kBufferBytes);
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
        }
        far_ = fds[1];
        socket_.niHandle = vx::NiTableAdd(static_cast<vx::NiOsSocket>(fds[0]), false);
        if (socket_.niHandle == vx::kNiNoFreeHandle) abort();
        handler_ = std::thread([this] { vx::ConnectionHandler(&socket_, 1, &state_); });
    }
    // Ends sending, waits for the handler to close its end and traps when it does not.
    ~SecuredSender() {
        shutdown(far_, SHUT_WR);
        char buffer[4096];
        while (!closed_) {
            if (!WaitFor(far_, POLLIN, kServiceWaitMs)) __builtin_trap();  // the service hangs
            if (Ended(Receive(far_, buffer, sizeof buffer, MSG_DONTWAIT))) closed_ = true;
        }
        handler_.join();
        if (state_ != -1) __builtin_trap();  // the handler always ends with its socket closed
        close(far_);
    }
    SecuredSender(const SecuredSender&) = delete;
    SecuredSender& operator=(const SecuredSender&) = delete;

    int Far() const { return far_; }

    bool Send(const void* data, size_t size) { return SendAll(far_, data, size); }

    // Waits up to timeoutMs for the service's answer and reads what came (undecrypted: the
    // sender never reads inside the session).
    void DropAnswer(int timeoutMs) {
        if (closed_ || !WaitFor(far_, POLLIN, timeoutMs)) return;
        char buffer[4096];
        ssize_t got;
        while ((got = Receive(far_, buffer, sizeof buffer, MSG_DONTWAIT)) > 0) {
        }
        if (Ended(got)) closed_ = true;
    }

    // Sends a packet and reads the service's one-line answer, up to its line feed.
    bool Ask(const char* packet, const char* expected) {
        if (!Send(packet, strlen(packet))) return false;
        char line[256] = {};
        size_t length = 0;
        while (length + 1 < sizeof line) {
            if (!WaitFor(far_, POLLIN, kServiceWaitMs)) return false;
            if (Receive(far_, line + length, 1, 0) != 1) return false;
            if (line[length++] == '\n') break;
        }
        return strncmp(line, expected, strlen(expected)) == 0;
    }

  private:
    int far_ = -1;
    vx::NetSocket socket_;
    int32_t state_ = 0;
    bool closed_ = false;
    std::thread handler_;
};

int ReceiveForTls(void* context, void* buffer, size_t length, size_t* count) {
    int fd = *static_cast<int*>(context);
    if (!WaitFor(fd, POLLIN, kServiceWaitMs)) return -1;
    ssize_t got = Receive(fd, buffer, length, 0);
    if (got <= 0) return -1;
    *count = static_cast<size_t>(got);
    return 0;
}

int SendForTls(void* context, const void* data, size_t length) {
    return SendAll(*static_cast<int*>(context), data, length) ? 0 : -1;
}

// The raw hand-shake: "SC" and "KS" as the first segments of a plain dialogue.
void PlayRawHandshake(const uint8_t* data, size_t size) {
    static const uint8_t kOpening[] = {'S', 'C', '~', '~', '~', '~', 'K', 'S', '~', '~', '~', '~'};
    std::vector<uint8_t> dialogue(kOpening, kOpening + sizeof kOpening);
    dialogue.insert(dialogue.end(), data, data + size);
    vxfuzz::PlayDialogue(dialogue.data(), dialogue.size());
}

void PlayAfterHandshake(uint8_t choice, const uint8_t* data, size_t size) {
    const vxtest::TestPki& pki = StartSecuredService();
    const vxtest::PemPair& files = (choice & 2) ? pki.outsider : pki.sender;
    bool raw = (choice & 4) != 0;

    SecuredSender sender;
    if (!sender.Ask("SC", "OK ZELLPD") || !sender.Ask("KS", "OK")) __builtin_trap();
    int far = sender.Far();
    vx::TlsClientIo io{&far, ReceiveForTls, SendForTls};
    vx::TlsClientCredentials credentials{files.certificate.c_str(), files.key.c_str(),
                                         pki.ca.c_str()};
    vx::TlsClient* opened = nullptr;
    char error[256] = {};
    if (vx::TlsClientOpen(credentials, io, &opened, error, sizeof error) != 0) {
        fprintf(stderr, "secured_accept_fuzz: hand-shake refused: %s\n", error);
        __builtin_trap();  // a sender of the service's own CA is always let in
    }
    vx::TlsClientPtr client(opened);

    const uint8_t* end = data + size;
    for (const uint8_t* segment = data; segment < end;) {
        const uint8_t* segmentEnd = FindSeparator(segment, end);
        size_t length = static_cast<size_t>(segmentEnd - segment);
        if (length > 0) {
            bool sent =
                raw ? sender.Send(segment, length)
                    : vx::TlsClientWrite(client.get(), segment, length, error, sizeof error) == 0;
            if (!sent) break;  // the service has ended the session
        }
        sender.DropAnswer(kAnswerWaitMs);
        segment = segmentEnd + (segmentEnd < end ? kSeparatorLength : 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartSecuredService();
    if (size == 0) return 0;
    if ((data[0] & 1) == 0)
        PlayRawHandshake(data + 1, size - 1);
    else
        PlayAfterHandshake(data[0], data + 1, size - 1);
    return 0;
}
