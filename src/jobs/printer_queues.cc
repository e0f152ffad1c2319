// Printer queues and their worker threads.
//
// The printer queue list holds one PrinterQueue per printer; each has a job list of its own and
// one worker thread, started by the first receiver that queues a job for the printer (the queue
// list's lock is held from the lookup to the creation, so two receivers never make the same queue;
// the creator then waits on hInitEvent without holding it). Receivers append under the job list's
// lock and set hQueueEvent. The worker alone takes jobs out: it copies the first job, prints it
// without any lock held, and only then removes it (or keeps it first after a device error), so a
// job is in the list, and in the restart files, until it is final. The worker polls hQueueEvent
// and leaves after its current job once a stop reason is set or the service ends, setting
// hEndEvent; a queue list lock and a job list lock are never held together. Jobs printed by a
// thread of their own (ProcessingMode 0, OwnThread) run as counted job threads instead.
#include "jobs/printer_queues.h"

#include <atomic>
#include <cstring>
#include <vector>

#include "base/text.h"
#include "config/option_globals.h"
#include "config/process_state.h"
#include "jobs/copy_limit.h"
#include "jobs/job_context.h"
#include "jobs/job_info.h"
#include "jobs/job_journal.h"
#include "jobs/job_lists.h"
#include "jobs/job_threads.h"
#include "jobs/print_backend.h"
#include "jobs/print_job.h"
#include "jobs/restart_files.h"
#include "jobs/zel_wide.h"
#include "lists/list_lock.h"
#include "lists/typed_list.h"
#include "printserver/trace.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

// How long an idle worker waits for a job before it looks at the stop flag again.
constexpr uint32_t kWorkerPollMs = 1000;

// Set while the service ends: workers leave after their current job even when no stop reason is
// set (an administrative run that printed a file).
std::atomic<bool> g_queuesEnding{false};
// Set once the end events have been waited for: each is set once, so a second wait would hang.
std::atomic<bool> g_workersEnded{false};

int MatchPrinterQueue(const void* key, const void* element, int, void*) {
    const auto* queue = static_cast<const PrinterQueue*>(element);
    return strcmp(static_cast<const char*>(key), queue->PrinterName) == 0 ? 0 : 1;
}

bool WorkersShouldEnd() {
    return g_StopReason != kStopNone || g_queuesEnding;
}

void CloseQueueEvents(PrinterQueue* queue) {
    EvClose(queue->hInitEvent);
    EvClose(queue->hEndEvent);
    EvClose(queue->hQueueEvent);
    queue->hInitEvent = queue->hEndEvent = queue->hQueueEvent = nullptr;
}

// The print library keeps the queue: everything it needs goes over in UTF-16.
int QueueJobInLibrary(const JobInfo& job) {
    ZelWide printer[257], file[261], title[101], jobId[51], owner[13];
    ToZelWide(job.PrinterName, 256, printer, 257);
    ToZelWide(job.FileName, 260, file, 261);
    ToZelWide(job.Title, 100, title, 101);
    ToZelWide(job.JobId, 50, jobId, 51);
    ToZelWide(job.Owner, 12, owner, 13);
    int rc = Backend().QueueJobEx(printer, file, title, owner, job.Copies, job.NoStatusFlag, jobId);
    if (rc != 0) TraceError("QueueJobEx returns %i for job %s\n", rc, job.JobId);
    return rc == 0 ? 0 : -1;
}

// Makes the printer's job list and events and enters the queue into the queue list, whose lock
// the caller holds. 0 and *queue filled, or -1 with nothing left behind.
int CreatePrinterQueue(const char* printer, PrinterQueue* queue) {
    Trace(kTraceNotable, "Create job list for printer %s\n", printer);
    memset(queue, 0, sizeof *queue);
    CopyText(queue->PrinterName, printer);
    if (TypedList<JobInfo>::Create(kPrinterJobListCapacity, &queue->JobListId, 1) != 0) {
        TraceError("Cannot init job queue\n");
        return -1;
    }
    char name[64];
    FormatText(name, sizeof name, "VorlixInitEvent_%i", queue->JobListId);
    queue->hInitEvent = EvCreate(name);
    FormatText(name, sizeof name, "VorlixEndEvent_%i", queue->JobListId);
    queue->hEndEvent = EvCreate(name);
    FormatText(name, sizeof name, "VorlixQueueEvent_%i", queue->JobListId);
    queue->hQueueEvent = EvCreate(name);
    if (queue->hInitEvent == nullptr || queue->hEndEvent == nullptr ||
        queue->hQueueEvent == nullptr) {
        TraceError("Cannot create the events of the queue for printer %s\n", printer);
    } else if (TypedList<PrinterQueue>(g_JobQueueList).Append(*queue, 0) != 0) {
        TraceError("Error inserting queue for printer %s in list %i\n", printer, g_JobQueueList);
    } else {
        return 0;
    }
    CloseQueueEvents(queue);
    ExitList(queue->JobListId);
    return -1;
}

