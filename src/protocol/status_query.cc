// The job query: the final status of one job, reported once, from the job status list or (with
// UseEnhancedSW) from the print library; and the printer names a query may use.
#include "protocol/status_query.h"

#include <cstdint>
#include <cstring>

#include "base/codepage.h"
#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/job_status_list.h"
#include "jobs/print_backend.h"
#include "jobs/zel_wide.h"
#include "printserver/zelprsrv.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

constexpr const char* kErrorProtocol = "&&ERRORPROT&&\n";
constexpr const char* kServiceProblem = "&&1SPO801 Der verarbeitende Vorlix meldet Probleme.\n";
constexpr const char* kMaybeNotPrinted = "&&1SPO813 Vorlix: Auftrag eventuell nicht gedruckt.\n";

constexpr size_t kJobIdSize = 51;
constexpr size_t kErrorTextSize = 81;  // the library's error text: at most 80 characters

const char* const kDefaultPrinterNames[] = {"%DEFAULT%", "__DEFAULT", "__Default", "__default"};

void SendStatus(NetSocket& socket, const char* word) {
    char line[64];
    FormatText(line, sizeof line, "Status: %s\n", word);
    SendString(socket, line);
}

void SendJobError(NetSocket& socket, const char* errorText) {
    SendString(socket, kErrorProtocol);
    SendString(socket, kServiceProblem);
    SendString(socket, errorText);
}

void SendUnknownAnswer(NetSocket& socket) {
    SendStatus(socket, "unknown");
    SendString(socket, kErrorProtocol);
    SendString(socket, kMaybeNotPrinted);
}

// A job the print library does not report as final: "unknown", or "done" for senders that
// asked not to hear of unknown jobs.
void AnswerUnknownJob(NetSocket& socket, const char* job) {
    int32_t reportUnknown = g_prsrv != nullptr ? g_prsrv->GetSetting("report_unknown_status")
                                               : BuiltInDefault("report_unknown_status");
    if (reportUnknown != 0) {
        Trace(kTraceNormal, "Job %s not in joblist. ZEL status changed to 'unknown'.\n", job);
        SendUnknownAnswer(socket);
    } else {
        Trace(kTraceNormal, "Job %s not in joblist. ZEL status changed to 'done'.\n", job);
        SendStatus(socket, JobStatusWord(kJobDone));
    }
}

// The print library's job states as status values; -1 for a state it should not report.
int32_t StatusOfLibraryState(int state) {
    switch (state) {
        case ZEL_JOB_WAITING:
            return kJobPreparing;
        case ZEL_JOB_PRINTING:
            return kJobPrinting;
        case ZEL_JOB_DONE:
            return kJobDone;
        case ZEL_JOB_ERROR:
            return kJobError;
        default:
            return -1;
    }
}

void QueryLibraryJob(NetSocket& socket, const char* printer, const char* job) {
    ZelWide wideJob[kJobIdSize];
    ZelWide widePrinter[kQueueNameSize];
    ToZelWide(job, kJobIdSize - 1, wideJob, kJobIdSize);
    ToZelWide(printer, kQueueNameSize - 1, widePrinter, kQueueNameSize);
    int state = 0;
    ZelWide wideError[kErrorTextSize] = {};
    int rc = Backend().JobStatusQueryEx(wideJob, widePrinter, &state, wideError,
                                        static_cast<int>(kErrorTextSize));
    if (rc != 0) {
        TraceError("JobStatusQueryEx returns %i for job %s.\n", rc, job);
        AnswerUnknownJob(socket, job);
        return;
    }
    int32_t status = StatusOfLibraryState(state);
    if (status != kJobDone && status != kJobError) {
        TraceError("Unexpected status %i for job %s\n", status < 0 ? state : status, job);
        AnswerUnknownJob(socket, job);
        return;
    }
    const char* word = JobStatusWord(status);
    Trace(kTraceNormal, "Printjob %s reported as %s\n", job, word);
    SendStatus(socket, word);
    if (status != kJobError) return;
    char16_t units[kErrorTextSize];
    for (size_t i = 0; i < kErrorTextSize; ++i) units[i] = wideError[i];
    units[kErrorTextSize - 1] = 0;
    char errorText[kErrorTextSize] = {};
    Utf16ToCodePage(units, SIZE_MAX, 0, errorText, sizeof errorText);
    SendJobError(socket, errorText);
    TraceError("Found job error for job %s on printer %s\n", job, printer);
}

void QueryListedJob(NetSocket& socket, const char* printer, const char* job) {
    JobStatusAnswer answer;
    AnswerJobStatusQuery(printer, job, &answer);
    SendStatus(socket, answer.word != nullptr ? answer.word : "unknown");
    if (answer.outcome == kStatusFinal && answer.record.Status == kJobError) {
        SendJobError(socket, answer.record.StatusText);
    } else if (answer.outcome == kStatusUnknown) {
        SendString(socket, kErrorProtocol);
        SendString(socket, kMaybeNotPrinted);
    }
}

}  // namespace

int ResolveDefaultPrinter(char* printer, size_t size) {
    if (printer == nullptr || size == 0) return -1;
    bool isDefaultName = false;
    for (const char* name : kDefaultPrinterNames) isDefaultName |= strcmp(printer, name) == 0;
    if (!isDefaultName) return 0;
    char found[kQueueNameSize];
    if (Spooler().GetDefaultPrinter(found, sizeof found) == kSpoolerOk && found[0] != '\0') {
        CopyText(printer, size, found);
        Trace(kTraceNotable, "Found default printer %s.\n", printer);
        return 0;
    }
    TraceError("Cannot determine default printer.\n");
    CopyText(printer, size, "__default");
    return -1;
}

void ResolveQueueName(const char* queue, int queueSize, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return;
    out[0] = '\0';
    if (queue == nullptr || queueSize <= 0) return;
    size_t length = strnlen(queue, static_cast<size_t>(queueSize));
    CopyTextN(out, cap, queue, length);
    length = strlen(out);
    if (length > 0 && out[length - 1] == '\r') out[length - 1] = '\0';
    ResolveDefaultPrinter(out, cap);
}

void QueryJob(NetSocket* socket, const char* queue, int queueSize, const char* job) {
    if (socket == nullptr) return;
    char printer[kQueueNameSize];
    ResolveQueueName(queue, queueSize, printer, sizeof printer);
    if (job == nullptr) job = "";
    Trace(kTraceNormal, "QueryJob called for printer %s and jobid %s\n", printer, job);
    {
        OpenedPrinter opened(printer);
        if (opened.Get() == nullptr) {
            SendString(*socket, kErrorProtocol);
            SendString(*socket, kServiceProblem);
            SendString(*socket, "Device unknown\n");
            return;
        }
    }
    char line[kQueueNameSize + kJobIdSize + 32];
    FormatText(line, sizeof line, "Printer %s, Job %s:\n", printer, job);
    SendString(*socket, line);
    // Status entries carry no file of their own: the job's data file belongs to job processing,
    // which removes it after printing.
    if (g_Options.UseEnhancedSW != 0)
        QueryLibraryJob(*socket, printer, job);
    else
        QueryListedJob(*socket, printer, job);
}

}  // namespace vx
