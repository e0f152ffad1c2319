// Plain LPD (RFC 1179) towards the server: a receive-job dialogue with one control file and one
// data file per job, and the queue-state queries (a printer's queue, one job's final status).
#pragma once

#include <cstddef>
#include <string>

#include "tools/job_input.h"
#include "tools/send_options.h"
#include "tools/send_result.h"

namespace vx {

struct LpdJobNames {
    char control[48];  // "cfA" number host
    char data[48];     // "dfA" number host: the server's identifier of the job
};

// The names of job number (0 to 999) from this host; the host part keeps letters and digits
// only, as the server keeps them in its file names.
void MakeLpdJobNames(int number, const char* hostName, LpdJobNames* names);

// The control file: host, owner, job name (the title), source file name, one print line per
// copy (raw data: "l"), and the request to remove the data file after printing.
std::string MakeLpdControlFile(const SendOptions& options, const char* hostName,
                               const LpdJobNames& names, const char* title, const char* sourceName);

// Sends one job; progressOut (null: none) gets the progress display of a large one. The job's
// identifier (the data file name) goes to jobId. 0 or -1.
int SendLpdJob(const SendOptions& options, const char* hostName, int number, JobInput& input,
               FILE* progressOut, char* jobId, size_t cap, SendResult* result);

// A queue-state query: the whole answer, NUL bytes left out. With a job name the "JOB" query for
// that job, else the printer's queue. 0 or -1.
int QueryLpd(const SendOptions& options, const char* jobName, std::string* answer,
             SendResult* result);

// What a "JOB" answer says for a script: kExitDelivered when the job is done, kExitRefused when
// it failed or the server does not know it (or the printer), kExitNotFinished when the answer
// carries no final status yet.
int JobStatusExit(const std::string& answer);

}  // namespace vx
