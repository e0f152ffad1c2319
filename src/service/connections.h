// Connection threads: the accept loop hands each connection to a thread of its own (or, with
// ConnectionMode 0, serves it itself), and the connection list keeps the live connections so that
// the end of the service can wait until every one has finished.
#pragma once

#include <cstdint>

#include "service/conn_info.h"

namespace vx {

// Makes the connection list when mode (ConnectionMode as start-up read it) is nonzero, and keeps
// the mode: the accept path and the end of the service go on with the mode the list was made
// with, whatever the option says later. 0, or the list creation's code (the mode is then 0).
int CreateConnectionList(int32_t mode);

// Destroys the connection list, when there is one.
void DestroyConnectionList();

// Thread procedure of one connection: copies the record, signals hEventInit, serves the
// connection and removes the record from the connection list again.
void ConnectionThread(ConnInfo* info);

// The connection half of the end of the service: with connection threads, waits until every
// connection in the list has ended, polling each connection's event once a second.
// Connections still open this long after the stop request (or, without one, after the wait
// began) are shut down, so that their threads end: a job being received is then dropped
// unacknowledged.
constexpr uint32_t kStopGraceMs = 10000;
void WaitForConnectionThreads(uint32_t graceMs = kStopGraceMs);

// Waits for one new connection (retrying the accept until one comes or a stop reason is set)
// and serves it: inline with ConnectionMode 0, else on a new connection thread. A connection
// thread that cannot start sets the stop reason 5. A connection served inline is shut down once a
// stop request is stopGraceMs old.
void AcceptConnection(uint32_t stopGraceMs = kStopGraceMs);

}  // namespace vx
