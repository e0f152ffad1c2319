// The job journal: beside the data file of every received job lies a small record of the job
// ("<data file>.job"), written before the sender hears the acknowledgement and removed when the
// job has reached a final state. A job whose process dies (kill -9, power loss) is found again
// through it at the next start and printed once. The orderly stop still writes the restart files;
// the journal only adds what those cannot cover.
//
// When a job is final its data file goes too, unless KeepFile is 1 or a status entry still waits
// for its query: then the journal stays, marked finished, until the query has been answered.
#pragma once

#include <cstdint>
#include <vector>

#include "jobs/printer_queue.h"
#include "jobs/restart_record.h"

namespace vx {

constexpr const char* kJournalExtension = ".job";

// The setting that makes the data file and its journal reach the disk before the acknowledgement
// (for hosts that must survive a power loss). Default 0: the system writes them back in its time.
constexpr const char* kSyncJobFilesSetting = "SyncJobFiles";
bool SyncJobFiles();

// True when received jobs are journaled: the service keeps queues of its own and restores them.
bool JournalingOn();

// Reserves the journal of a data file about to be received: an empty "<data file>.job", created
// exclusively. A process that dies before the journal is written leaves the reservation, by which
// the next start knows the data file for a fragment and removes both. 0, or -1 (*taken: the name
// is in use). Nothing is reserved (0) when journaling is off.
int ReserveJobJournal(const char* dataFile, bool* taken);

// Removes the journal (or its reservation) of a data file.
void RemoveJobJournalOf(const char* dataFile);

// Writes the journal of a received job (ReceivedFile set) and notes its sequence in the job. 0, or
// -1 (nothing written); 0 without writing anything when journaling is off.
int WriteJobJournal(JobInfo* job);

// Rewrites the journal of a job kept first in its queue after a device error (SetupAgain).
void UpdateJobJournal(const JobInfo& job);

// The print system has made the job under this number: a process that dies from here on leaves
// the next start the means to ask whether the job must print again.
void NoteJobSpooled(const JobInfo& job, int spoolNumber);

// The journal of a job that was refused before it reached a queue (its data file is the
// receiver's to remove).
void RemoveJobJournal(const JobInfo& job);

// The job has reached a final state (printed, or failed for good). Its journal goes, or stays
// marked finished while a status entry waits for the file; its data file goes unless KeepFile is
// 1 or a status entry waits. Jobs the service did not receive (local files) keep their files.
void RetireJobFiles(const JobInfo& job);

// Removes a finished job's journal and data file once its status query has been answered.
void ReleaseFinishedJobFiles(const char* dataFile);

// Start-up: the jobs of every journal in the temporary directory, in the order they were
// received (finished ones included: their status entries decide about them). Sets the journal
// sequence beyond every one found. A reservation (an empty journal: the process died while the
// data file arrived) is removed with its data file, and so are journals left half-written; a
// journal that cannot be read is reported and left alone.
std::vector<SavedJob> ReadJobJournals();

// True when a journal lies beside the data file.
bool HasJobJournal(const char* dataFile);

}  // namespace vx
