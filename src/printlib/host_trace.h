// Trace lines of the print library, written through the host's trace.
#pragma once

#include "base/text.h"
#include "printlib/zelwin.h"

namespace zel {

// The level of error lines; their text begins "Error: ".
constexpr int kErrorLevel = -1;

// One trace line at a level (the format ends with "\n"). Nothing happens without a host.
void TraceLine(const ZelHost* host, int level, const char* format, ...) VX_PRINTF(3, 4);

// An error line: "Error: " and the formatted text, at level -1.
void TraceError(const ZelHost* host, const char* format, ...) VX_PRINTF(2, 3);

}  // namespace zel
