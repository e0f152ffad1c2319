// The network listener: sets up the network layer with the service's time-outs, refuses to start
// when another process already serves the print port, opens the listening handle and accepts
// connections one at a time for the connection side.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/ni.h"
#include "net/socket_io.h"

namespace vx {

class Czelprsrv;

// Settings read once when the network is set up. Time-outs are stored in milliseconds: the
// settings give hundredths of a second, so a positive value is multiplied by 10.
struct ListenerParams {
    std::atomic<int32_t> NiReadTimeout{-1};    // peek time-out of each patient read pass
    std::atomic<int32_t> NiReadLoopBreak{-1};  // peek time-outs a read tolerates; -1 no limit
    std::atomic<int32_t> NiWriteTimeout{-1};   // time-out of each plain write
    std::atomic<int32_t> NiAcceptTimeout{5000};
    std::atomic<int32_t> NiSpinReadTime{1000};  // length of a read's spin phase; < 0 none
    std::atomic<int32_t> LPDPort{515};
    std::atomic<int32_t> send_with_null{1};  // 0 or 1
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
