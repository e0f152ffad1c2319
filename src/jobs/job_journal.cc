#include "jobs/job_journal.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/job_info.h"
#include "jobs/job_status_list.h"
#include "jobs/spare_files.h"
#include "printserver/global_setting.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// Orders the journals of one run and across runs: the next start continues beyond the highest
// one it finds.
std::atomic<unsigned long long> g_sequence{1};

// "<data file>.job"; false when the name does not fit.
bool JournalPath(const char* dataFile, char* out, size_t cap) {
    if (dataFile == nullptr || dataFile[0] == '\0') return false;
    return FormatText(out, cap, "%s%s", dataFile, kJournalExtension) + 1 < cap;
}

bool KeepFiles() {
    return GlobalSetting("KeepFile") != 0;
}

void RemoveDataFile(const char* path) {
    if (DisposeJobFile(path))
        Trace(kTraceNotable, "File %s successfully deleted.\n", path);
    else if (FsExists(path))
        TraceError("Cannot delete file %s \n.", path);
}

// Each state of a job is one record appended to its journal (the first one into the empty
// reservation), the last whole record standing for the job: no new file per state, and a process
// that dies while appending leaves the state before it.
int WriteJournal(const JobInfo& job, unsigned long long sequence, int finished, int spoolNumber) {
    char path[kMaxPath];
    if (!JournalPath(job.FileName, path, sizeof path)) {
        TraceError("Cannot write the job record of job %s: the path is too long\n", job.JobId);
        return -1;
    }
    RestartRecord r;
    JobToJournalRecord(job, sequence, finished, spoolNumber, &r);
    if (AppendRestartRecord(path, r, SyncJobFiles()) == 0) return 0;
    TraceError("Cannot write the job record %s\n", path);
    return -1;
}

// The sequence a journal was written with, so that a rewrite keeps the job's place (a new one
// when it cannot be read).
unsigned long long KeptSequence(const char* path) {
    StreamPtr file(FsOpenStream(path, "r"));
    RestartRecord r;
    unsigned length = 0;
    if (file && ReadRestartRecord(file.get(), &r, &length) == kReadRecord) {
        SavedJob saved;
        ParseJob(r, &saved);
        if (saved.sequence != 0) return saved.sequence;
    }
    return g_sequence.fetch_add(1);
}

// Rewrites the journal of a job that has one.
void RewriteJournal(const JobInfo& job, int finished, int spoolNumber) {
    char path[kMaxPath];
    if (job.ReceivedFile == 0 || !JournalPath(job.FileName, path, sizeof path) || !FsExists(path))
        return;
    WriteJournal(job, job.JournalSequence != 0 ? job.JournalSequence : KeptSequence(path), finished,
                 spoolNumber);
}

struct JournalList {
    std::vector<SavedJob> jobs;
};

bool EndsWithNoCase(const char* name, const char* ending) {
    size_t len = strlen(name), n = strlen(ending);
    return len > n && EqualsNoCase(name + len - n, ending);
}

// A journal under its temporary name, as earlier versions wrote them ("<data file>.job.tmp").
constexpr const char* kHalfWrittenJournal = ".job.tmp";

int CollectJournal(void* context, const char* name) {
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", JobBaseDirectory(), name);
    if (EndsWithNoCase(name, kHalfWrittenJournal)) {
        FsRemove(path);
        return 0;
    }
    if (!EndsWithNoCase(name, kJournalExtension)) return 0;
    // The first record, then every whole one after it: the last stands for the job.
    RestartRecord r, later;
    unsigned length = 0;
    RestartReadResult read;
    {
        StreamPtr file(FsOpenStream(path, "r"));
        if (!file) return 0;
        read = ReadRestartRecord(file.get(), &r, &length);
        while (read == kReadRecord && ReadRestartRecord(file.get(), &later, &length) == kReadRecord)
            r = later;
    }
    if (read == kReadEnd || read == kReadShort) {
        // Only reserved, or its first record cut short: the data file was never acknowledged.
        char dataFile[kMaxPath];
        CopyTextN(dataFile, sizeof dataFile, path, strlen(path) - strlen(kJournalExtension));
        Trace(kTraceNormal, "Data file %s did not arrive whole before the restart: removed.\n",
              dataFile);
        FsRemove(dataFile);
        FsRemove(path);
        return 0;
    }
    if (read != kReadRecord) {
        TraceError("Invalid job record %s.\n", path);
        return 0;
    }
    SavedJob saved;
    ParseJob(r, &saved);
    static_cast<JournalList*>(context)->jobs.push_back(saved);
    return 0;
}

}  // namespace

