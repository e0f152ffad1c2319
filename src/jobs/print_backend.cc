#include "jobs/print_backend.h"

#include <atomic>

#include "spooler/spooler.h"

namespace vx {

namespace {

const PrintBackend kLinkedBackend = {
    ::PrintFile,
    ::InitEx,
    ::ExitEx,
    ::QueueJobEx,
    ::JobStatusQueryEx,
    ::GetPendingJobsEx,
    ::LockPrinterListEx,
    ::UnlockPrinterListEx,
    ::GetNumberOfEntriesEx,
    ::GetNextQueueEntryEx,
    ::ChangeOptionEx,
    ::LogPrintEnvironment,
    ::WriteFontMetricFile,
    SpoolerCanOpenPrinter,
    SpooledJobFateOf,
};

std::atomic<const PrintBackend*> g_backend{&kLinkedBackend};

}  // namespace

const PrintBackend& Backend() {
    return *g_backend.load();
}

void SetPrintBackendForTest(const PrintBackend* backend) {
    g_backend.store(backend != nullptr ? backend : &kLinkedBackend);
}

}  // namespace vx
