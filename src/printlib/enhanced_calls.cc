// The enhanced mode's entry points: the service hands its jobs to the library's own printer
// queues and asks the library for their states.
#include <algorithm>

#include "printlib/enhanced_queues.h"
#include "printlib/host_trace.h"
#include "printlib/job_states.h"
#include "printlib/library_options.h"
#include "printlib/wide_text.h"
#include "printlib/zelwin.h"
#include "spooler/spool_job.h"

namespace {

// The units of SWE_JOB_INFO's fields that carry text (the last one ends it).
template <size_t N>
void CopyField(const std::u16string& text, ZelWide (&field)[N]) {
    zel::CopyWide(text, field, N);
}

}  // namespace

extern "C" {

ZELWIN_API int InitEx(int, int pendingMode, uint32_t* pendingCount, const ZelHost* host) {
    if (pendingCount != nullptr) *pendingCount = 0;
    if (host == nullptr) return ZEL_RC_BAD_ARGUMENT;
    return zel::StartQueues(host, pendingMode != 0, pendingCount);
}

ZELWIN_API int ExitEx(void) {
    return zel::StopQueues();
}

ZELWIN_API int QueueJobEx(const ZelWide* printerName, const ZelWide* fileName, const ZelWide* title,
                          const ZelWide* owner, int copies, int noStatus, const ZelWide* jobId) {
    if (printerName == nullptr || fileName == nullptr || printerName[0] == 0 || fileName[0] == 0) {
        return ZEL_RC_BAD_ARGUMENT;
    }
    zel::QueuedJob job;
    job.printer = zel::WideText(printerName);
    job.fileName = zel::WideText(fileName);
    job.title = zel::WideText(title);
    job.owner = zel::WideText(owner);
    job.jobId = zel::WideText(jobId);
    job.copies = copies > 0 ? copies : 1;
    job.noStatus = noStatus;
    return zel::AddJob(std::move(job)) == 0 ? ZEL_RC_OK : ZEL_RC_FAILED;
}

ZELWIN_API int JobStatusQueryEx(const ZelWide* jobId, const ZelWide* printerName, int* state,
                                ZelWide* errorText, int errorTextSize) {
    if (jobId == nullptr || state == nullptr) return ZEL_RC_BAD_ARGUMENT;
    std::u16string text;
    if (zel::TakeJobState(zel::WideText(jobId), zel::WideText(printerName), state, &text) != 0) {
        return ZEL_RC_FAILED;
    }
    if (errorText != nullptr && errorTextSize > 0) {
        zel::CopyWide(text, errorText, static_cast<size_t>(errorTextSize));
    }
    return ZEL_RC_OK;
}

ZELWIN_API int GetPendingJobsEx(SWE_JOB_INFO* jobs, uint32_t count) {
    if (jobs == nullptr) return 0;
    std::vector<zel::QueuedJob> pending = zel::PendingJobs();
    uint32_t filled = std::min<uint32_t>(count, static_cast<uint32_t>(pending.size()));
    for (uint32_t i = 0; i < filled; ++i) {
        CopyField(pending[i].printer, jobs[i].PrinterName);
        CopyField(pending[i].fileName, jobs[i].FileName);
        CopyField(pending[i].jobId, jobs[i].JobId);
        CopyField(pending[i].title, jobs[i].Title);
        CopyField(pending[i].owner, jobs[i].Owner);
    }
    return static_cast<int>(filled);
}

ZELWIN_API int LockPrinterListEx(const ZelWide*) {
    zel::LockQueues();
    return 0;
}

ZELWIN_API int UnlockPrinterListEx(const ZelWide*) {
    zel::UnlockQueues();
    return 0;
}

ZELWIN_API int GetNumberOfEntriesEx(const ZelWide* printerName, int* count) {
    if (count == nullptr) return ZEL_RC_BAD_ARGUMENT;
    *count = zel::QueueEntryCount(zel::WideText(printerName));
    return 0;
}

ZELWIN_API int GetNextQueueEntryEx(const ZelWide* printerName, int index, char* line, int size) {
    return zel::QueueEntryLine(zel::WideText(printerName), index, line, size) == 0 ? 0
                                                                                   : ZEL_RC_FAILED;
}

ZELWIN_API int ChangeOptionEx(const char* name, const char* value) {
    if (name == nullptr) return ZEL_RC_BAD_ARGUMENT;
    zel::SetOptionOverride(name, value);
    return 0;
}
}
