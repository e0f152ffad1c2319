// The jobs still waiting when the enhanced mode ends, kept for the next start in a small text
// file beside the output directory: one line per job, UTF-8, fields separated by tabs.
#pragma once

#include <cstddef>
#include <vector>

#include "printlib/queued_job.h"

namespace zel {

// The file's path for an output directory: in the directory that holds it.
void PendingJobsPath(const char* outputDirectory, char* out, size_t size);

// Writes the jobs (a temporary file renamed into place); no jobs removes the file. 0 or -1.
int SavePendingJobs(const char* path, const std::vector<QueuedJob>& jobs);

// Reads the jobs back; a missing file is no jobs. 0, or -1 when the file cannot be read or is
// not one of ours.
int LoadPendingJobs(const char* path, std::vector<QueuedJob>* jobs);

}  // namespace zel
