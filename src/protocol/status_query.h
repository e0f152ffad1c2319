// Status queries: a job's status, a printer's queue (short and long form alike) and, for the
// extended protocol, the installed printers.
#pragma once

#include "net/socket_io.h"

namespace vx {

// Answers the query for a printer's queue on the socket.
void QueryPrinter(NetSocket* socket, const char* queue, int queueSize);

// Answers the query for one job of a queue on the socket.
void QueryJob(NetSocket* socket, const char* queue, int queueSize, const char* job);

}  // namespace vx
