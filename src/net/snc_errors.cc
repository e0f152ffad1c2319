#include "net/snc_errors.h"

#include "base/ni.h"
#include "base/sync.h"
#include "net/security_lock.h"
#include "net/snc_library.h"
#include "printserver/trace.h"

namespace vx {

namespace {

// A library that never says "last line" still ends the report.
constexpr int kMaxDetailLines = 100;

}  // namespace

void TraceSncCallFailed(const char* call, long rc) {
    TraceError("%s failed with returncode %ld\n", call, rc);
}

void ReportSncError(SncSession* session, int code) {
    const SncFunctions* snc = Snc();
    if (snc == nullptr) return;
    LockHold hold(SecurityLock());
    if (code != 0) {
        const char* name = snc->SncErrorName(code);
        if (name != nullptr)
            Trace(kTraceBanner, "Description of Errorcode %s(%d): %s\n", name, code,
                  snc->SncErrorDescription(code));
        else
            Trace(kTraceBanner, "SNC error %d (unknown)\n", code);
    }
    Trace(kTraceBanner, "Start of detailed SNC error message:\n");
    char line[SNC_ERROR_LINE_MAX] = {};
    for (int index = 0;
         index < kMaxDetailLines && snc->SncErrorLine(session, index, line, sizeof line) != 0;
         ++index)
        Trace(kTraceBanner, "  %s\n", line);
    Trace(kTraceBanner, "End of detailed SNC error message.\n");
}

int NetworkErrorOf(SncSession* session) {
    const SncFunctions* snc = Snc();
    if (snc == nullptr) return kNiFailed;
    LockHold hold(SecurityLock());
    return snc->SncNiErrorOf(session);
}

}  // namespace vx
