// ConnInfo: one accepted connection in the connection list, keyed by its connection handle.
#pragma once

#include <cstdint>

#include "base/sync.h"

namespace vx {

// What the listener delivers for an accepted connection; the handle comes first.
struct AcceptedConnection {
    int32_t Handle;
};

struct ConnInfo {
    AcceptedConnection Connection;
    int32_t ConnectionArg;
    EventHandle hEventInit;   // set once the connection thread has copied the record
    EventHandle hEventQueue;  // set when the connection has ended
};

}  // namespace vx
