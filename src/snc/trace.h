// The library's own trace lines (certificates loaded, hand-shakes refused and why): they go to
// the writer the service hands over with SncSetTrace, and nowhere when there is none.
#pragma once

#include "base/text.h"
#include "snc/vorlixsnc.h"

namespace vx::snc {

void SetTraceWriter(SncTraceWriter writer, void* context);
// One line, prefixed with "vorlixsnc: " and cut to the trace's line size; no line end needed.
void TraceLine(const char* format, ...) VX_PRINTF(1, 2);

}  // namespace vx::snc
