// Restart files: the jobs still waiting in the printer queues ("prnl%.5i.dbd", one file per queue)
// and the job statuses not yet fetched ("stal.dbd"), written in the base directory when the
// service ends and read back at the next start, so that a restart loses no queued job.
//
// Each file is a sequence of records: a 5-digit decimal length, then that many bytes (NUL-
// terminated strings, a trailer of numbers ending in "\n"). The files are text files: a line end
// is CR LF on Windows and is counted as one byte.
#pragma once

#include <cstddef>

#include "jobs/restart_record.h"

namespace vx {

constexpr const char* kStatusFileName = "stal.dbd";

// Writes every queue's jobs and the status list. The workers must have ended.
void SaveQueuesForRestart();

// Restores the status file, then every printer file of the base directory: statuses go back into
// the status list, jobs into their printers' queues (whose workers start again). The caller
// decides about NoJobRestore.
void RestoreQueues();

}  // namespace vx
