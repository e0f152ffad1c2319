// A listener on a loopback port of the system's choice and one connection through it, for the
// network tests. Every handle still open is closed at the end.
#pragma once

#include <cstdint>
#include <string>

#include "base/ni.h"
#include "net/listener.h"

namespace vxtest {

// The listener parameters at their defaults: reads and writes wait as long as it takes, the spin
// phase lasts a second, replies end with their NUL.
inline void UseDefaultListenerParams() {
    vx::ListenerParams& p = vx::g_ListenerParams;
    p.NiReadTimeout = -1;
    p.NiReadLoopBreak = -1;
    p.NiWriteTimeout = -1;
    p.NiAcceptTimeout = 5000;
    p.NiSpinReadTime = 1000;
    p.LPDPort = 515;
    p.send_with_null = 1;
    p.IdleLimitMs = vx::kDefaultIdleLimitMs;
}

struct LoopbackPair {
    vx::NiHandle listener = vx::kNiNoHandle;
    vx::NiHandle client = vx::kNiNoHandle;  // the sender's end
    vx::NiHandle server = vx::kNiNoHandle;  // the accepted end
    uint16_t port = 0;
    vx::NiAddress peer{};

    LoopbackPair() = default;
    LoopbackPair(const LoopbackPair&) = delete;
    LoopbackPair& operator=(const LoopbackPair&) = delete;
    ~LoopbackPair() {
        Close(server);
        Close(client);
        Close(listener);
    }

    // Listens, connects from host and accepts; 0 or the first failing result.
    int Open(const char* host = "127.0.0.1") {
        int rc = Listen();
        if (rc != vx::kNiOk) return rc;
        return Connect(host);
    }

    int Listen() {
        port = 0;
        return vx::NiServerHandle(&port, &listener);
    }

    int Connect(const char* host) {
        int rc = vx::NiConnect(host, std::to_string(port).c_str(), 5000, &client);
        if (rc != vx::kNiOk) return rc;
        peer = vx::NiMappedZeroAddress();
        return vx::NiAccept(listener, 5000, &server, &peer);
    }

    static void Close(vx::NiHandle& handle) {
        if (handle != vx::kNiNoHandle) vx::NiCloseHandle(handle);
        handle = vx::kNiNoHandle;
    }

    // Sends all of text from the client end.
    bool Send(const std::string& text) {
        int32_t count = 0;
        return vx::NiRawWrite(client, text.data(), static_cast<int32_t>(text.size()), 5000,
                              &count) == vx::kNiOk &&
               count == static_cast<int32_t>(text.size());
    }

    // What reaches the client end until the server side goes quiet for quietMs (or closes).
    std::string ReceiveAll(int quietMs = 200) {
        std::string got;
        char buffer[65536];
        for (;;) {
            int32_t count = 0;
            int rc = vx::NiRawRead(client, buffer, sizeof buffer, quietMs, &count);
            got.append(buffer, static_cast<size_t>(count));
            if (rc != vx::kNiOk || count == 0) return got;
        }
    }
};

}  // namespace vxtest
