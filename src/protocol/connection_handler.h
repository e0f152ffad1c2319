// One connection: the first read decides between LPD and the extended protocol; an LPD command
// is dispatched, a received job handed to job processing, and the socket closed.
#pragma once

#include <cstdint>

#include "net/socket_io.h"

namespace vx {

// Serves one connection; on return the socket is closed and *state is -1.
void ConnectionHandler(NetSocket* socket, int peerIsLocal, int32_t* state);

// Dispatches an LPD command from the first buffer. The jobs of a receive-job command go to job
// processing as the dialogue completes them.
void LpdDispatch(const char* buffer, int32_t length, NetSocket* socket, int peerIsLocal);

}  // namespace vx