// Starts the new queue's worker and waits until it runs. On failure the queue is taken out again,
// so that no queue is left that nobody serves.
int StartWorker(PrinterQueue* queue) {
    if (StartJobThread([copy = *queue] { WorkerThread(copy); }) != 0) {
        TraceError("Cannot start working thread for printer %s\n", queue->PrinterName);
        {
            ListLockHold hold(g_JobQueueList);
            DeleteElement(g_JobQueueList, MatchPrinterQueue, queue->PrinterName, 0);
        }
        CloseQueueEvents(queue);
        ExitList(queue->JobListId);
        return -1;
    }
    Trace(kTraceDetail, "Wait for confirmation event %p for thread %s\n", queue->hInitEvent,
          queue->PrinterName);
    EvWait(queue->hInitEvent, kWaitInfinite);
    Trace(kTraceDetail, "Got confirmation event %p for thread %s\n", queue->hInitEvent,
          queue->PrinterName);
    EvClose(queue->hInitEvent);
    queue->hInitEvent = nullptr;
    return 0;
}

int AppendToQueue(const PrinterQueue& queue, const JobInfo& job) {
    Trace(kTraceDetail, "Insert job %s for printer %s in list %i\n", job.JobId, job.PrinterName,
          queue.JobListId);
    if (TypedList<JobInfo>(queue.JobListId).Append(job, 1) != 0) {
        TraceError("Error inserting job %s for printer %s in list %i\n", job.JobId, job.PrinterName,
                   queue.JobListId);
        return -1;
    }
    Trace(kTraceDetail, "Signaling insert event %p for list %i\n", queue.hQueueEvent,
          queue.JobListId);
    EvSet(queue.hQueueEvent);
    return 0;
}

// Copies the first job of the list. Only the worker removes jobs, so it stays first until then.
bool TakeFirstJob(ListId jobs, JobInfo* job) {
    ListLockHold hold(jobs);
    return hold.Held() && TypedList<JobInfo>(jobs).CopyFirst(job, 0);
}

// After printing: the job leaves the queue, except an extended-protocol job that met a device
// error, which stays first to be set up again after the restart that the stop flag asks for.
void FinishJob(ListId jobs, JobInfo job, int rc) {
    bool deviceError = rc == ZEL_RC_DEVICE && g_Options.IgnoreDCError == 0;
    int result;
    if (job.Protocol == 'U' || !deviceError) {
        // The print system refused an LPD job: the restart that follows does not bring it back.
        if (deviceError)
            TraceError("Job %s for printer %s dropped: the print system refused it (rc = %d)\n",
                       job.JobId, job.PrinterName, rc);
        result = DeleteFirstElement(jobs, 1);
        if (result == 0) RetireJobFiles(job);
    } else {
        job.SetupAgain = 1;
        result = ReplaceElementAtIndex(jobs, 0, &job, 1);
        // A crash before the restart must not forget that the job is being set up again.
        if (result == 0) UpdateJobJournal(job);
    }
    if (deviceError) RequestStop(kStopDeviceContext);
    if (result != 0) TraceError("Error deleting job from list %i\n", jobs);
}

// The job's own thread; the caller waits on the job's event and closes it.
int PrintOnOwnThread(const JobInfo& job) {
    if (StartJobThread([copy = job] { PrintJobThread(copy); }) != 0) {
        TraceError("Cannot start print thread for job %s\n", job.JobId);
        EvClose(job.hEvent);
        return -1;
    }
    EvWait(job.hEvent, kWaitInfinite);
    EvClose(job.hEvent);
    return 0;
}

