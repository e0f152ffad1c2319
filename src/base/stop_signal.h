// The system's request to stop a program that runs in the foreground: SIGTERM and SIGINT on
// Linux (systemd's stop, Ctrl+C), the console control events on Windows (Ctrl+C, Ctrl+Break,
// closing the console, logoff and shutdown).
#pragma once

namespace vx {

// Called once per request, in a signal handler or on the system's control thread: it may only
// store into lock-free atomics.
using StopRequestHook = void (*)();

// Installs the hook for every later request (a later call replaces it). 0, or -1 when the system
// refused the handler.
int InstallStopRequestHook(StopRequestHook hook);

}  // namespace vx
