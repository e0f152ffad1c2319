// The job status list: the leading part of the JobRecord of every extended-protocol job, keyed by
// job id and printer name, from receipt until a status query has reported its final status.
#pragma once

#include <cstdint>

#include "jobs/job_record.h"

namespace vx {

constexpr const char* kStatusTextPrinting = "Printing";
constexpr const char* kStatusTextDone = "Done";
constexpr const char* kStatusTextError = "See_logfile_for_details.";

// The report word of a status (0..5), or null for the statuses that have none (6, 7, 8).
const char* JobStatusWord(int32_t status);

// False when a status must not be kept for the job: NoStatus set globally or for the printer, or
// the job's own no-status flag.
bool JobKeepsStatus(const char* printer, int32_t noStatusFlag);

// Appends the record's leading part to the status list. 0 or -1.
int InsertJobStatus(const JobRecord& record);

// Enters a received extended-protocol job: sets status 3 and "Printing" in the record and inserts
// it, unless a no-status setting applies or the print library keeps the statuses. Returns 0 when
// inserted, 1 when the job keeps no status, -1 when the insertion failed (the job is dropped).
int EnterReceivedJob(JobRecord* record);

// Removes the entry of a job that was refused after it was entered. 0, or -1 when absent.
int RemoveJobStatus(const char* printer, const char* jobId);

// Copies the job's record (its leading part; the rest of *out is cleared). 0, or -1 when absent.
int FindJobStatus(const char* printer, const char* jobId, JobRecord* out);

// Writes a print result into the job's record: rc 0 is "done", a device error (11) sets the job up
// again (3 -> 6 -> 7 -> 8) and after that, or with IgnoreDCError, ends it as "error" like any
// other result. Returns rc, or kPrintRetriesExhausted when the device error was the last retry.
int RecordPrintOutcome(const char* printer, const char* jobId, int rc);

// A finished job's data file is kept until the status query of its entry has been answered: true
// when the job has an entry with a final status, whose query will then delete the file; false
// when no entry waits (the caller deletes the file at once).
bool KeepFileForStatusQuery(const char* printer, const char* jobId, const char* dataFile);

// What a status query answers for a job.
enum JobStatusOutcome {
    kStatusFinal = 0,         // final status (0, 4, 5) reported and the record removed
    kStatusUnknown = 1,       // "Status: unknown" with the error lines (report_unknown_status 1)
    kStatusUnknownAsDone = 2  // "Status: done" (report_unknown_status 0)
};

struct JobStatusAnswer {
    JobStatusOutcome outcome;
    const char* word;  // the word after "Status: "
    JobRecord record;  // the removed record for a final status, else cleared
};

// The status query: finds the job under the list lock; a final status is reported once and the
// record removed, any other status leaves the record and is answered like an unknown job.
void AnswerJobStatusQuery(const char* printer, const char* jobId, JobStatusAnswer* answer);

}  // namespace vx