// The own-thread road is taken exactly when FillJobInfo made the job's event.
int HandOver(JobInfo* job) {
    return job->hEvent != nullptr ? PrintOnOwnThread(*job) : QueueJob(job);
}

// Fills the queued record of a received job and writes its journal. 0, or -1 with nothing left.
int PrepareReceivedJob(JobRecord* record, char protocol, JobInfo* job) {
    if (record == nullptr) return -1;
    Trace(kTraceDetail, "Start processing %c protocol job %s\n", protocol, record->JobId);
    JobContext* context = record->Context;
    const char* owner = g_Options.ZELUserAsOwner != 0 ? record->Owner : nullptr;
    // The one place where a received job's copy count is taken over: it is capped here.
    int32_t copies = LimitCopyCount(record->Copies, record->JobId);
    if (context == nullptr ||
        FillJobInfo(record->PrinterName, context->FileName, record->JobId, owner, context->Title,
                    copies, record->PrintParam1, record->PrintParam2, record->NoStatusFlag,
                    protocol, 0, 0, job) == 0) {
        TraceError("Cannot fill job info for job %s on printer %s\n", record->JobId,
                   record->PrinterName);
        return -1;
    }
    context->WideData = job->WideData;
    job->ReceivedFile = 1;
    if (WriteJobJournal(job) != 0) {
        TraceError("Job %s for printer %s refused: it cannot be kept safe\n", record->JobId,
                   record->PrinterName);
        if (job->hEvent != nullptr) EvClose(job->hEvent);
        return -1;
    }
    return 0;
}

}  // namespace

int ProcessJob(JobRecord* record, char protocol) {
    return ProcessJobs(&record, 1, protocol);
}

int ProcessJobs(JobRecord* const* records, int count, char protocol) {
    if (records == nullptr || count <= 0) return -1;
    std::vector<JobInfo> jobs(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        if (PrepareReceivedJob(records[i], protocol, &jobs[static_cast<size_t>(i)]) == 0) continue;
        // All or none: the ones prepared already are taken back.
        for (int j = 0; j < i; ++j) {
            JobInfo& prepared = jobs[static_cast<size_t>(j)];
            RemoveJobJournal(prepared);
            if (prepared.hEvent != nullptr) EvClose(prepared.hEvent);
        }
        return -1;
    }
    // From here on every job is safe: one that cannot be queued now comes back at the next start.
    int rc = 0;
    for (JobInfo& job : jobs)
        if (HandOver(&job) != 0) rc = -1;
    return rc;
}

int ProcessFile(const char* printer, const char* fileName, const char* jobId, int32_t copies,
                int32_t ownThread) {
    JobInfo job;
    if (FillJobInfo(printer, fileName, jobId, nullptr, nullptr, copies, 0, 0, 0, 'U', ownThread, 0,
                    &job) == 0) {
        TraceError("Cannot print job %s on printer %s\n", jobId != nullptr ? jobId : "",
                   printer != nullptr ? printer : "");
        return -1;
    }
    return HandOver(&job);
}

int QueueJob(JobInfo* job) {
    if (job == nullptr) return -1;
    if (g_Options.UseEnhancedSW != 0) return QueueJobInLibrary(*job);
    Trace(kTraceNotable, "Queue job %s for printer %s\n", job->JobId, job->PrinterName);

    PrinterQueue queue;
    bool created = false;
    {
        // Held from the lookup to the creation: two receivers never make the same queue twice.
        ListLockHold hold(g_JobQueueList);
        if (!hold.Held()) {
            TraceError("Error inserting job %s for printer %s in list %i\n", job->JobId,
                       job->PrinterName, g_JobQueueList);
            return -1;
        }
        int32_t index = 0;
        if (FindElement(g_JobQueueList, MatchPrinterQueue, &index, job->PrinterName, &queue, 0) !=
            0) {
            if (!Spooler().CanOpenPrinter(job->PrinterName)) {
                hold.Release();
                TraceError("Invalid printer name %s. Job not queued.\n", job->PrinterName);
                // The print library still sees the job, so that it reports the failure for it.
                CallPrintFile(*job);
                RetireJobFiles(*job);
                return -1;
            }
            if (CreatePrinterQueue(job->PrinterName, &queue) != 0) return -1;
            created = true;
        }
    }
    // The creator waits for its worker without holding the queue list.
    if (created && StartWorker(&queue) != 0) return -1;
    return AppendToQueue(queue, *job);
}

