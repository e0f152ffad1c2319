// The enhanced mode's printer queues: one FIFO and one worker thread per printer, each worker
// printing its jobs in order through the same code as PrintFile. Jobs still waiting at the end
// are kept in the pending-jobs file and queued again at the next start.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "printlib/queued_job.h"
#include "printlib/zelwin.h"

namespace zel {

// Starts the enhanced mode. listOnly: only read the jobs left from the last run (for listing
// them); otherwise queue them again for printing. *pendingCount gets their number.
int StartQueues(const ZelHost* host, bool listOnly, uint32_t* pendingCount);

// Lets every worker finish its current job, then keeps the waiting jobs for the next start.
int StopQueues();

// Appends a job to its printer's queue (the queue and its worker start with the first job).
int AddJob(QueuedJob job);

// The pending jobs: those left from the last run in list-only mode, else the waiting ones.
std::vector<QueuedJob> PendingJobs();

// Holds the queues still, so that a listing sees one state (recursive; same thread unlocks).
void LockQueues();
void UnlockQueues();

// The entries of a printer's queue: the job at work first, then the waiting ones.
int QueueEntryCount(const std::u16string& printer);
// The index-th entry as a status line ("%-6.6s %-12.12s%3d  %s\n": rank, owner, job number,
// title or file name). -1 when there is no such entry.
int QueueEntryLine(const std::u16string& printer, int index, char* line, int size);

}  // namespace zel
