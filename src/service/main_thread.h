// The server's main loop: restore the saved queues, start the network, accept connections until a
// stop reason is set, then stop in order or end the process for a restart.
#pragma once

#include <atomic>

namespace vx {

// 0 after an orderly stop (reason 4); 1 when the network could not be started (nothing is
// cleaned up then). For every restart reason it does not return: the process ends with exit
// code 1 after StopService, so that the service manager starts it again.
int MainThread();

// Starts the network layer and the listener. 0, or a negative code.
int StartNetwork();

// Set once the network has been started; the end of the service ends the security layer only then.
extern std::atomic<bool> g_NetworkStarted;

}  // namespace vx
