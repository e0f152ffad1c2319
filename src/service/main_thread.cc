// The main loop and the restart policy. A restart is never done in-process: the process ends with
// exit code 1 after an orderly clean-up (the queues are saved), and the service manager's recovery
// action starts it again, which restores the queues.
#include "service/main_thread.h"

#include <cstdlib>

#include "base/stop_signal.h"
#include "config/option_globals.h"
#include "config/process_state.h"
#include "jobs/restart_files.h"
#include "jobs/spare_files.h"
#include "net/listener.h"
#include "net/security_layer.h"
#include "printserver/process_locks.h"
#include "printserver/trace.h"
#include "service/connections.h"
#include "service/init_vorlix.h"

namespace vx {

std::atomic<bool> g_NetworkStarted{false};

namespace {

constexpr int kRestartExitCode = 1;

// A stop request of the system (service stop, SIGTERM, Ctrl+C) is the orderly stop.
void OnStopRequest() {
    RequestStop(kStopFromScm);
}

[[noreturn]] void RestartProcess(const char* message) {
    StopService(message);
    std::exit(kRestartExitCode);
}

}  // namespace

int StartNetwork() {
    char name[kNetworkNameSize] = {};
    if (InitNetwork(name, sizeof name) == 0) return -1;
    g_ListenHandle = kNiNoHandle;
    int rc = StartListening(&g_ListenHandle);
    if (rc != 0) return rc;
    {
        LockHold fileHold(ProcessFileLock());
        Trace(kTraceBanner, "Network communication via %s\n", name[0] != '\0' ? name : "ZEL-NiLib");
    }
    InitSecurity();
    g_NetworkStarted = true;
    Trace(kTraceBanner, "\n");
    return 0;
}

int MainThread() {
    Trace(kTraceNormal, "Start main thread\n");
    if (InstallStopRequestHook(OnStopRequest) != 0)
        TraceError("The stop request handler could not be installed.\n");
    TakeOverSpareFiles();
    if (g_Options.NoJobRestore == 0) RestoreQueues();

    if (StartNetwork() != 0) {
        TraceError("TCP/IP communication could not be started - aborting.\n");
        return 1;
    }
    // The accept itself waits at most NiAcceptTimeout, so a stop request is seen in time.
    while (g_StopReason == kStopNone) AcceptConnection();
    Trace(kTraceNormal, "Finish main loop.\n");

    switch (g_StopReason) {
        case kStopDeviceContext:
            RestartProcess("Restart because of CreateDC problem.\n");
        case kStopProtocol:
            RestartProcess("Restart because of communication errors.\n");
        case kStopScheduled:
            Trace(kTraceBanner, "Scheduled restart after %d processed jobs.\n",
                  static_cast<int>(g_ProcessedJobs));
            RestartProcess(nullptr);
        case kStopConnectionThread:
            RestartProcess("Restart because of too many active handles.\n");
        case kStopFromScm:
        default:
            StopService("Stop service from SCM.\n");
            return 0;
    }
}

}  // namespace vx
