// Print jobs through CUPS: the job is created on the printer's queue and its data streamed as one
// document; the caller may then follow it until CUPS reports it completed. Only a CUPS that
// refuses the job (unreachable, no such queue, a queue not accepting jobs) is a device error: a
// paused printer, or one whose device cannot be reached, holds the job as the Windows spooler
// does, and it prints when the printer can.
//
// Jobs follow each other: connections to CUPS are kept between them, and each job is created with
// one Create-Job request of our own instead of libcups's cupsCreateJob, which fetches the
// destination and all its attributes again for every job.
#include "spooler/spool_job.h"

#include <cups/cups.h>

#include <cstring>

#include "base/text.h"
#include "spooler/posix/cups_printer.h"

struct vx::SpoolJob {
    vx::HttpPtr http;  // taken from the kept connections, returned to them when clean
    char printer[256] = {};
    int number = 0;
    bool documentOpen = false;  // between cupsStartDocument and cupsFinishDocument
    bool settled = false;       // completed, or ended by CUPS: nothing left to cancel
    bool failed = false;        // a request failed: the connection is not used again
    int64_t unsent = -1;        // of a document of known length, the bytes still to come
};

namespace vx {

namespace {

// A job is done with its connection: one that saw a failure, or that stopped in the middle of a
// request, is closed; a clean one is kept for the next request.
void ReturnConnection(SpoolJob& job) {
    if (job.http == nullptr || job.failed || job.documentOpen) return;
    KeepCupsConnection(std::move(job.http));
}

struct IppDeleter {
    void operator()(ipp_t* ipp) const { ippDelete(ipp); }
};
using IppPtr = std::unique_ptr<ipp_t, IppDeleter>;

struct PrinterState {
    int state = 0;  // IPP_PSTATE_*
    bool accepting = false;
    char reasons[256] = {};
    char message[256] = {};
};

struct JobState {
    int state = 0;  // IPP_JSTATE_*
    char reasons[256] = {};
};

void PrinterUri(const char* printer, char* uri, size_t size) {
    httpAssembleURIf(HTTP_URI_CODING_ALL, uri, static_cast<int>(size), "ipp", nullptr, "localhost",
                     ippPort(), "/printers/%s", printer);
}

// The keywords of a multi-valued attribute, comma-separated.
void JoinValues(ipp_attribute_t* attr, char* out, size_t size) {
    out[0] = '\0';
    for (int i = 0; attr != nullptr && i < ippGetCount(attr); ++i) {
        if (i > 0) AppendText(out, size, ",");
        const char* value = ippGetString(attr, i, nullptr);
        AppendText(out, size, value != nullptr ? value : "");
    }
}

// The IPP status of a request that failed is a device error when it says the printer is not
// there or takes no jobs now.
bool IsDeviceStatus(ipp_status_t status) {
    return status == IPP_STATUS_ERROR_NOT_FOUND || status == IPP_STATUS_ERROR_NOT_ACCEPTING_JOBS ||
           status == IPP_STATUS_ERROR_SERVICE_UNAVAILABLE || status == IPP_STATUS_ERROR_BUSY ||
           status == IPP_STATUS_ERROR_CUPS_PKI || status == IPP_STATUS_ERROR_DEVICE;
}

int QueryPrinter(http_t* http, const char* printer, PrinterState* out, char* error,
                 size_t errorSize) {
    static const char* const kWanted[] = {"printer-state", "printer-is-accepting-jobs",
                                          "printer-state-reasons", "printer-state-message"};
    char uri[HTTP_MAX_URI];
    PrinterUri(printer, uri, sizeof uri);
    ipp_t* request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri);
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", 4, nullptr,
                  kWanted);
    IppPtr response(DoIppRequest(http, request, "/"));
    ipp_status_t status = cupsLastError();
    if (response == nullptr || status > IPP_STATUS_OK_CONFLICTING) {
        if (status == IPP_STATUS_ERROR_NOT_FOUND) {
            FormatText(error, errorSize,
                       "Get-Printer-Attributes failed for printer %s: no such printer", printer);
        } else {
            FormatText(error, errorSize, "Get-Printer-Attributes failed for printer %s: %s",
                       printer, cupsLastErrorString());
        }
        return IsDeviceStatus(status) || response == nullptr ? kSpoolDeviceError : kSpoolFailed;
    }
    ipp_attribute_t* attr = ippFindAttribute(response.get(), "printer-state", IPP_TAG_ENUM);
    out->state = attr != nullptr ? ippGetInteger(attr, 0) : 0;
    attr = ippFindAttribute(response.get(), "printer-is-accepting-jobs", IPP_TAG_BOOLEAN);
    out->accepting = attr == nullptr || ippGetBoolean(attr, 0) != 0;
    JoinValues(ippFindAttribute(response.get(), "printer-state-reasons", IPP_TAG_KEYWORD),
               out->reasons, sizeof out->reasons);
    attr = ippFindAttribute(response.get(), "printer-state-message", IPP_TAG_TEXT);
    const char* message = attr != nullptr ? ippGetString(attr, 0, nullptr) : nullptr;
    CopyText(out->message, message != nullptr ? message : "");
    return kSpoolOk;
}

