#include "service/service_path.h"

#include "base/service_host.h"
#include "base/sync.h"
#include "printserver/zelprsrv.h"
#include "service/init_vorlix.h"
#include "service/main_thread.h"

namespace vx {

namespace {

// The service's own thread (on Linux the process's main thread, in the foreground). After an
// orderly stop MainThread has already signalled the stop event through StopService.
void ServiceMain() {
    MainThread();
}

}  // namespace

void RunServicePath() {
    Trace(kTraceNormal, "Vorlix started from SCM.\n");
    g_StopEvent = EvCreate("");
    if (RunServiceDispatcher(kServiceName, ServiceMain) != 0) {
        // Not started by the service manager (a console start): nothing would ever set the
        // stop event, so end here instead of waiting for ever.
        if (g_prsrv != nullptr) g_prsrv->ReportLastError("StartServiceCtrlDispatcher", 1);
    } else {
        EvWait(g_StopEvent, kWaitInfinite);
    }
    EvClose(g_StopEvent);
    g_StopEvent = nullptr;
}

}  // namespace vx
