// The service as the fuzz targets run it: settings, base and temporary directory in one
// directory of this process (made once, removed at exit), a print-server object over them, the
// network layer, the job lists, and in place of the print system a fake that knows the printer
// "lp" and a print library that prints nothing. No job ever reaches a real printer.
#pragma once

#include <string>

namespace vxfuzz {

constexpr const char* kFuzzPrinter = "lp";

// Sets the service up on the first call; later calls return the same directory. The fuzz targets
// are single-threaded, the printer's worker is the only other thread.
const std::string& StartService();

}  // namespace vxfuzz