int ReserveJobJournal(const char* dataFile, bool* taken) {
    if (taken != nullptr) *taken = false;
    if (!JournalingOn()) return 0;
    char path[kMaxPath];
    if (!JournalPath(dataFile, path, sizeof path)) return -1;
    return NewEmptyJobFile(path, taken);
}

void RemoveJobJournalOf(const char* dataFile) {
    char path[kMaxPath];
    if (JournalPath(dataFile, path, sizeof path)) FsRemove(path);
}

bool SyncJobFiles() {
    return GlobalSetting(kSyncJobFilesSetting) != 0;
}

bool JournalingOn() {
    return g_Options.UseEnhancedSW == 0 && g_Options.NoJobRestore == 0;
}

bool HasJobJournal(const char* dataFile) {
    char path[kMaxPath];
    return JournalPath(dataFile, path, sizeof path) && FsExists(path);
}

int WriteJobJournal(JobInfo* job) {
    if (job->ReceivedFile == 0 || !JournalingOn()) return 0;
    unsigned long long sequence = g_sequence.fetch_add(1);
    if (WriteJournal(*job, sequence, 0, 0) != 0) return -1;
    job->JournalSequence = sequence;
    return 0;
}

void UpdateJobJournal(const JobInfo& job) {
    RewriteJournal(job, 0, 0);
}

void NoteJobSpooled(const JobInfo& job, int spoolNumber) {
    RewriteJournal(job, 0, spoolNumber);
}

void RemoveJobJournal(const JobInfo& job) {
    if (job.ReceivedFile != 0) RemoveJobJournalOf(job.FileName);
}

void RetireJobFiles(const JobInfo& job) {
    if (job.ReceivedFile == 0) return;
    char path[kMaxPath];
    bool journaled = JournalPath(job.FileName, path, sizeof path) && FsExists(path);
    // An extended-protocol job whose final status waits for its query keeps its file until the
    // query: the journal stays, marked finished, so that a restart still knows the file.
    if (!KeepFiles() && job.Protocol == 'S' &&
        KeepFileForStatusQuery(job.PrinterName, job.JobId, job.FileName)) {
        if (journaled) RewriteJournal(job, 1, 0);
        return;
    }
    // The data file first: a journal without its data file is cleared at the next start, a data
    // file without its journal would stay for ever.
    if (!KeepFiles()) RemoveDataFile(job.FileName);
    if (journaled) DisposeJobFile(path);
}

void ReleaseFinishedJobFiles(const char* dataFile) {
    if (dataFile == nullptr || dataFile[0] == '\0') return;
    if (!KeepFiles()) RemoveDataFile(dataFile);
    char path[kMaxPath];
    if (JournalPath(dataFile, path, sizeof path)) DisposeJobFile(path);
}

std::vector<SavedJob> ReadJobJournals() {
    JournalList list;
    const char* base = JobBaseDirectory();
    FsListDirectory(base[0] != '\0' ? base : ".", CollectJournal, &list);
    std::stable_sort(list.jobs.begin(), list.jobs.end(),
                     [](const SavedJob& a, const SavedJob& b) { return a.sequence < b.sequence; });
    unsigned long long next = 1;
    for (const SavedJob& job : list.jobs) next = std::max(next, job.sequence + 1);
    unsigned long long current = g_sequence.load();
    while (current < next && !g_sequence.compare_exchange_weak(current, next)) {
    }
    return std::move(list.jobs);
}

}  // namespace vx
