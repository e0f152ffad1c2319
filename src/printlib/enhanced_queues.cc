#include "printlib/enhanced_queues.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "base/clock.h"
#include "base/fileops.h"
#include "base/text.h"
#include "printlib/host_trace.h"
#include "printlib/job_delivery.h"
#include "printlib/job_states.h"
#include "printlib/library_options.h"
#include "printlib/pending_jobs_file.h"
#include "printlib/stream_type.h"
#include "printlib/wide_text.h"
#include "spooler/spool_job.h"

namespace zel {

namespace {

// A job that meets a device error waits this long and is tried again, up to kMaxDeviceErrors
// times in a row; then it ends with an error.
constexpr uint32_t kDeviceRetryDelayMs = 5000;
constexpr int kMaxDeviceErrors = 4;
constexpr int kMaxJobNumber = 999;

struct PrinterQueue {
    std::u16string printer;
    std::deque<QueuedJob> waiting;
    bool printing = false;
    QueuedJob current;
    std::thread worker;
};

struct Queues {
    std::recursive_mutex lock;
    std::condition_variable_any changed;
    std::vector<std::unique_ptr<PrinterQueue>> printers;
    const ZelHost* host = nullptr;
    bool running = false;
    bool listOnly = false;
    bool stopping = false;
    int lastNumber = 0;
    char pendingPath[vx::kMaxPath * 2] = {};
    std::vector<QueuedJob> fromLastRun;
};

// Lives until the process ends: a service that never calls ExitEx leaves its workers running.
Queues& TheQueues() {
    static Queues* queues = new Queues;
    return *queues;
}

using Hold = std::unique_lock<std::recursive_mutex>;

struct NarrowJob {
    char printer[512];
    char fileName[vx::kMaxPath * 2];
    char jobId[160];
    char title[320];
};

NarrowJob Narrow(const QueuedJob& job) {
    NarrowJob narrow;
    NarrowText(job.printer, vx::kPrinterNameCodePage, narrow.printer, sizeof narrow.printer);
    NarrowText(job.fileName, vx::kPrinterNameCodePage, narrow.fileName, sizeof narrow.fileName);
    NarrowText(job.jobId, vx::kPrinterNameCodePage, narrow.jobId, sizeof narrow.jobId);
    NarrowText(job.title, vx::kPrinterNameCodePage, narrow.title, sizeof narrow.title);
    return narrow;
}

bool KeepsState(const ZelHost* host, const QueuedJob& job, const char* printer) {
    return job.noStatus == 0 && OptionValue(host, printer, "NoStatus", 0) == 0;
}

const char* ErrorTextOf(int rc) {
    switch (rc) {
        case ZEL_RC_DEVICE:
            return "Device error: the printer cannot be reached";
        case ZEL_RC_NO_FILE:
            return "The job's data file cannot be read";
        case ZEL_RC_NOT_SUPPORTED:
            return "The job's data stream cannot be printed";
        default:
            return "Printing failed: see the trace for details";
    }
}

int PrintQueuedJob(const ZelHost* host, const NarrowJob& job, int copies) {
    int wide = 0;
    int streamType = StreamTypeOfFile(job.fileName, &wide);
    if (streamType < 0) {
        TraceError(host, "Job %s: data file %s cannot be read\n", job.jobId, job.fileName);
        return ZEL_RC_NO_FILE;
    }
    PrintRequest request{job.printer, job.fileName, job.jobId, job.title, copies, streamType};
    return PrintOneJob(host, request);
}

// Settles a printed job: done or error, or back to the head of the queue after a device error.
void Settle(Queues& queues, PrinterQueue& queue, QueuedJob job, const NarrowJob& narrow, int rc) {
    const ZelHost* host = queues.host;
    bool keepState = KeepsState(host, job, narrow.printer);
    if (rc == ZEL_RC_DEVICE && OptionValue(host, narrow.printer, "IgnoreDCError", 0) == 0 &&
        job.deviceErrors + 1 < kMaxDeviceErrors) {
        ++job.deviceErrors;
        job.retryAtMs = vx::TickCountMs() + kDeviceRetryDelayMs;
        TraceLine(host, 5, "Job %s will be set up again on printer %s (device error %d)\n",
                  narrow.jobId, narrow.printer, job.deviceErrors);
        if (keepState) SetJobState(job.jobId, job.printer, ZEL_JOB_WAITING, u"");
        queue.waiting.push_front(std::move(job));
        return;
    }
    if (keepState) {
        SetJobState(job.jobId, job.printer, rc == ZEL_RC_OK ? ZEL_JOB_DONE : ZEL_JOB_ERROR,
                    rc == ZEL_RC_OK ? u"" : WideFromNarrow(ErrorTextOf(rc), vx::kCodePageUtf8));
    }
    TraceLine(host, 5, "Job %s on printer %s finished with rc = %d\n", narrow.jobId, narrow.printer,
              rc);
}

void WorkerLoop(PrinterQueue* queue) {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    while (!queues.stopping) {
        if (queue->waiting.empty()) {
            queues.changed.wait(hold);
            continue;
        }
        uint64_t now = vx::TickCountMs();
        if (queue->waiting.front().retryAtMs > now) {
            queues.changed.wait_for(
                hold, std::chrono::milliseconds(queue->waiting.front().retryAtMs - now));
            continue;
        }
        QueuedJob job = std::move(queue->waiting.front());
        queue->waiting.pop_front();
        queue->current = job;
        queue->printing = true;
        NarrowJob narrow = Narrow(job);
        const ZelHost* host = queues.host;
        if (KeepsState(host, job, narrow.printer)) {
            SetJobState(job.jobId, job.printer, ZEL_JOB_PRINTING, u"");
        }
        hold.unlock();
        int rc = PrintQueuedJob(host, narrow, job.copies);
        hold.lock();
        queue->printing = false;
        Settle(queues, *queue, std::move(job), narrow, rc);
        queues.changed.notify_all();
    }
}

PrinterQueue* FindQueue(Queues& queues, const std::u16string& printer) {
    for (auto& queue : queues.printers) {
        if (queue->printer == printer) return queue.get();
    }
    return nullptr;
}

const char* RankText(int rank, char* buffer, size_t size) {
    static const char* const kFirst[] = {"active", "1st", "2nd", "3rd"};
    if (rank < 4) return kFirst[rank];
    vx::FormatText(buffer, size, "%dth", rank);
    return buffer;
}

// Adds a job with the lock held; starts the printer's worker on its first job.
int AddLocked(Queues& queues, QueuedJob job) {
    PrinterQueue* queue = FindQueue(queues, job.printer);
    if (queue == nullptr) {
        auto created = std::make_unique<PrinterQueue>();
        created->printer = job.printer;
        queue = created.get();
        queues.printers.push_back(std::move(created));
        queue->worker = std::thread(WorkerLoop, queue);
        char printer[512];
        NarrowText(job.printer, vx::kPrinterNameCodePage, printer, sizeof printer);
        TraceLine(queues.host, 1, "Start working thread for printer %s\n", printer);
    }
    queues.lastNumber = queues.lastNumber % kMaxJobNumber + 1;
    job.number = queues.lastNumber;
    NarrowJob narrow = Narrow(job);
    if (KeepsState(queues.host, job, narrow.printer)) {
        SetJobState(job.jobId, job.printer, ZEL_JOB_WAITING, u"");
    }
    TraceLine(queues.host, 5, "Queue job %s for printer %s\n", narrow.jobId, narrow.printer);
    queue->waiting.push_back(std::move(job));
    queues.changed.notify_all();
    return 0;
}

}  // namespace

int StartQueues(const ZelHost* host, bool listOnly, uint32_t* pendingCount) {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    if (pendingCount != nullptr) *pendingCount = 0;
    if (queues.running) {
        TraceError(host, "InitEx: the print library's queues are running already\n");
        return -1;
    }
    char outputDirectory[vx::kMaxPath * 2] = {};
    if (host->GetOutputDirectory != nullptr) {
        host->GetOutputDirectory(host->context, outputDirectory, sizeof outputDirectory);
    }
    PendingJobsPath(outputDirectory, queues.pendingPath, sizeof queues.pendingPath);
    std::vector<QueuedJob> pending;
    if (LoadPendingJobs(queues.pendingPath, &pending) != 0) {
        TraceError(host, "InitEx: pending jobs file %s cannot be read\n", queues.pendingPath);
    }
    queues.host = host;
    queues.running = true;
    queues.listOnly = listOnly;
    queues.stopping = false;
    if (pendingCount != nullptr) *pendingCount = static_cast<uint32_t>(pending.size());
    if (listOnly) {
        queues.fromLastRun = std::move(pending);
        return 0;
    }
    TraceLine(host, 1, "InitEx: %u pending jobs from the last run queued again\n",
              static_cast<unsigned>(pending.size()));
    for (QueuedJob& job : pending) {
        job.deviceErrors = 0;
        job.retryAtMs = 0;
        AddLocked(queues, std::move(job));
    }
    // They live in the queues now; ExitEx writes back what is left.
    if (vx::FsExists(queues.pendingPath)) vx::FsRemove(queues.pendingPath);
    return 0;
}

int StopQueues() {
    Queues& queues = TheQueues();
    std::vector<std::unique_ptr<PrinterQueue>> printers;
    {
        Hold hold(queues.lock);
        if (!queues.running) return 0;
        queues.stopping = true;
        queues.changed.notify_all();
        printers.swap(queues.printers);
    }
    for (auto& queue : printers) {
        if (queue->worker.joinable()) queue->worker.join();
    }
    Hold hold(queues.lock);
    int rc = 0;
    if (!queues.listOnly) {
        std::vector<QueuedJob> left;
        for (auto& queue : printers) {
            for (QueuedJob& job : queue->waiting) left.push_back(std::move(job));
        }
        if (SavePendingJobs(queues.pendingPath, left) != 0) {
            TraceError(queues.host, "ExitEx: pending jobs cannot be written to %s\n",
                       queues.pendingPath);
            rc = -1;
        } else if (!left.empty()) {
            TraceLine(queues.host, 1, "ExitEx: %u pending jobs kept in %s\n",
                      static_cast<unsigned>(left.size()), queues.pendingPath);
        }
    }
    queues.fromLastRun.clear();
    queues.running = false;
    queues.stopping = false;
    queues.host = nullptr;
    ForgetJobStates();
    return rc;
}

int AddJob(QueuedJob job) {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    if (!queues.running || queues.listOnly || queues.stopping) return -1;
    return AddLocked(queues, std::move(job));
}

std::vector<QueuedJob> PendingJobs() {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    if (queues.listOnly) return queues.fromLastRun;
    std::vector<QueuedJob> jobs;
    for (auto& queue : queues.printers) {
        jobs.insert(jobs.end(), queue->waiting.begin(), queue->waiting.end());
    }
    return jobs;
}

void LockQueues() {
    TheQueues().lock.lock();
}

void UnlockQueues() {
    TheQueues().lock.unlock();
}

int QueueEntryCount(const std::u16string& printer) {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    PrinterQueue* queue = FindQueue(queues, printer);
    if (queue == nullptr) return 0;
    return static_cast<int>(queue->waiting.size()) + (queue->printing ? 1 : 0);
}

int QueueEntryLine(const std::u16string& printer, int index, char* line, int size) {
    Queues& queues = TheQueues();
    Hold hold(queues.lock);
    PrinterQueue* queue = FindQueue(queues, printer);
    if (queue == nullptr || index < 0 || line == nullptr || size <= 0) return -1;
    // Ranks as a line printer daemon shows them: the job at work is "active".
    int rank = queue->printing ? index : index + 1;
    int waitingIndex = queue->printing ? index - 1 : index;
    if (waitingIndex >= static_cast<int>(queue->waiting.size())) return -1;
    const QueuedJob& job = waitingIndex < 0 ? queue->current : queue->waiting[waitingIndex];

    char owner[64];
    NarrowText(job.owner, vx::kPrinterNameCodePage, owner, sizeof owner);
    char name[vx::kMaxPath * 2];
    if (!job.title.empty()) {
        NarrowText(job.title, vx::kPrinterNameCodePage, name, sizeof name);
    } else {
        size_t slash = job.fileName.find_last_of(u"/\\");
        NarrowText(slash == std::u16string::npos ? job.fileName : job.fileName.substr(slash + 1),
                   vx::kPrinterNameCodePage, name, sizeof name);
    }
    char rankBuffer[16];
    vx::FormatText(line, static_cast<size_t>(size), "%-6.6s %-12.12s%3d  %s\n",
                   RankText(rank, rankBuffer, sizeof rankBuffer), owner, job.number, name);
    return 0;
}

}  // namespace zel