int QueryJob(http_t* http, int number, JobState* out, char* error, size_t errorSize) {
    static const char* const kWanted[] = {"job-state", "job-state-reasons"};
    char uri[HTTP_MAX_URI];
    httpAssembleURIf(HTTP_URI_CODING_ALL, uri, sizeof uri, "ipp", nullptr, "localhost", ippPort(),
                     "/jobs/%d", number);
    ipp_t* request = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, uri);
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", 2, nullptr,
                  kWanted);
    IppPtr response(DoIppRequest(http, request, "/"));
    if (response == nullptr || cupsLastError() > IPP_STATUS_OK_CONFLICTING) {
        FormatText(error, errorSize, "Get-Job-Attributes failed for job %d: %s", number,
                   cupsLastErrorString());
        return kSpoolFailed;
    }
    ipp_attribute_t* attr = ippFindAttribute(response.get(), "job-state", IPP_TAG_ENUM);
    out->state = attr != nullptr ? ippGetInteger(attr, 0) : 0;
    JoinValues(ippFindAttribute(response.get(), "job-state-reasons", IPP_TAG_KEYWORD), out->reasons,
               sizeof out->reasons);
    return kSpoolOk;
}

// Create-Job on the printer's queue, named title, for owner. The job's number, or 0 with the IPP
// status in *status.
int CreateJob(http_t* http, const char* printer, const char* title, const char* owner,
              ipp_status_t* status) {
    char uri[HTTP_MAX_URI];
    PrinterUri(printer, uri, sizeof uri);
    ipp_t* request = ippNewRequest(IPP_OP_CREATE_JOB);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri);
    // The sender's owner, as an LPD gateway gives it; cupsd may put the authenticated caller in
    // its place.
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                 owner != nullptr && owner[0] != '\0' ? owner : cupsUser());
    if (title != nullptr && title[0] != '\0')
        ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, title);
    IppPtr response(DoIppRequest(http, request, "/"));
    *status = cupsLastError();
    // No answer at all: CUPS cannot be reached.
    if (response == nullptr && *status <= IPP_STATUS_OK_CONFLICTING)
        *status = IPP_STATUS_ERROR_SERVICE_UNAVAILABLE;
    if (response == nullptr || *status > IPP_STATUS_OK_CONFLICTING) return 0;
    ipp_attribute_t* id = ippFindAttribute(response.get(), "job-id", IPP_TAG_INTEGER);
    return id != nullptr ? ippGetInteger(id, 0) : 0;
}

// Send-Document for the job's one document. Of a known length it goes with that length, in one
// piece; else in chunks, as cupsStartDocument sends it (which knows no length).
http_status_t StartDocument(http_t* http, const char* printer, int number, const char* title,
                            const char* mime, int64_t length) {
    if (length < 0) return cupsStartDocument(http, printer, number, title, mime, 1);
    char uri[HTTP_MAX_URI];
    PrinterUri(printer, uri, sizeof uri);
    char resource[HTTP_MAX_URI];
    FormatText(resource, sizeof resource, "/printers/%s", printer);
    ipp_t* request = ippNewRequest(IPP_OP_SEND_DOCUMENT);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri);
    ippAddInteger(request, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", number);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                 cupsUser());
    if (title != nullptr && title[0] != '\0')
        ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "document-name", nullptr, title);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, mime);
    ippAddBoolean(request, IPP_TAG_OPERATION, "last-document", 1);
    // The HTTP body is the request and the document after it.
    http_status_t status =
        cupsSendRequest(http, request, resource, ippLength(request) + static_cast<size_t>(length));
    ippDelete(request);
    return status;
}

