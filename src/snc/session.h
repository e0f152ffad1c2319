// The session record behind an SncSession handle: the transport it moves its bytes through, its
// state, the protection levels asked for, the network layer's last code and the detailed error
// lines of its last failure. The platform's TLS state hangs off it.
#pragma once

#include "base/text.h"
#include "snc/vorlixsnc.h"

namespace vx::snc {

// The transport's codes the library itself gives meaning to.
constexpr int kTransportTimeout = -5;
constexpr int kTransportClosed = -6;

constexpr int kMaxErrorLines = 16;

struct TlsSession;  // the platform's (posix/: OpenSSL)

enum class SessionState {
    kNew,      // made, hand-shake not yet run
    kSecured,  // hand-shake done: reads and writes go through the secured stream
    kFailed,   // hand-shake or stream broken: only SncSessionDone is left
};

struct ErrorLines {
    int count;
    char lines[kMaxErrorLines][SNC_ERROR_LINE_MAX];
};

void ClearErrorLines(ErrorLines* errors);
// Adds one line (cut to SNC_ERROR_LINE_MAX); lines past kMaxErrorLines are dropped.
void AddErrorLine(ErrorLines* errors, const char* format, ...) VX_PRINTF(2, 3);
// The first line, or "no detail" when there is none.
const char* FirstErrorLine(const ErrorLines& errors);
// Traces "<what>: <first line>", then the other lines indented.
void TraceErrorLines(const char* what, const ErrorLines& errors);

}  // namespace vx::snc

struct SncSession {
    SncTransport transport;
    vx::snc::SessionState state;
    int niError;  // the transport's code of the last SNC_ERR_NI
    // What the service asks for; TLS protects every record (privacy) whatever they say.
    int qopMinimum;
    int qopMaximum;
    int qopUse;
    vx::snc::ErrorLines errors;
    vx::snc::TlsSession* tls;
};
