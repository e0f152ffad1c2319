#include "jobs/print_job.h"

#include <atomic>

#include "base/clock.h"
#include "config/option_globals.h"
#include "config/process_state.h"
#include "jobs/job_journal.h"
#include "jobs/job_status_list.h"
#include "jobs/print_backend.h"
#include "jobs/zel_wide.h"
#include "printlib/zelwin.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr size_t kMaxPrinterChars = 256;

// Jobs printed since start while TestMode is on. One integer without a lock: under concurrent
// printing the exact count is not guaranteed, which the test mode does not need.
std::atomic<int32_t> g_testModeCount{0};

// True for the job that the test mode turns into a device error.
bool TestModeFails(int32_t testMode) {
    int32_t count = g_testModeCount.fetch_add(1) + 1;
    if (count < testMode) return false;
    g_testModeCount.store(0);
    return true;
}

int TimedPrintFile(const JobInfo& job) {
    uint64_t start = HighResCounter();
    int rc = CallPrintFile(job);
    uint64_t stop = HighResCounter();
    uint64_t frequency = HighResFrequency();
    int ms = frequency != 0 ? static_cast<int>((stop - start) * 1000 / frequency) : -1;
    Trace(kTraceNormal, "Time needed for job processing: %d ms\n", ms);
    return rc;
}

// The print-server object's host, lent to one print call of a received job, with an ear for the
// number the print system gives the job: it goes into the job's journal.
struct JobHost {
    ZelHost host;
    const ZelHost* inner;
    const JobInfo* job;
};

const JobHost& Lender(void* context) {
    return *static_cast<const JobHost*>(context);
}

int32_t LentOptionValue(void* context, const char* printer, const char* name, int32_t def) {
    const ZelHost* inner = Lender(context).inner;
    return inner->GetOptionValue(inner->context, printer, name, def);
}

void LentString(void* context, const char* name, const char* def, char* buffer, size_t size) {
    const ZelHost* inner = Lender(context).inner;
    inner->GetString(inner->context, name, def, buffer, size);
}

void LentOutputDirectory(void* context, char* buffer, size_t size) {
    const ZelHost* inner = Lender(context).inner;
    inner->GetOutputDirectory(inner->context, buffer, size);
}

void LentTrace(void* context, int level, const char* text) {
    const ZelHost* inner = Lender(context).inner;
    inner->Trace(inner->context, level, text);
}

void JobSpooled(void* context, const char*, int number) {
    NoteJobSpooled(*Lender(context).job, number);
}

// Once the service is ending, a job the print system holds is left to it: the stop must not wait
// for a printer.
int ServiceEnding(void*) {
    return g_StopReason != kStopNone ? 1 : 0;
}

}  // namespace

int JobRegistryRoot() {
    return g_prsrv != nullptr && g_prsrv->Hive() == kHiveCurrentUser ? ZEL_ROOT_CURRENT_USER
                                                                     : ZEL_ROOT_LOCAL_MACHINE;
}

int CallPrintFile(const JobInfo& job) {
    ZelWide printer[kMaxPrinterChars + 1];
    ToZelWide(job.PrinterName, kMaxPrinterChars, printer, kMaxPrinterChars + 1);
    const ZelHost* host = g_prsrv != nullptr ? g_prsrv->Host() : nullptr;
    JobHost lent{{}, host, &job};
    if (host != nullptr && job.ReceivedFile != 0) {
        lent.host = {&lent,     LentOptionValue, LentString,   LentOutputDirectory,
                     LentTrace, JobSpooled,      ServiceEnding};
        host = &lent.host;
    }
    // The library takes the second print parameter before the first.
    return Backend().PrintFile(job.FileName, job.WorkDir, job.WorkDir, printer, job.JobId,
                               job.Title, job.Owner, job.Copies, job.WideData, job.StreamType,
                               nullptr, nullptr, JobRegistryRoot(), nullptr, job.PrintParam2,
                               job.PrintParam1, host);
}

int PrintJob(const JobInfo& job) {
    Trace(kTraceDetail, "Printing job %s for owner %s\n", job.FileName, job.Owner);
    int rc;
    // Only a positive TestMode counts jobs; zero and negative values print every job.
    int32_t testMode = g_Options.TestMode;
    if (testMode > 0)
        rc = TestModeFails(testMode) ? ZEL_RC_DEVICE : CallPrintFile(job);
    else if (g_Options.LogTimeCheck != 0)
        rc = TimedPrintFile(job);
    else
        rc = CallPrintFile(job);
    Trace(kTraceDetail, "Print job %s finished with rc = %d\n", job.JobId, rc);
    Trace(kTraceDetail, "File name = %s\n", job.FileName);

    if (job.Protocol == 'S' && JobKeepsStatus(job.PrinterName, job.NoStatusFlag))
        rc = RecordPrintOutcome(job.PrinterName, job.JobId, rc);
    return rc;
}

void ResetTestModeCount() {
    g_testModeCount.store(0);
}

}  // namespace vx
