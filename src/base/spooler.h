// The host's print system: the Windows spooler (winspool) or CUPS on Linux, where CUPS
// destinations are the printers, the CUPS default is the default printer and the device URI is
// the port.
#pragma once

#include <cstddef>

namespace vx {

// True when the printer can be opened for use (opened and closed again at once).
bool SpoolerCanOpenPrinter(const char* printer);

}  // namespace vx
