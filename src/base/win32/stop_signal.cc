#include "base/stop_signal.h"

#include <windows.h>

#include <atomic>

namespace vx {

namespace {

std::atomic<StopRequestHook> g_hook{nullptr};
std::atomic<bool> g_installed{false};

BOOL WINAPI OnConsoleControl(DWORD event) {
    switch (event) {
        case CTRL_C_EVENT:
        case CTRL_BREAK_EVENT:
        case CTRL_CLOSE_EVENT:
        case CTRL_LOGOFF_EVENT:
        case CTRL_SHUTDOWN_EVENT: {
            StopRequestHook hook = g_hook;
            if (hook == nullptr) return FALSE;
            hook();
            return TRUE;
        }
        default:
            return FALSE;
    }
}

}  // namespace

int InstallStopRequestHook(StopRequestHook hook) {
    g_hook = hook;
    if (g_installed.exchange(true)) return 0;
    if (!SetConsoleCtrlHandler(OnConsoleControl, TRUE)) {
        g_installed = false;
        return -1;
    }
    return 0;
}

}  // namespace vx
