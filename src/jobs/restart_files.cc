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
#include "jobs/job_lists.h"
#include "jobs/job_record.h"
#include "jobs/job_status_list.h"
#include "jobs/list_lock.h"
#include "jobs/printer_queue.h"
#include "jobs/printer_queues.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr const char* kPrinterFilePrefix = "prnl";
constexpr const char* kRestartFileExtension = ".dbd";
// Written first under this suffix and renamed into place, so that a crash while saving never
// leaves a half-written restart file.
constexpr const char* kTemporarySuffix = ".tmp";

// ---- writing ----

struct Record {
    char data[kMaxRestartRecord + 1];
    size_t length;
};

void PutString(Record* r, const char* text) {
    size_t room = sizeof r->data - r->length;
    if (room == 0) return;
    size_t n = strnlen(text, room - 1);
    memcpy(r->data + r->length, text, n);
    r->data[r->length + n] = '\0';
    r->length += n + 1;
}

void PutByte(Record* r, char c) {
    if (r->length < sizeof r->data) r->data[r->length++] = c;
}

void PutTrailer(Record* r, const char* trailer) {
    size_t n = strlen(trailer);
    if (n > sizeof r->data - r->length) n = sizeof r->data - r->length;
    memcpy(r->data + r->length, trailer, n);
    r->length += n;
}

// One restart file being written under its temporary name.
class RestartFileWriter {
  public:
    explicit RestartFileWriter(const char* path) {
        CopyText(path_, path);
        FormatText(temporary_, sizeof temporary_, "%s%s", path, kTemporarySuffix);
        file_.reset(FsOpenStream(temporary_, "w"));
    }
    ~RestartFileWriter() {
        // Not committed: the temporary file goes, the previous file stays as it was.
        if (file_) {
            file_.reset();
            FsRemove(temporary_);
        }
    }
    RestartFileWriter(const RestartFileWriter&) = delete;
    RestartFileWriter& operator=(const RestartFileWriter&) = delete;

    bool Open() const { return file_ != nullptr; }

    // The length field ("%.5u" for jobs, "%.5d" for statuses: the same digits), then the bytes.
    void Write(const Record& r) {
        if (!file_) return;
        fprintf(file_.get(), "%.5u", static_cast<unsigned>(r.length));
        fwrite(r.data, 1, r.length, file_.get());
    }

    // Closes the file and moves it into place. 0 or -1.
    int Commit() {
        if (!file_) return -1;
        bool ok = ferror(file_.get()) == 0;
        ok = fclose(file_.release()) == 0 && ok;
        if (ok && FsReplace(temporary_, path_) == 0) return 0;
        FsRemove(temporary_);
        TraceError("Cannot write restart file %s\n", path_);
        return -1;
    }

  private:
    char path_[kMaxPath];
    char temporary_[kMaxPath + 8];
    StreamPtr file_;
};

void JobToRecord(const JobInfo& job, Record* r) {
    r->length = 0;
    PutString(r, job.PrinterName);
    PutString(r, job.Owner);
    PutString(r, job.Title);
    // A blank would end the file name when the record is read back.
    char fileName[kMaxPath];
    CopyText(fileName, job.FileName);
    for (char* c = fileName; *c != '\0'; ++c)
        if (*c == ' ') *c = '?';
    PutString(r, fileName);
    PutString(r, job.JobId);
    PutByte(r, job.Protocol == 'S' && job.NoStatusFlag != 0 ? 'N' : job.Protocol);
    char trailer[40];
    FormatText(trailer, sizeof trailer, " %.5d %.5d\n", job.Copies, job.SetupAgain);
    PutTrailer(r, trailer);
}

void StatusToRecord(const JobRecord& status, Record* r) {
    r->length = 0;
    PutString(r, status.JobId);
    PutString(r, status.Owner);
    PutString(r, status.PrinterName);
    PutString(r, status.StatusText);
    char trailer[48];
    FormatText(trailer, sizeof trailer, " %.5d %.5d %.5d\n", status.PrintParam1, status.Status,
               status.Copies);
    PutTrailer(r, trailer);
}

