#include "jobs/restart_files.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/fileops.h"
#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/job_info.h"
#include "jobs/job_journal.h"
#include "jobs/job_lists.h"
#include "jobs/job_record.h"
#include "jobs/job_status_list.h"
#include "jobs/printer_queue.h"
#include "jobs/printer_queues.h"
#include "jobs/restart_record.h"
#include "lists/list_lock.h"
#include "lists/typed_list.h"
#include "printserver/global_setting.h"
#include "printserver/zelprsrv.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

constexpr const char* kPrinterFilePrefix = "prnl";
constexpr const char* kRestartFileExtension = ".dbd";

// ---- writing ----

void SavePrinterQueue(const PrinterQueue& queue) {
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s%.5i%s", JobBaseDirectory(), kPrinterFilePrefix,
               queue.JobListId, kRestartFileExtension);
    RestartFileWriter writer(path);
    // A file that cannot be opened is skipped.
    if (!writer.Open()) return;
    {
        ListLockHold hold(queue.JobListId);
        RestartRecord r;
        TypedList<JobInfo>(queue.JobListId).ForEach([&](const JobInfo& job) {
            JobToRecord(job, &r);
            writer.Write(r);
            return false;
        });
    }
    writer.Commit();
}

void SaveStatusList() {
    std::vector<JobRecord> statuses;
    {
        ListLockHold hold(g_JobStatusList);
        void* data = nullptr;
        for (int rc = GetFirstElement(g_JobStatusList, &data, 0); rc == 0 && data != nullptr;
             rc = GetNextElement(g_JobStatusList, &data, 0)) {
            JobRecord record{};
            memcpy(&record, data, kJobStatusElementSize);
            statuses.push_back(record);
        }
    }
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", JobBaseDirectory(), kStatusFileName);
    RestartFileWriter writer(path);
    if (!writer.Open()) return;
    RestartRecord r;
    for (const JobRecord& status : statuses) {
        // Jobs still printing are in a printer file and get status 3 again when restored.
        if (status.Status == kJobPrinting) continue;
        if (g_prsrv != nullptr &&
            g_prsrv->GetPrinterInt(status.PrinterName, "NoStatus", BuiltInDefault("NoStatus")) != 0)
            continue;
        StatusToRecord(status, &r);
        writer.Write(r);
    }
    writer.Commit();
}

// ---- reading ----

// A restore file read to its end is deleted, or kept under a time-stamped name.
void RetireRestoreFile(const char* path) {
    if (GlobalSetting("KeepRestoreFile") == 0)
        FsRemove(path);
    else if (g_prsrv != nullptr)
        g_prsrv->RenameWithTimeStamp(path);
}

// Enters a status record for a saved job. 0 or -1.
int InsertSavedJobStatus(const SavedJob& saved, int32_t value, const char* text) {
    JobRecord status{};
    status.Status = value;
    CopyText(status.StatusText, text);
    CopyText(status.JobId, saved.jobId);
    CopyText(status.Owner, saved.owner);
    CopyText(status.PrinterName, saved.printer);
    status.Copies = saved.copies;
    return InsertJobStatus(status);
}

// Puts a saved job back into its queue. fromJournal: the job comes from its journal (the
// process died before it could save its queues), which also keeps its print parameters.
void RestoreJob(const SavedJob& saved, bool fromJournal) {
    JobInfo job;
    int32_t param1 = fromJournal ? saved.param1 : 0;
    int32_t param2 = fromJournal ? saved.param2 : 0;
    if (FillJobInfo(saved.printer, saved.fileName, saved.jobId, saved.owner, saved.title,
                    saved.copies, param1, param2, saved.noStatus, saved.protocol, 0,
                    saved.setupAgain, &job) == 0) {
        TraceError("Restoring job %s for printer %s failed.\n", saved.jobId, saved.printer);
        TraceError("File %s missing.\n", saved.fileName);
        // A journal without its data file has nothing left to print.
        if (fromJournal) ReleaseFinishedJobFiles(saved.fileName);
        return;
    }
    // Only a job the service received has a journal; its file goes when the job is final.
    job.ReceivedFile = fromJournal || HasJobJournal(saved.fileName) ? 1 : 0;
    if (fromJournal) job.JournalSequence = saved.sequence;
    // Restored jobs always go to a queue: an event made for the own-thread road is not needed.
    if (job.hEvent != nullptr) EvClose(job.hEvent);
    job.hEvent = nullptr;
    Trace(kTraceNormal, "Restoring job %s with %d copies for printer %s.\n", saved.jobId,
          saved.copies, saved.printer);
    Trace(kTraceNormal, "Filename = %s Job owner = %s.\n", saved.fileName, saved.owner);
    // A job kept after a device error gets its status (6, 7 or 8) back from the status file.
    if (saved.protocol == 'S' && saved.setupAgain == 0 &&
        JobKeepsStatus(saved.printer, saved.noStatus) &&
        InsertSavedJobStatus(saved, kJobPrinting, kStatusTextPrinting) != 0) {
        TraceError("Restoring job %s failed\n", saved.jobId);
        return;
    }
    QueueJob(&job);
}

// Hands every record of a restart file to apply. An invalid file (a record over the size limit or
// cut short) is reported and left where it is: false.
template <typename Apply>
bool ReadRestoreRecords(FILE* file, const char* path, const char* kind, Apply apply) {
    RestartRecord r;
    for (;;) {
        unsigned length = 0;
        switch (ReadRestartRecord(file, &r, &length)) {
            case kReadRecord:
                apply(r);
                continue;
            case kReadTooLong:
                TraceError("Invalid %s file %s.\n", kind, path);
                return false;
            case kReadShort:
                TraceError("Invalid line size %u in %s file %s.\n", length, kind, path);
                return false;
            case kReadEnd:
                return true;
        }
        return true;
    }
}

