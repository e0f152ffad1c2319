#include "jobs/job_status_list.h"

#include <cstring>
#include <string>
#include <vector>

#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/job_journal.h"
#include "jobs/job_lists.h"
#include "jobs/print_job.h"
#include "lists/list_lock.h"
#include "printlib/zelwin.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr const char* kStatusWords[] = {"??? free ???", "preparing", "waiting",
                                        "printing",     "done",      "error"};

struct JobKey {
    const char* jobId;
    const char* printer;
};

// The element is the leading part of a JobRecord: only the fields up to PrintParam1 exist.
int MatchJobKey(const void* key, const void* element, int, void*) {
    const auto* k = static_cast<const JobKey*>(key);
    const auto* r = static_cast<const JobRecord*>(element);
    if (strcmp(k->jobId, r->JobId) != 0) return 1;
    return strcmp(k->printer, r->PrinterName) == 0 ? 0 : 1;
}

bool IsFinal(int32_t status) {
    return status == kJobFree || status == kJobDone || status == kJobError;
}

void SetStatus(JobRecord* record, int32_t status, const char* text) {
    record->Status = status;
    CopyText(record->StatusText, text);
}

// Data files of finished jobs whose final status has not been asked for yet. Guarded by the
// status list's lock.
struct WaitingFile {
    std::string jobId;
    std::string printer;
    std::string path;
};
std::vector<WaitingFile>& WaitingFiles() {
    static std::vector<WaitingFile>* files = new std::vector<WaitingFile>;
    return *files;
}

// Takes the waiting file of a job out of the list; "" when it has none. The list lock is held.
std::string TakeWaitingFile(const char* printer, const char* jobId) {
    std::vector<WaitingFile>& files = WaitingFiles();
    for (auto it = files.begin(); it != files.end(); ++it) {
        if (it->jobId == jobId && it->printer == printer) {
            std::string path = std::move(it->path);
            files.erase(it);
            return path;
        }
    }
    return std::string();
}

}  // namespace

const char* JobStatusWord(int32_t status) {
    if (status < 0 || status > kJobError) return nullptr;
    return kStatusWords[status];
}

bool JobKeepsStatus(const char* printer, int32_t noStatusFlag) {
    if (g_Options.NoStatus != 0 || noStatusFlag != 0) return false;
    if (g_prsrv != nullptr && printer != nullptr &&
        g_prsrv->GetPrinterInt(printer, "NoStatus", BuiltInDefault("NoStatus")) != 0)
        return false;
    return true;
}

int InsertJobStatus(const JobRecord& record) {
    Trace(kTraceDetail, "Insert job %s in status list %i, status = %i\n", record.JobId,
          g_JobStatusList, record.Status);
    return AppendElement(g_JobStatusList, &record, 1);
}

int EnterReceivedJob(JobRecord* record) {
    if (record == nullptr) return -1;
    SetStatus(record, kJobPrinting, kStatusTextPrinting);
    if (g_Options.UseEnhancedSW != 0 || !JobKeepsStatus(record->PrinterName, record->NoStatusFlag))
        return 1;
    return InsertJobStatus(*record) == 0 ? 0 : -1;
}

int RemoveJobStatus(const char* printer, const char* jobId) {
    JobKey key{jobId, printer};
    JobRecord record{};
    int32_t index = 0;
    ListLockHold hold(g_JobStatusList);
    if (!hold.Held() || FindElement(g_JobStatusList, MatchJobKey, &index, &key, &record, 0) != 0)
        return -1;
    return DeleteElementAtIndex(g_JobStatusList, index, 0);
}

int FindJobStatus(const char* printer, const char* jobId, JobRecord* out) {
    if (out == nullptr || printer == nullptr || jobId == nullptr) return -1;
    memset(out, 0, sizeof *out);
    JobKey key{jobId, printer};
    int32_t index = 0;
    return FindElement(g_JobStatusList, MatchJobKey, &index, &key, out, 1);
}

