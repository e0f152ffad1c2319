// Placeholder until the spooler layer lands: no printer can be opened.
#include "base/spooler.h"

namespace vx {

bool SpoolerCanOpenPrinter(const char*) { return false; }

}  // namespace vx
