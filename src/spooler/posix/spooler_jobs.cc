// The jobs of a CUPS queue (Get-Jobs, not yet completed) and the printer's state, for the printer
// status answers. The built-in file printer writes at once and never has waiting jobs.
#include <cups/cups.h>

#include <cstring>
#include <new>

#include "base/text.h"
#include "spooler/posix/cups_printer.h"
#include "spooler/spooler.h"

namespace vx {

struct SpoolerPrinter {
    char name[kSpoolerNameSize];
};

namespace {

bool HasKeyword(ipp_attribute_t* attribute, const char* keyword) {
    for (int i = 0; i < ippGetCount(attribute); ++i) {
        const char* value = ippGetString(attribute, i, nullptr);
        if (value != nullptr && strstr(value, keyword) != nullptr) return true;
    }
    return false;
}

// Job status bits from job-state-reasons.
uint32_t StatusOfJobReasons(ipp_attribute_t* reasons) {
    uint32_t status = 0;
    if (HasKeyword(reasons, "printer-stopped")) status |= kSpoolJobBlockedQueue;
    if (HasKeyword(reasons, "offline")) status |= kSpoolJobOffline;
    if (HasKeyword(reasons, "media-empty") || HasKeyword(reasons, "media-needed"))
        status |= kSpoolJobPaperOut;
    if (HasKeyword(reasons, "aborted-by-system") || HasKeyword(reasons, "document-format-error") ||
        HasKeyword(reasons, "completed-with-errors"))
        status |= kSpoolJobError;
    return status;
}

uint32_t StatusOfJobState(int state) {
    switch (state) {
        case IPP_JSTATE_HELD:
            return kSpoolJobPaused;
        case IPP_JSTATE_PROCESSING:
            return kSpoolJobPrinting;
        case IPP_JSTATE_STOPPED:
            return kSpoolJobBlockedQueue;
        case IPP_JSTATE_COMPLETED:
            return kSpoolJobPrinted;
        default:
            return 0;
    }
}

void TakeJobAttribute(ipp_attribute_t* attribute, SpoolerJobInfo* job) {
    const char* name = ippGetName(attribute);
    if (name == nullptr) return;
    const char* text = ippGetString(attribute, 0, nullptr);
    if (strcmp(name, "job-id") == 0) {
        job->id = static_cast<uint32_t>(ippGetInteger(attribute, 0));
    } else if (strcmp(name, "job-name") == 0 && text != nullptr) {
        CopyText(job->document, text);
    } else if (strcmp(name, "job-originating-user-name") == 0 && text != nullptr) {
        CopyText(job->user, text);
    } else if (strcmp(name, "job-printer-state-message") == 0 && text != nullptr) {
        CopyText(job->statusText, text);
    } else if (strcmp(name, "job-state") == 0) {
        job->status |= StatusOfJobState(ippGetInteger(attribute, 0));
    } else if (strcmp(name, "job-state-reasons") == 0) {
        job->status |= StatusOfJobReasons(attribute);
    }
}

bool RequestJobs(const char* printer, IppMessage* response) {
    char uri[1024];
    if (httpAssembleURIf(HTTP_URI_CODING_ALL, uri, sizeof uri, "ipp", nullptr, "localhost",
                         ippPort(), "/printers/%s", printer) != HTTP_URI_STATUS_OK)
        return false;
    static const char* const kAttributes[] = {
        "job-id",    "job-name",          "job-originating-user-name", "job-printer-state-message",
        "job-state", "job-state-reasons",
    };
    HttpPtr http = ConnectToCups();
    if (http == nullptr) return false;
    ipp_t* request = ippNewRequest(IPP_OP_GET_JOBS);
    if (request == nullptr) return false;
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr,
                 "not-completed");
    ippAddInteger(request, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "limit", kSpoolerMaxJobs);
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                  sizeof kAttributes / sizeof kAttributes[0], nullptr, kAttributes);
    // The request is taken over, also on failure.
    response->Reset(DoIppRequest(http.get(), request, "/"));
    if (response->Get() == nullptr || cupsLastError() > IPP_STATUS_OK_EVENTS_COMPLETE) {
        response->Reset(nullptr);
        return false;
    }
    return true;
}

}  // namespace

SpoolerPrinter* SpoolerOpenPrinter(const char* printer) {
    if (!SpoolerCanOpenPrinter(printer)) return nullptr;
    auto* opened = new (std::nothrow) SpoolerPrinter{};
    if (opened != nullptr) CopyText(opened->name, printer);
    return opened;
}

int SpoolerClosePrinter(SpoolerPrinter* printer) {
    if (printer == nullptr) return kSpoolerFailed;
    delete printer;
    return kSpoolerOk;
}

int SpoolerEnumJobs(SpoolerPrinter* printer, SpoolerJobInfo* out, int capacity) {
    if (printer == nullptr) return kSpoolerFailed;
    if (IsFilePrinter(printer->name)) return 0;
    IppMessage response;
    if (!RequestJobs(printer->name, &response)) return kSpoolerFailed;
    // Each job is one group of job attributes; groups are separated by attributes of no group.
    int total = 0;
    ipp_attribute_t* attribute = ippFirstAttribute(response.Get());
    while (attribute != nullptr) {
        if (ippGetGroupTag(attribute) != IPP_TAG_JOB) {
            attribute = ippNextAttribute(response.Get());
            continue;
        }
        SpoolerJobInfo job{};
        for (; attribute != nullptr && ippGetGroupTag(attribute) == IPP_TAG_JOB;
             attribute = ippNextAttribute(response.Get()))
            TakeJobAttribute(attribute, &job);
        if (out != nullptr && total < capacity) out[total] = job;
        if (++total == kSpoolerMaxJobs) break;
    }
    return total;
}

int SpoolerGetPrinterStatus(SpoolerPrinter* printer, uint32_t* status) {
    if (printer == nullptr || status == nullptr) return kSpoolerFailed;
    SpoolerPrinterInfo info;
    int rc = SpoolerGetPrinter(printer->name, &info);
    *status = rc == kSpoolerOk ? info.status : 0;
    return rc;
}

}  // namespace vx