int RecordPrintOutcome(const char* printer, const char* jobId, int rc) {
    JobKey key{jobId, printer};
    JobRecord record{};
    int32_t index = 0;
    // Find and replace under one hold, so that a query cannot remove the record in between.
    ListLockHold hold(g_JobStatusList);
    if (!hold.Held() || FindElement(g_JobStatusList, MatchJobKey, &index, &key, &record, 0) != 0) {
        Trace(kTraceNormal, "Job %s not found in status list %i after processing\n", jobId,
              g_JobStatusList);
        return rc;
    }
    if (rc == ZEL_RC_OK) {
        SetStatus(&record, kJobDone, kStatusTextDone);
    } else if (rc != ZEL_RC_DEVICE || g_Options.IgnoreDCError != 0) {
        SetStatus(&record, kJobError, kStatusTextError);
    } else if (record.Status == kJobPrinting || record.Status == kJobSetupAgain1 ||
               record.Status == kJobSetupAgain2) {
        record.Status = record.Status == kJobPrinting ? kJobSetupAgain1 : record.Status + 1;
        Trace(kTraceNormal, "Job %s will be setup again, status = %i\n", jobId, record.Status);
    } else {
        rc = kPrintRetriesExhausted;
        TraceError("Job %s for printer %s dropped: the print system refused it four times\n", jobId,
                   printer);
        SetStatus(&record, kJobError, kStatusTextError);
    }
    Trace(kTraceDetail, "Replace job %s in status list %i, status = %i\n", jobId, g_JobStatusList,
          record.Status);
    ReplaceElementAtIndex(g_JobStatusList, index, &record, 0);
    return rc;
}

bool KeepFileForStatusQuery(const char* printer, const char* jobId, const char* dataFile) {
    if (printer == nullptr || jobId == nullptr || dataFile == nullptr) return false;
    JobKey key{jobId, printer};
    JobRecord record{};
    int32_t index = 0;
    ListLockHold hold(g_JobStatusList);
    if (!hold.Held() || FindElement(g_JobStatusList, MatchJobKey, &index, &key, &record, 0) != 0 ||
        !IsFinal(record.Status))
        return false;
    TakeWaitingFile(printer, jobId);
    WaitingFiles().push_back(WaitingFile{jobId, printer, dataFile});
    return true;
}

void AnswerJobStatusQuery(const char* printer, const char* jobId, JobStatusAnswer* answer) {
    if (answer == nullptr) return;
    memset(answer, 0, sizeof *answer);
    if (printer == nullptr) printer = "";
    if (jobId == nullptr) jobId = "";
    std::string waitingFile;
    {
        JobKey key{jobId, printer};
        int32_t index = 0;
        // One hold from the find to the delete: a concurrent update is before or after it all.
        ListLockHold hold(g_JobStatusList);
        if (!hold.Held() ||
            FindElement(g_JobStatusList, MatchJobKey, &index, &key, &answer->record, 0) != 0) {
            TraceError("Job %s not found in status list %i\n", jobId, g_JobStatusList);
        } else if (IsFinal(answer->record.Status)) {
            const char* word = JobStatusWord(answer->record.Status);
            Trace(kTraceNormal, "Printjob %s reported as %s\n", jobId, word);
            Trace(kTraceDetail, "Delete job %s from status list %i, status = %i\n", jobId,
                  g_JobStatusList, answer->record.Status);
            DeleteElementAtIndex(g_JobStatusList, index, 0);
            waitingFile = TakeWaitingFile(printer, jobId);
            if (answer->record.Status == kJobError)
                TraceError("Found job error for job %s on printer %s\n", jobId, printer);
            answer->outcome = kStatusFinal;
            answer->word = word;
        } else {
            TraceError("Unexpected status %i for job %s\n", answer->record.Status, jobId);
        }
    }
    if (answer->word != nullptr) {
        // A final status was reported: a file kept for the query goes now.
        if (!waitingFile.empty()) ReleaseFinishedJobFiles(waitingFile.c_str());
        return;
    }
    memset(&answer->record, 0, sizeof answer->record);
    int32_t reportUnknown = g_prsrv != nullptr ? g_prsrv->GetSetting("report_unknown_status")
                                               : BuiltInDefault("report_unknown_status");
    if (reportUnknown != 0) {
        Trace(kTraceNormal, "Job %s not in joblist. ZEL status changed to 'unknown'.\n", jobId);
        answer->outcome = kStatusUnknown;
        answer->word = "unknown";
    } else {
        Trace(kTraceNormal, "Job %s not in joblist. ZEL status changed to 'done'.\n", jobId);
        answer->outcome = kStatusUnknownAsDone;
        answer->word = JobStatusWord(kJobDone);
    }
}

}  // namespace vx
