// ConnInfo: one accepted connection in the connection list, keyed by its connection handle.
#pragma once

#include <cstdint>

#include "base/sync.h"
#include "net/socket_io.h"

namespace vx {

struct ConnInfo {
    NetSocket Connection;     // as accepted; its network handle (first member) is the list key
    int32_t ConnectionArg;    // nonzero when the peer is on this host
    EventHandle hEventInit;   // set once the connection thread has copied the record
    EventHandle hEventQueue;  // set when the connection has ended
};

}  // namespace vx