void RestorePrinterFile(const char* path, std::vector<std::string>* restoredFiles) {
    Trace(kTraceNormal, "Restoring printer file %s.\n", path);
    StreamPtr file(FsOpenStream(path, "r"));
    if (!file) return;
    bool valid =
        ReadRestoreRecords(file.get(), path, "printer", [restoredFiles](const RestartRecord& r) {
            SavedJob saved;
            ParseJob(r, &saved);
            restoredFiles->emplace_back(saved.fileName);
            RestoreJob(saved, false);
        });
    if (!valid) return;
    file.reset();
    RetireRestoreFile(path);
}

void RestoreStatusFile() {
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", JobBaseDirectory(), kStatusFileName);
    if (!FsExists(path)) return;
    if (g_Options.NoStatus != 0) {
        if (GlobalSetting("KeepFile") == 0) FsRemove(path);
        return;
    }
    Trace(kTraceNormal, "Restoring status file %s\n", path);
    StreamPtr file(FsOpenStream(path, "r"));
    if (!file) return;
    bool valid = ReadRestoreRecords(file.get(), path, "status", [](const RestartRecord& r) {
        JobRecord status;
        ParseStatus(r, &status);
        Trace(kTraceNormal, "Restoring status %d for job %s.\n", status.Status, status.JobId);
        if (InsertJobStatus(status) != 0) TraceError("Restoring job %s failed\n", status.JobId);
    });
    if (!valid) return;
    file.reset();
    RetireRestoreFile(path);
}

bool HasPrefixNoCase(const char* name, const char* prefix) {
    for (; *prefix != '\0'; ++name, ++prefix)
        if (tolower(static_cast<unsigned char>(*name)) != *prefix) return false;
    return true;
}

// "prnl*.dbd", with the case rules of a Windows directory search.
bool IsPrinterFileName(const char* name) {
    size_t len = strlen(name);
    size_t prefix = strlen(kPrinterFilePrefix), extension = strlen(kRestartFileExtension);
    return len >= prefix + extension && HasPrefixNoCase(name, kPrinterFilePrefix) &&
           HasPrefixNoCase(name + len - extension, kRestartFileExtension);
}

struct PrinterFileList {
    std::vector<std::string> paths;
};

int CollectPrinterFile(void* context, const char* name) {
    if (!IsPrinterFileName(name)) return 0;
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", JobBaseDirectory(), name);
    if (FsIsDirectory(path)) return 0;
    static_cast<PrinterFileList*>(context)->paths.emplace_back(path);
    return 0;
}

// A job that was printing when the process died: when the print system holds it whole, it is
// not printed again. Its status, if it keeps one, is "done" from now on.
bool PrintedBeforeTheRestart(const SavedJob& saved) {
    if (Spooler().SpooledJobFateOf(saved.printer, saved.spoolNumber) != SpooledJobFate::kTaken)
        return false;
    Trace(kTraceNormal,
          "Job %s was taken by the print system as job %d before the restart: not printed "
          "again.\n",
          saved.jobId, saved.spoolNumber);
    JobRecord status;
    if (saved.protocol == 'S' && JobKeepsStatus(saved.printer, saved.noStatus) &&
        FindJobStatus(saved.printer, saved.jobId, &status) != 0)
        InsertSavedJobStatus(saved, kJobDone, kStatusTextDone);
    if (!KeepFileForStatusQuery(saved.printer, saved.jobId, saved.fileName))
        ReleaseFinishedJobFiles(saved.fileName);
    return true;
}

bool Contains(const std::vector<std::string>& paths, const char* path) {
    for (const std::string& p : paths)
        if (p == path) return true;
    return false;
}

// The jobs that only their journals know of: the process ended without saving its queues.
void RestoreJournaledJobs(const std::vector<std::string>& restoredFiles) {
    for (const SavedJob& saved : ReadJobJournals()) {
        if (saved.finished != 0) {
            // Printed; its file waits for the status query, if the status entry came back.
            JobRecord status;
            if (FindJobStatus(saved.printer, saved.jobId, &status) != 0 ||
                !KeepFileForStatusQuery(saved.printer, saved.jobId, saved.fileName))
                ReleaseFinishedJobFiles(saved.fileName);
            continue;
        }
        if (Contains(restoredFiles, saved.fileName)) continue;
        if (saved.spoolNumber > 0 && PrintedBeforeTheRestart(saved)) continue;
        RestoreJob(saved, true);
    }
}

}  // namespace

void SaveQueuesForRestart() {
    Trace(kTraceNormal, "Save printer queues for restart.\n");
    // The queue records are copied first: a queue list's lock and a job list's lock are never
    // held together.
    std::vector<PrinterQueue> queues;
    {
        ListLockHold hold(g_JobQueueList);
        TypedList<PrinterQueue>(g_JobQueueList).ForEach([&](const PrinterQueue& queue) {
            queues.push_back(queue);
            return false;
        });
    }
    for (const PrinterQueue& queue : queues) SavePrinterQueue(queue);
    if (g_Options.NoStatus == 0) SaveStatusList();
}

void RestoreQueues() {
    if (g_Options.UseEnhancedSW != 0) return;
    RestoreStatusFile();
    PrinterFileList files;
    const char* base = JobBaseDirectory();
    FsListDirectory(base[0] != '\0' ? base : ".", CollectPrinterFile, &files);
    std::vector<std::string> restoredFiles;
    for (const std::string& path : files.paths) RestorePrinterFile(path.c_str(), &restoredFiles);
    RestoreJournaledJobs(restoredFiles);
}

}  // namespace vx
