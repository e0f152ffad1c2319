// JobRecord: a received job as the protocol side hands it to job processing. The job status list
// stores its leading part, up to and including PrintParam1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vx {

enum JobStatus {
    kJobFree = 0,         // "??? free ???"
    kJobPreparing = 1,    // "preparing"
    kJobWaiting = 2,      // "waiting"
    kJobPrinting = 3,     // "printing"
    kJobDone = 4,         // "done"
    kJobError = 5,        // "error"
    kJobSetupAgain1 = 6,  // after the first device error: set up again
    kJobSetupAgain2 = 7,
    kJobSetupAgain3 = 8,
};

struct JobContext;  // the receiving connection's data file path and title

struct JobRecord {
    int32_t Status;
    char PrinterName[257];
    char StatusText[81];
    char JobId[51];
    char Owner[13];
    int32_t Copies;
    int32_t PrintParam1;
    int32_t NoStatusFlag;
    int32_t PrintParam2;
    JobContext* Context;  // not stored in the status list
};

// Releases a record made by CreateJobRecord, with its context.
void ReleaseJobRecord(JobRecord* record);

struct JobRecordReleaser {
    void operator()(JobRecord* record) const { ReleaseJobRecord(record); }
};
// The owner of a record and its job context.
using JobRecordPtr = std::unique_ptr<JobRecord, JobRecordReleaser>;

// A new record with its job context (status 0, one copy, everything else empty), or null.
JobRecordPtr CreateJobRecord();

// Bytes of a JobRecord kept in the job status list.
constexpr size_t kJobStatusElementSize = offsetof(JobRecord, PrintParam1) + sizeof(int32_t);

}  // namespace vx
