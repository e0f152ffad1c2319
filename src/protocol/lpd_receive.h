// Reception of an LPD job (RFC 1179 receive-job subcommands): the control file into memory, each
// data file into a file of its own in the temporary directory, and the job record built from the
// control file.
#pragma once

#include <cstdint>

#include "jobs/job_record.h"
#include "net/socket_io.h"

namespace vx {

// Runs the subcommand dialogue for a queue. Returns the new job record (made with
// CreateJobRecord; its context holds the last data file and the title), or null.
JobRecord* ReceiveJob(const char* queue, NetSocket* socket);

// The control-file analysis: owner (at most 12 characters), title (at most 99) and the number of
// print lines (the copy count).
void AnalyseControlFile(const char* control, char* owner, size_t ownerSize, char* title,
                        size_t titleSize, int32_t* printLines);

}  // namespace vx
