// Status queries: a job's status, a printer's queue (short and long form alike) and, for the
// extended protocol, the installed printers.
#pragma once

#include <cstddef>

#include "net/socket_io.h"

namespace vx {

// Room for a printer name as a sender gives it, with its terminator.
constexpr size_t kQueueNameSize = 257;

// Answers the query for a printer's queue on the socket, in lines without NUL bytes.
void QueryPrinter(NetSocket* socket, const char* queue, int queueSize);

// Answers the query for one job of a queue on the socket; each line carries its NUL when
// "send_with_null" is set.
void QueryJob(NetSocket* socket, const char* queue, int queueSize, const char* job);

// Replaces a default-printer name ("%DEFAULT%", "__DEFAULT", "__Default", "__default") in place by
// the spooler's default printer, or by "__default" when there is none. 0, or -1 when the default
// printer could not be determined. Other names stay as they are.
int ResolveDefaultPrinter(char* printer, size_t size);

// The printer a query names: the sender's queue name (at most queueSize bytes) without one
// trailing carriage return, default-printer names resolved.
void ResolveQueueName(const char* queue, int queueSize, char* out, size_t cap);

// The extended protocol's list of installed printers: the count, then name, location and driver of
// each, every text answered by the sender with "OK", then "QP finished". False when the printers
// cannot be listed or the sender broke the dialogue before the last text.
bool GetInstalledPrinters(NetSocket* socket);

}  // namespace vx
