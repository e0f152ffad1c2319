// Handing the process to the system's service manager.
#pragma once

namespace vx {

using ServiceEntry = void (*)();

// Windows: runs the service control dispatcher with one service (name, entry) and returns when
// the service has stopped; -1 when the process was not started by the service control manager
// (the system error tells why). Linux: systemd starts the program in the foreground, so the entry
// runs at once on this thread; returns 0 after it.
int RunServiceDispatcher(const char* serviceName, ServiceEntry entry);

}  // namespace vx
