// The network listener: sets up the network layer with the service's time-outs, refuses to start
// when another process already serves the print port, opens the listening handle and accepts
// connections one at a time for the connection side.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "base/ni.h"
#include "net/socket_io.h"
#include "printserver/settings_table.h"

namespace vx {

class Czelprsrv;

// Settings give time-outs in hundredths of a second; 0 and negative values keep their meaning.
// A value whose milliseconds do not fit the 32-bit time-out waits the longest time that does.
constexpr int32_t HundredthsToMs(int32_t value) {
    constexpr int32_t kLongest = std::numeric_limits<int32_t>::max();
    if (value <= 0) return value;
    return value > kLongest / 10 ? kLongest : value * 10;
}

// How long a read waits for a sender that sends nothing when "NiReadTimeout" sets no limit: the
// connection is then given up, so that silent senders cannot hold the handles for ever.
constexpr int32_t kDefaultIdleLimitMs = 300000;

// Settings read once when the network is set up; until then their built-in defaults. Time-outs
// are stored in milliseconds.
struct ListenerParams {
    // peek time-out of each patient read pass
    std::atomic<int32_t> NiReadTimeout{HundredthsToMs(BuiltInDefault("NiReadTimeout"))};
    // peek time-outs a read tolerates; -1 no limit
    std::atomic<int32_t> NiReadLoopBreak{BuiltInDefault("NiReadLoopBreak")};
    // time-out of each plain write
    std::atomic<int32_t> NiWriteTimeout{HundredthsToMs(BuiltInDefault("NiWriteTimeout"))};
    std::atomic<int32_t> NiAcceptTimeout{BuiltInDefault("NiAcceptTimeout")};
    // length of a read's spin phase; < 0 none
    std::atomic<int32_t> NiSpinReadTime{HundredthsToMs(BuiltInDefault("NiSpinReadTime"))};
    std::atomic<int32_t> LPDPort{BuiltInDefault("LPDPort")};
    std::atomic<int32_t> send_with_null{BuiltInDefault("send_with_null")};  // 0 or 1
    // the time a read waits in silence when NiReadTimeout is not set (not a setting)
    std::atomic<int32_t> IdleLimitMs{kDefaultIdleLimitMs};
};

extern ListenerParams g_ListenerParams;

// The listening handle of the service (kNiNoHandle while there is none).
extern NiHandle g_ListenHandle;

constexpr size_t kNetworkNameSize = 100;

// Opens the network trace, starts the network layer for kNiMaxHandles handles and reads the
// parameters. 1 when the network layer started, else 0. name receives the name of the network
// layer in use, or stays empty.
int InitNetwork(char* name, size_t size);

// Reads the listener parameters from the settings store.
void ReadListenerParams(Czelprsrv& settings);

// Checks the port and opens the listening handle: 0, or -1 with *listenHandle kNiNoHandle.
int StartListening(NiHandle* listenHandle);

// One accept with "NiAcceptTimeout": 0 and the connection's socket, -1 on a time-out, an error
// or without a listening handle. *isLocal tells whether the peer is on this host.
int AcceptNetworkConnection(NetSocket* connection, NiHandle listenHandle, int* isLocal);

}  // namespace vx
