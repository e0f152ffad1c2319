// The security library's account of a failure, written to the trace log.
#pragma once

#include "snc/vorlixsnc.h"

namespace vx {

// "<call> failed with returncode <rc>" as an error line.
void TraceSncCallFailed(const char* call, long rc);

// The error's name and description (for a code other than 0) and the session's detailed error
// lines, at level 0. session may be null.
void ReportSncError(SncSession* session, int code);

// The network layer's code behind a failure the library reports as SNC_ERR_NI.
int NetworkErrorOf(SncSession* session);

}  // namespace vx
