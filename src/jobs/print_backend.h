// What job processing prints through: the print library. One table, so that component tests can
// put a recording fake behind job processing; the print system itself is behind
// spooler/spooler_seam.h.
#pragma once

#include "printlib/zelwin.h"

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
};

// The backend in use: the linked print library unless a test set another.
const PrintBackend& Backend();

// Replaces the backend (null: back to the real one). For tests.
void SetPrintBackendForTest(const PrintBackend* backend);

}  // namespace vx
