// The record format of the restart files and of the job records beside received data files: a
// 5-digit decimal length, then that many bytes (NUL-terminated strings, a trailer of numbers
// ending in "\n"). The files are text files: a line end is CR LF on Windows, counted as one byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "base/fileops.h"
#include "jobs/job_record.h"
#include "jobs/printer_queue.h"

namespace vx {

// A record longer than this is not a record of ours.
constexpr unsigned kMaxRestartRecord = 2000;

struct RestartRecord {
    char data[kMaxRestartRecord + 1];
    size_t length;
};

// A queued job as a restart file keeps it. sequence, param1 and param2 are written only for a
// job record beside a data file (sequence > 0); the printer files end their trailer after the
// setup-again flag.
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
    unsigned long long sequence;  // 0: not written
    int param1;
    int param2;
    int finished;     // the job has printed and its file waits for the status query
    int spoolNumber;  // the print system's number of the job once it was handed over, else 0
};

void JobToRecord(const JobInfo& job, RestartRecord* r);
// The job record beside a data file: the printer-file record with the sequence number, the two
// print parameters, the finished flag and the print system's number after the setup-again flag.
void JobToJournalRecord(const JobInfo& job, unsigned long long sequence, int finished,
                        int spoolNumber, RestartRecord* r);
void ParseJob(const RestartRecord& r, SavedJob* job);

// A status record of "stal.dbd".
void StatusToRecord(const JobRecord& status, RestartRecord* r);
void ParseStatus(const RestartRecord& r, JobRecord* status);

enum RestartReadResult { kReadRecord, kReadEnd, kReadTooLong, kReadShort };

// Reads one record into r (terminated after its bytes). *announced is the length field.
RestartReadResult ReadRestartRecord(FILE* file, RestartRecord* r, unsigned* announced);

// Appends one record to a file (made when missing) with a single write, so that a process that
// dies leaves the earlier records whole and at most the new one cut short. With durable set, the
// file reaches the disk before the call returns. 0 or -1.
int AppendRestartRecord(const char* path, const RestartRecord& r, bool durable);

// One restart file written under a temporary name ("<path>.tmp") and moved into place by Commit,
// so that a crash while writing never leaves a half-written file. With durable set, the file and
// its directory entry reach the disk before Commit returns.
class RestartFileWriter {
  public:
    explicit RestartFileWriter(const char* path, bool durable = false);
    ~RestartFileWriter();
    RestartFileWriter(const RestartFileWriter&) = delete;
    RestartFileWriter& operator=(const RestartFileWriter&) = delete;

    bool Open() const { return file_ != nullptr; }
    void Write(const RestartRecord& r);
    // Closes the file and moves it into place. 0 or -1 (the previous file stays as it was).
    int Commit();

  private:
    char path_[kMaxPath];
    char temporary_[kMaxPath + 8];
    bool durable_;
    StreamPtr file_;
};

}  // namespace vx
