#include "base/stop_signal.h"

#include <csignal>

namespace vx {

namespace {

volatile sig_atomic_t g_installed = 0;
StopRequestHook g_hook = nullptr;

extern "C" void OnStopSignal(int) {
    StopRequestHook hook = g_hook;
    if (hook != nullptr) hook();
}

}  // namespace

int InstallStopRequestHook(StopRequestHook hook) {
    g_hook = hook;
    if (g_installed != 0) return 0;
    struct sigaction action = {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    // Interrupted reads and writes go on; the waits of the network layer retry on EINTR.
    action.sa_flags = SA_RESTART;
    if (sigaction(SIGTERM, &action, nullptr) != 0 || sigaction(SIGINT, &action, nullptr) != 0)
        return -1;
    g_installed = 1;
    return 0;
}

}  // namespace vx
