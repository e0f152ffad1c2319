// Printing one queued job through the print library, with the test mode, the time check and the
// status update of extended-protocol jobs.
#pragma once

#include "jobs/printer_queue.h"

namespace vx {

// A device error on the last retry of an extended-protocol job: the job is deleted, not kept.
constexpr int kPrintRetriesExhausted = 12;

// The registry root the print library reads its settings from: the hive of the settings.
int JobRegistryRoot();

// Hands the job to PrintFile once, as it stands. Returns the library's rc.
int CallPrintFile(const JobInfo& job);

// Prints the job (or, with a positive TestMode, fails every TestMode-th job with a device error
// without printing it) and records the outcome of an extended-protocol job in the status list.
int PrintJob(const JobInfo& job);

// Starts the test-mode count again from 0, as at start-up.
void ResetTestModeCount();

}  // namespace vx
