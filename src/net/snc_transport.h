// How a secured session reaches its peer: through the connection's network handle, with the
// network layer's own time-outs and trace.
#pragma once

#include "base/ni.h"
#include "snc/vorlixsnc.h"

namespace vx {

// The transport of a session over handle. The security library keeps its own copy.
SncTransport NiTransport(NiHandle handle);

}  // namespace vx
