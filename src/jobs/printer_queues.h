// The printer queues: a received job becomes a JobInfo and is appended to its printer's job list,
// where the printer's worker thread prints it; or it is printed by a thread of its own
// (ProcessingMode 0), or handed to the print library's queue (UseEnhancedSW).
#pragma once

#include <cstdint>

#include "jobs/job_record.h"
#include "jobs/printer_queue.h"

namespace vx {

// Initial capacity of a printer's job list.
constexpr int32_t kPrinterJobListCapacity = 200;

// A received job (its context names the data file and title) with protocol 'U' (LPD) or 'S'
// (extended protocol). Copies WideData into the job's context. The job's journal is written
// before it is handed over. 0, or -1 when the job was dropped.
int ProcessJob(JobRecord* record, char protocol);

// Several received jobs at once, all or none: each is filled and journaled first, and only when
// every one is safe are they handed over in order, so that one acknowledgement to the sender
// covers them all. 0, or -1 when none was taken (no journal is left; the data files are the
// caller's).
int ProcessJobs(JobRecord* const* records, int count, char protocol);

// The print-file entry point: a local file printed as an LPD job. With ownThread set (or
// ProcessingMode 0) it is printed by a thread of its own and the call returns when it has printed
// (with ownThread) or has started. 0, or -1 when the job was dropped.
int ProcessFile(const char* printer, const char* fileName, const char* jobId, int32_t copies,
                int32_t ownThread);

// Puts a filled record into its printer's queue, making the queue and its worker on the printer's
// first job; a printer the spooler cannot open gets the job handed once to PrintFile instead.
// 0 when queued, -1 otherwise.
int QueueJob(JobInfo* job);

// Thread procedures: one worker per printer, one thread per job printed on its own.
void WorkerThread(PrinterQueue queue);
void PrintJobThread(JobInfo job);

// Copies the printer's queue record. 0, or -1 when the printer has no queue.
int FindPrinterQueue(const char* printer, PrinterQueue* out);

// Calls visit for each job waiting in the printer's queue, in order, under the job list's lock
// (never together with the queue list's lock). visit returns nonzero to stop. Returns the number
// of jobs visited, or -1 when the printer has no queue.
using QueuedJobVisitor = int (*)(void* context, int32_t index, const JobInfo& job);
int VisitQueuedJobs(const char* printer, QueuedJobVisitor visit, void* context);

// The worker half of the end of the service, in its three steps: wait until every worker has
// ended after its current job (and every one-job thread has finished), save the queues for
// restart, and take the queues down.
void WaitForPrinterWorkers();
void DismantlePrinterQueues();
// All of it: waits, saves unless NoJobRestore (only when the service kept queues, ProcessingMode
// nonzero) and dismantles.
void StopPrinterQueues();

}  // namespace vx