// A queue that refuses jobs takes none; a stopped one still takes them and holds them.
int CheckPrinterAccepts(const PrinterState& state, const char* printer, char* error,
                        size_t errorSize) {
    if (!state.accepting) {
        FormatText(error, errorSize, "printer %s is not accepting jobs (%s)", printer,
                   state.reasons);
        return kSpoolDeviceError;
    }
    return kSpoolOk;
}

void CancelJob(SpoolJob* job) {
    if (job->number <= 0 || job->settled) return;
    // A document still being sent occupies the connection: cancel over a fresh one.
    HttpPtr fresh;
    http_t* http = job->http.get();
    if (job->documentOpen || http == nullptr) {
        fresh = ConnectToCups();
        http = fresh.get();
    }
    if (http != nullptr) cupsCancelJob2(http, job->printer, job->number, 0);
    job->settled = true;
}

}  // namespace

void SpoolJobRelease(SpoolJob* job) {
    if (job == nullptr) return;
    CancelJob(job);
    ReturnConnection(*job);
    delete job;
}

int SpoolJobStart(const char* printer, const char* title, const char* owner, SpoolFormat format,
                  int64_t documentBytes, SpoolJobPtr* job, char* error, size_t errorSize) {
    job->reset();
    SpoolJobPtr created(new SpoolJob);
    CopyText(created->printer, printer);
    bool reused = false;
    created->http = TakeCupsConnection(&reused);
    ipp_status_t status = IPP_STATUS_OK;
    if (created->http != nullptr)
        created->number = CreateJob(created->http.get(), printer, title, owner, &status);
    if (created->http != nullptr && created->number <= 0 && reused &&
        status == IPP_STATUS_ERROR_SERVICE_UNAVAILABLE) {
        // cupsd may have closed the kept connection (a restart): once more on a new one.
        created->http = ConnectToCups();
        if (created->http != nullptr)
            created->number = CreateJob(created->http.get(), printer, title, owner, &status);
    }
    if (created->http == nullptr) {
        FormatText(error, errorSize,
                   "httpConnect2 failed for printer %s: CUPS at %s:%d cannot be reached", printer,
                   cupsServer(), ippPort());
        return kSpoolDeviceError;
    }
    if (created->number <= 0) {
        created->failed = true;
        // Why the queue takes no job, in the words of its state.
        PrinterState state;
        if (status == IPP_STATUS_ERROR_NOT_ACCEPTING_JOBS &&
            QueryPrinter(created->http.get(), printer, &state, error, errorSize) == kSpoolOk &&
            CheckPrinterAccepts(state, printer, error, errorSize) != kSpoolOk)
            return kSpoolDeviceError;
        if (status == IPP_STATUS_ERROR_NOT_FOUND)
            FormatText(error, errorSize, "Create-Job failed for printer %s: no such printer",
                       printer);
        else
            FormatText(error, errorSize, "Create-Job failed for printer %s: %s", printer,
                       cupsLastErrorString());
        return IsDeviceStatus(status) ? kSpoolDeviceError : kSpoolFailed;
    }
    const char* mime = format == SpoolFormat::kPdf ? "application/pdf" : CUPS_FORMAT_RAW;
    if (StartDocument(created->http.get(), printer, created->number, title, mime, documentBytes) !=
        HTTP_STATUS_CONTINUE) {
        created->failed = true;
        FormatText(error, errorSize, "cupsStartDocument failed for printer %s (job %d): %s",
                   printer, created->number, cupsLastErrorString());
        return kSpoolFailed;
    }
    created->documentOpen = true;
    created->unsent = documentBytes;
    *job = std::move(created);
    return kSpoolOk;
}

int SpoolJobWrite(SpoolJob* job, const void* data, size_t size, char* error, size_t errorSize) {
    if (job->unsent >= 0 && static_cast<uint64_t>(job->unsent) < size) {
        job->failed = true;
        FormatText(error, errorSize, "the data of job %d for printer %s is longer than announced",
                   job->number, job->printer);
        return kSpoolFailed;
    }
    if (job->unsent >= 0) job->unsent -= static_cast<int64_t>(size);
    if (cupsWriteRequestData(job->http.get(), static_cast<const char*>(data), size) !=
        HTTP_STATUS_CONTINUE) {
        job->failed = true;
        FormatText(error, errorSize, "cupsWriteRequestData failed for printer %s (job %d): %s",
                   job->printer, job->number, cupsLastErrorString());
        return kSpoolFailed;
    }
    return kSpoolOk;
}

