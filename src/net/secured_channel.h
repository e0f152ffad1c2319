// Reads, writes and the end of a secured session: the secured path of the socket operations,
// installed by InitSecurity when a real security product is active.
#pragma once

#include "net/socket_io.h"

namespace vx {

const SecuredChannel& SncSecuredChannel();

}  // namespace vx
