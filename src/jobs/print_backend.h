// What job processing prints through: the print library and the spooler's printer check. One
// table, so that component tests can put a recording fake behind job processing.
#pragma once

#include "printlib/zelwin.h"
#include "spooler/spool_job.h"

namespace vx {

struct PrintBackend {
    decltype(&::PrintFile) PrintFile;
    decltype(&::InitEx) InitEx;
    decltype(&::ExitEx) ExitEx;
    decltype(&::QueueJobEx) QueueJobEx;
    decltype(&::JobStatusQueryEx) JobStatusQueryEx;
    decltype(&::GetPendingJobsEx) GetPendingJobsEx;
    decltype(&::LockPrinterListEx) LockPrinterListEx;
    decltype(&::UnlockPrinterListEx) UnlockPrinterListEx;
    decltype(&::GetNumberOfEntriesEx) GetNumberOfEntriesEx;
    decltype(&::GetNextQueueEntryEx) GetNextQueueEntryEx;
    decltype(&::ChangeOptionEx) ChangeOptionEx;
    decltype(&::LogPrintEnvironment) LogPrintEnvironment;
    decltype(&::WriteFontMetricFile) WriteFontMetricFile;
    // OpenPrinter succeeds for the name.
    bool (*CanOpenPrinter)(const char* printer);
    // What became of a job handed to the print system by a process that died meanwhile.
    SpooledJobFate (*SpooledJobFateOf)(const char* printer, int number);
};

// The backend in use: the linked print library and the host's spooler unless a test set another.
const PrintBackend& Backend();

// Replaces the backend (null: back to the real one). For tests.
void SetPrintBackendForTest(const PrintBackend* backend);

}  // namespace vx