void SavePrinterQueue(const PrinterQueue& queue) {
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s%.5i%s", JobBaseDirectory(), kPrinterFilePrefix,
               queue.JobListId, kRestartFileExtension);
    RestartFileWriter writer(path);
    // A file that cannot be opened is skipped.
    if (!writer.Open()) return;
    {
        ListLockHold hold(queue.JobListId);
        void* data = nullptr;
        Record r;
        for (int rc = GetFirstElement(queue.JobListId, &data, 0); rc == 0 && data != nullptr;
             rc = GetNextElement(queue.JobListId, &data, 0)) {
            JobToRecord(*static_cast<const JobInfo*>(data), &r);
            writer.Write(r);
        }
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
    Record r;
    for (const JobRecord& status : statuses) {
        // Jobs still printing are in a printer file and get status 3 again when restored.
        if (status.Status == kJobPrinting) continue;
        if (g_prsrv != nullptr && g_prsrv->GetPrinterInt(status.PrinterName, "NoStatus", 0) != 0)
            continue;
        StatusToRecord(status, &r);
        writer.Write(r);
    }
    writer.Commit();
}

// ---- reading ----

enum ReadResult { kReadRecord, kReadEnd, kReadTooLong, kReadShort };

// Reads one record into r (terminated after its bytes). *announced is the length field.
ReadResult ReadRecord(FILE* file, Record* r, unsigned* announced) {
    char field[6] = {};
    size_t got = fread(field, 1, 5, file);
    if (got == 0) return kReadEnd;
    unsigned length = 0;
    bool digits = got == 5;
    for (size_t i = 0; digits && i < 5; ++i) digits = isdigit(static_cast<unsigned char>(field[i]));
    if (!digits || sscanf(field, "%5u", &length) != 1 || length > kMaxRestartRecord)
        return kReadTooLong;
    *announced = length;
    r->length = fread(r->data, 1, length, file);
    r->data[r->length] = '\0';
    return r->length < length ? kReadShort : kReadRecord;
}

// Takes the next NUL-terminated string of the record, cut to maxChars.
void TakeString(const Record& r, size_t* at, char* out, size_t cap, size_t maxChars) {
    const char* start = r.data + *at;
    size_t rest = *at < r.length ? r.length - *at : 0;
    size_t n = strnlen(start, rest);
    CopyTextN(out, cap, start, n < maxChars ? n : maxChars);
    *at += n < rest ? n + 1 : n;
}

struct SavedJob {
    char printer[257];
    char owner[13];
    char title[101];
    char fileName[kMaxPath];
    char jobId[51];
    char protocol;
    int32_t noStatus;
    int copies;
    int setupAgain;
};

void ParseJob(const Record& r, SavedJob* job) {
    memset(job, 0, sizeof *job);
    size_t at = 0;
    TakeString(r, &at, job->printer, sizeof job->printer, 256);
    TakeString(r, &at, job->owner, sizeof job->owner, 12);
    TakeString(r, &at, job->title, sizeof job->title, 100);
    TakeString(r, &at, job->fileName, sizeof job->fileName, 259);
    TakeString(r, &at, job->jobId, sizeof job->jobId, 50);
    for (char* c = job->fileName; *c != '\0'; ++c)
        if (*c == '?') *c = ' ';
    job->protocol = at < r.length ? r.data[at++] : 'U';
    if (job->protocol == 'N') {
        job->protocol = 'S';
        job->noStatus = 1;
    }
    if (at < r.length) sscanf(r.data + at, "%5d %5d", &job->copies, &job->setupAgain);
}

void ParseStatus(const Record& r, JobRecord* status) {
    memset(status, 0, sizeof *status);
    size_t at = 0;
    TakeString(r, &at, status->JobId, sizeof status->JobId, 50);
    TakeString(r, &at, status->Owner, sizeof status->Owner, 12);
    TakeString(r, &at, status->PrinterName, sizeof status->PrinterName, 256);
    TakeString(r, &at, status->StatusText, sizeof status->StatusText, 80);
    int param1 = 0, value = 0, copies = 0;
    if (at < r.length) sscanf(r.data + at, "%5d %5d %5d", &param1, &value, &copies);
    status->PrintParam1 = param1;
    status->Status = value;
    status->Copies = copies;
}