void WorkerThread(PrinterQueue queue) {
    Trace(kTraceDetail, "Signaling confirmation event %p for thread %s\n", queue.hInitEvent,
          queue.PrinterName);
    EvSet(queue.hInitEvent);
    Trace(kTraceNormal, "Start working thread for printer %s\n", queue.PrinterName);
    do {
        JobInfo job;
        if (TakeFirstJob(queue.JobListId, &job)) {
            Trace(kTraceDetail, "Got next job %s for printer %s from list %i\n", job.JobId,
                  queue.PrinterName, queue.JobListId);
            int rc = PrintJob(job);
            FinishJob(queue.JobListId, job, rc);
        } else {
            Trace(kTraceDetail, "Wait for insert event %p for list %i\n", queue.hQueueEvent,
                  queue.JobListId);
            EvWait(queue.hQueueEvent, kWorkerPollMs);
            Trace(kTraceDetail, "Got insert event %p for list %i\n", queue.hQueueEvent,
                  queue.JobListId);
        }
    } while (!WorkersShouldEnd());
    Trace(kTraceDetail, "Signaling end event %p for thread %s\n", queue.hEndEvent,
          queue.PrinterName);
    EvSet(queue.hEndEvent);
    Trace(kTraceNormal, "End working thread\n");
}

void PrintJobThread(JobInfo job) {
    // Without OwnThread the receiver goes on while the job prints.
    if (job.OwnThread == 0) EvSet(job.hEvent);
    PrintJob(job);
    RetireJobFiles(job);
    if (job.OwnThread != 0) EvSet(job.hEvent);
}

int FindPrinterQueue(const char* printer, PrinterQueue* out) {
    if (printer == nullptr || out == nullptr) return -1;
    int32_t index = 0;
    return FindElement(g_JobQueueList, MatchPrinterQueue, &index, printer, out, 1);
}

int VisitQueuedJobs(const char* printer, QueuedJobVisitor visit, void* context) {
    PrinterQueue queue;
    if (visit == nullptr || FindPrinterQueue(printer, &queue) != 0) return -1;
    ListLockHold hold(queue.JobListId);
    if (!hold.Held()) return -1;
    int32_t count = 0;
    TypedList<JobInfo>(queue.JobListId).ForEach([&](const JobInfo& job) {
        return visit(context, count++, job) != 0;
    });
    return count;
}

void WaitForPrinterWorkers() {
    g_queuesEnding = true;
    if (!g_workersEnded) {
        ListLockHold hold(g_JobQueueList);
        if (hold.Held()) {
            TypedList<PrinterQueue> queues(g_JobQueueList);
            // Wake idle workers at once instead of at their next poll.
            queues.ForEach([](const PrinterQueue& queue) {
                EvSet(queue.hQueueEvent);
                return false;
            });
            queues.ForEach([](const PrinterQueue& queue) {
                Trace(kTraceDetail, "Waiting for event %p for thread %s\n", queue.hEndEvent,
                      queue.PrinterName);
                EvWait(queue.hEndEvent, kWaitInfinite);
                return false;
            });
        }
        g_workersEnded = true;
    }
    // Beyond the end events: no worker or one-job thread may still be inside its body when the
    // lists and the print-server object go.
    WaitForJobThreads();
}

void DismantlePrinterQueues() {
    {
        ListLockHold hold(g_JobQueueList);
        PrinterQueue queue;
        while (hold.Held() && TypedList<PrinterQueue>(g_JobQueueList).CopyFirst(&queue, 0)) {
            EvSet(queue.hQueueEvent);
            EvClose(queue.hQueueEvent);
            ExitList(queue.JobListId);
            EvClose(queue.hEndEvent);
            DeleteFirstElement(g_JobQueueList, 0);
        }
    }
    g_workersEnded = false;
    g_queuesEnding = false;
}

void StopPrinterQueues() {
    WaitForPrinterWorkers();
    if (g_Options.ProcessingMode != 0 && g_Options.NoJobRestore == 0) SaveQueuesForRestart();
    DismantlePrinterQueues();
}

}  // namespace vx