int SpoolJobFinish(SpoolJob* job, char* error, size_t errorSize) {
    if (job->unsent > 0) {
        // CUPS still waits for the rest: the job is cancelled over a connection of its own.
        job->failed = true;
        FormatText(error, errorSize, "the data of job %d for printer %s ended %lld bytes short",
                   job->number, job->printer, static_cast<long long>(job->unsent));
        return kSpoolFailed;
    }
    ipp_status_t finished = cupsFinishDocument(job->http.get(), job->printer);
    job->documentOpen = false;
    if (finished > IPP_STATUS_OK_CONFLICTING) {
        job->failed = true;
        FormatText(error, errorSize, "cupsFinishDocument failed for printer %s (job %d): %s",
                   job->printer, job->number, cupsLastErrorString());
        return IsDeviceStatus(finished) ? kSpoolDeviceError : kSpoolFailed;
    }
    // CUPS has the whole job now: it is never cancelled from here, whatever the caller does.
    job->settled = true;
    return kSpoolOk;
}

int SpoolJobProgress(SpoolJob* job, char* error, size_t errorSize) {
    JobState jobState;
    if (QueryJob(job->http.get(), job->number, &jobState, error, errorSize) != kSpoolOk) {
        // CUPS keeps the job on its disk even when it cannot be asked now.
        job->failed = true;
        return kSpoolHeld;
    }
    switch (jobState.state) {
        case IPP_JSTATE_COMPLETED:
            return kSpoolOk;
        case IPP_JSTATE_CANCELED:
            FormatText(error, errorSize, "CUPS job %d on printer %s was canceled (%s)", job->number,
                       job->printer, jobState.reasons);
            return kSpoolFailed;
        case IPP_JSTATE_ABORTED:
            FormatText(error, errorSize, "CUPS aborted job %d on printer %s (%s)", job->number,
                       job->printer, jobState.reasons);
            return kSpoolFailed;
        case IPP_JSTATE_STOPPED:
        case IPP_JSTATE_HELD:
            FormatText(error, errorSize, "CUPS holds job %d on printer %s (%s)", job->number,
                       job->printer, jobState.reasons);
            return kSpoolHeld;
        case IPP_JSTATE_PROCESSING:
            // On its way to the device now: the printer's state does not hold it.
            FormatText(error, errorSize, "CUPS job %d on printer %s is printing (%s)", job->number,
                       job->printer, jobState.reasons);
            return kSpoolPending;
        default:
            break;
    }
    // A paused printer, or one whose backend could not reach the device, keeps the job pending.
    PrinterState printerState;
    if (QueryPrinter(job->http.get(), job->printer, &printerState, error, errorSize) != kSpoolOk) {
        job->failed = true;
        return kSpoolHeld;
    }
    if (printerState.state == IPP_PSTATE_STOPPED) {
        FormatText(error, errorSize, "printer %s is stopped with CUPS job %d pending (%s%s%s)",
                   job->printer, job->number, printerState.reasons,
                   printerState.message[0] != '\0' ? ": " : "", printerState.message);
        return kSpoolHeld;
    }
    FormatText(error, errorSize, "CUPS job %d on printer %s: %s%s%s", job->number, job->printer,
               jobState.reasons, printerState.message[0] != '\0' ? "; printer: " : "",
               printerState.message);
    return kSpoolPending;
}

SpooledJobFate SpooledJobFateOf(const char* printer, int number) {
    if (printer == nullptr || number <= 0) return SpooledJobFate::kUnknown;
    HttpPtr http = ConnectToCups();
    if (http == nullptr) return SpooledJobFate::kUnknown;
    JobState state;
    char error[256];
    if (QueryJob(http.get(), number, &state, error, sizeof error) != kSpoolOk)
        return cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND ? SpooledJobFate::kGone
                                                             : SpooledJobFate::kUnknown;
    if (state.state == IPP_JSTATE_CANCELED || state.state == IPP_JSTATE_ABORTED)
        return SpooledJobFate::kGone;
    // Made, but its data never arrived whole: it must not print what it has.
    if (strstr(state.reasons, "job-incoming") != nullptr) {
        cupsCancelJob2(http.get(), printer, number, 0);
        return SpooledJobFate::kGone;
    }
    return SpooledJobFate::kTaken;
}

int SpoolJobNumber(const SpoolJob* job) {
    return job != nullptr ? job->number : 0;
}

}  // namespace vx
