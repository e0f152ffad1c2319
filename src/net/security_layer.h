// The security layer: decides at start whether secured connections are possible or required,
// prepares every accepted connection, makes the secured session a sender asks for and checks the
// sender against the authorized senders.
#pragma once

#include <cstdint>

#include "net/socket_io.h"

namespace vx {

// Run once by the main thread right after listening started: loads the security library, sets
// the security state and, with a real product, the authorized senders and the secured channel.
void InitSecurity();

// Run for every accepted connection before any protocol traffic: false when the connection is to
// be closed (security required but not available, or no session could be made for it).
bool PrepareConnectionSecurity(NetSocket& connection);

// The secured session a sender asks for (mode 'A', 'S' or 'X'). True when it stands; *authorized
// is then 0 for a sender not in the list of authorized senders (its jobs are refused), else 1.
// False when it failed: the connection then has no session.
bool AcceptSecuredSession(NetSocket& connection, const void* data, int32_t length, char mode,
                          int* authorized);

// Shuts the library down at the end of the service.
void ExitSecurity();

}  // namespace vx