int32_t GlobalSetting(const char* name) {
    return g_prsrv != nullptr ? g_prsrv->GetGlobalInt(name, 0) : 0;
}

// A restore file read to its end is deleted, or kept under a time-stamped name.
void RetireRestoreFile(const char* path) {
    if (GlobalSetting("KeepRestoreFile") == 0)
        FsRemove(path);
    else if (g_prsrv != nullptr)
        g_prsrv->RenameWithTimeStamp(path);
}

void RestoreJob(const SavedJob& saved) {
    JobInfo job;
    if (FillJobInfo(saved.printer, saved.fileName, saved.jobId, saved.owner, saved.title,
                    saved.copies, 0, 0, saved.noStatus, saved.protocol, 0, saved.setupAgain,
                    &job) == 0) {
        TraceError("Restoring job %s for printer %s failed.\n", saved.jobId, saved.printer);
        TraceError("File %s missing.\n", saved.fileName);
        return;
    }
    // Restored jobs always go to a queue: an event made for the own-thread road is not needed.
    if (job.hEvent != nullptr) EvClose(job.hEvent);
    job.hEvent = nullptr;
    Trace(kTraceNormal, "Restoring job %s with %d copies for printer %s.\n", saved.jobId,
          saved.copies, saved.printer);
    Trace(kTraceNormal, "Filename = %s Job owner = %s.\n", saved.fileName, saved.owner);
    // A job kept after a device error gets its status (6, 7 or 8) back from the status file.
    if (saved.protocol == 'S' && saved.setupAgain == 0 &&
        JobKeepsStatus(saved.printer, saved.noStatus)) {
        JobRecord status{};
        status.Status = kJobPrinting;
        CopyText(status.StatusText, kStatusTextPrinting);
        CopyText(status.JobId, saved.jobId);
        CopyText(status.Owner, saved.owner);
        CopyText(status.PrinterName, saved.printer);
        status.Copies = saved.copies;
        if (InsertJobStatus(status) != 0) {
            TraceError("Restoring job %s failed\n", saved.jobId);
            return;
        }
    }
    QueueJob(&job);
}

// Hands every record of a restart file to apply. An invalid file (a record over the size limit or
// cut short) is reported and left where it is: false.
template <typename Apply>
bool ReadRestoreRecords(FILE* file, const char* path, const char* kind, Apply apply) {
    Record r;
    for (;;) {
        unsigned length = 0;
        switch (ReadRecord(file, &r, &length)) {
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

void RestorePrinterFile(const char* path) {
    Trace(kTraceNormal, "Restoring printer file %s.\n", path);
    StreamPtr file(FsOpenStream(path, "r"));
    if (!file) return;
    bool valid = ReadRestoreRecords(file.get(), path, "printer", [](const Record& r) {
        SavedJob saved;
        ParseJob(r, &saved);
        RestoreJob(saved);
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
    bool valid = ReadRestoreRecords(file.get(), path, "status", [](const Record& r) {
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

}  // namespace

void SaveQueuesForRestart() {
    Trace(kTraceNormal, "Save printer queues for restart.\n");
    // The queue records are copied first: a queue list's lock and a job list's lock are never
    // held together.
    std::vector<PrinterQueue> queues;
    {
        ListLockHold hold(g_JobQueueList);
        void* data = nullptr;
        for (int rc = GetFirstElement(g_JobQueueList, &data, 0); rc == 0 && data != nullptr;
             rc = GetNextElement(g_JobQueueList, &data, 0))
            queues.push_back(*static_cast<const PrinterQueue*>(data));
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
    for (const std::string& path : files.paths) RestorePrinterFile(path.c_str());
}

}  // namespace vx
