// The ZelHost the service lends the print library: settings and trace of the print-server object.
#pragma once

#include "printlib/zelwin.h"

namespace vx {

class Czelprsrv;

// Fills a host whose calls go to the given object.
void FillZelHost(ZelHost* host, Czelprsrv* server);

// The object's own host (valid while the object lives); null for no object.
const ZelHost* HostOf(Czelprsrv* server);

}  // namespace vx
