// The extended protocol: a dialogue of two-letter command packets, each answered "OK" or by an
// error reply, in which a sender names the printer, owner, title and print options, negotiates
// compression and scrambling, opens a job (DS), streams its data in blocks (DB) and closes it (DE).
#pragma once

#include <cstdint>

#include "jobs/job_record.h"
#include "net/socket_io.h"

namespace vx {

// Takes over a job the session has closed, before the sender hears "OK" for its DE: 0 when the
// job is safe with the service (journaled and queued), -1 when it was refused (the sender gets the
// 809 error; the data file is the session's to remove). A delivered job has reached its
// destination already (a file of the output directory): it is only entered as done. The record
// stays the caller's.
using ExtendedJobHandOver = int (*)(void* context, JobRecord* job, bool delivered);

// Serves the session on a connection whose first packet began with "SC": the greeting, then one
// command per packet until the sender ends the session or breaks it. Every job the sender closes
// with DE is handed over; a job the session ends in the middle of is never printed and its file is
// removed (unless KeepFile is set). The socket stays open.
void ExtendedSession(NetSocket& socket, ExtendedJobHandOver handOver, void* context);

// The HANG and DISC test switches of a job: with HANG the title command is never answered, with
// DISC the session ends after it. For testing senders' time-outs; off unless a test sets them.
void SetExtendedTestSwitches(bool hang, bool disconnect);

}  // namespace vx
