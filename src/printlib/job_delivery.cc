#include "printlib/job_delivery.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/clock.h"
#include "base/fileops.h"
#include "base/named_slots.h"
#include "base/sync.h"
#include "base/text.h"
#include "printlib/file_printer.h"
#include "printlib/host_trace.h"
#include "printlib/job_data.h"
#include "printlib/library_options.h"
#include "spooler/spool_job.h"
#include "spooler/spooler.h"

namespace zel {

namespace {

constexpr size_t kErrorSize = 1024;

// How long a job is followed once all its data is with the print system: until it has reached
// the device, the print system holds it for a printer that cannot print now, or this time has
// passed; the print system keeps it in every case, so it is never sent again.
constexpr uint32_t kDeliveryTimeoutMs = 120000;
// The pause between two looks at a job on its way: a sixteenth of the time it has been on its way,
// within these bounds; so a job is seen at its end soon after it got there, and a long one costs
// few looks.
constexpr uint64_t kDeliveryPollMinUs = 500;
constexpr uint64_t kDeliveryPollMaxUs = 200000;
constexpr uint64_t kDeliveryPollShare = 16;

// When to take the first look at a printer's next job: the time by which half of its jobs have
// reached the device, learnt from whether the first look at each job found it there (a little
// earlier when it did, as much later when it did not). Half of the jobs are then seen at the
// first look, most of the others at the second, and none much later than it got there.
// A few printers are remembered; one not among them starts by looking at once.
constexpr uint64_t kFirstLookStepMinUs = 250;
constexpr uint64_t kFirstLookMaxUs = 1000000;

vx::NamedSlots<uint64_t, 32>& FirstLookTimes() {
    static auto* times = new vx::NamedSlots<uint64_t, 32>;  // outlives the threads that print
    return *times;
}

uint64_t FirstLookUs(const char* printer) {
    uint64_t us = 0;
    FirstLookTimes().Find(printer, &us);
    return us;
}

void LearnFirstLook(const char* printer, bool foundThere) {
    FirstLookTimes().Note(printer, [foundThere](uint64_t* us, bool known) {
        if (!known) *us = 0;
        uint64_t step = std::max(kFirstLookStepMinUs, *us / 16);
        if (foundThere)
            *us -= std::min(*us, step);
        else
            *us = std::min(*us + step, kFirstLookMaxUs);
    });
}

uint64_t NextDeliveryPollUs(uint64_t onItsWayUs) {
    return std::clamp(onItsWayUs / kDeliveryPollShare, kDeliveryPollMinUs, kDeliveryPollMaxUs);
}

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

int WriteToSpoolJob(void* context, const void* data, size_t size, char* error, size_t errorSize) {
    return vx::SpoolJobWrite(static_cast<vx::SpoolJob*>(context), data, size, error, errorSize) ==
                   vx::kSpoolOk
               ? 0
               : -1;
}

int RcOf(int spoolResult) {
    if (spoolResult == vx::kSpoolOk) return ZEL_RC_OK;
    return spoolResult == vx::kSpoolDeviceError ? ZEL_RC_DEVICE : ZEL_RC_FAILED;
}

// The document name the print system shows: the title, else the job id, else the file's name.
const char* DocumentName(const PrintRequest& request) {
    if (request.title != nullptr && request.title[0] != '\0') return request.title;
    if (request.jobId != nullptr && request.jobId[0] != '\0') return request.jobId;
    const char* name = request.fileName;
    for (const char* p = request.fileName; *p != '\0'; ++p) {
        if (vx::IsPathSeparator(*p)) name = p + 1;
    }
    return name;
}

int PrintToFilePrinter(const ZelHost* host, const PrintRequest& request, FILE* data,
                       vx::SpoolFormat format) {
    char directory[vx::kMaxPath * 2] = {};
    if (host->GetOutputDirectory != nullptr) {
        host->GetOutputDirectory(host->context, directory, sizeof directory);
    }
    char path[vx::kMaxPath * 2];
    char error[kErrorSize];
    const char* extension = format == vx::SpoolFormat::kPdf ? ".pdf" : ".prn";
    if (WriteToFilePrinter(directory, request.jobId, extension, data, request.fileName,
                           request.copies, path, sizeof path, error, sizeof error) != 0) {
        TraceError(host, "File printer %s failed for job %s: %s\n", vx::kFilePrinterName,
                   request.jobId, error);
        return ZEL_RC_FAILED;
    }
    TraceLine(host, 9, "PrintFile: job %s written to %s\n", request.jobId, path);
    return ZEL_RC_OK;
}

bool HostIsEnding(const ZelHost* host) {
    return host != nullptr && host->Ending != nullptr && host->Ending(host->context) != 0;
}

// Follows a finished job until it has reached the device. A job the print system holds (a paused
// or stopped printer), one still on its way when the time is up or the host is ending, is left
// to the print system, which prints it when it can: the job counts as printed.
int FollowToDevice(const ZelHost* host, const PrintRequest& request, vx::SpoolJob* job) {
    char error[kErrorSize] = {};
    uint64_t start = vx::TickCountUs();
    uint64_t deadline = start + kDeliveryTimeoutMs * 1000;
    // A printer whose jobs take a while is not asked before the time is near.
    uint64_t firstLookUs = FirstLookUs(request.printer);
    if (firstLookUs > 0) vx::SleepUs(firstLookUs);
    for (bool first = true;; first = false) {
        int rc = vx::SpoolJobProgress(job, error, sizeof error);
        if (first && (rc == vx::kSpoolOk || rc == vx::kSpoolPending))
            LearnFirstLook(request.printer, rc == vx::kSpoolOk);
        if (rc == vx::kSpoolOk) return ZEL_RC_OK;
        if (rc == vx::kSpoolHeld) {
            TraceLine(host, 1, "Job %s is held by the print system: %s\n", request.jobId, error);
            return ZEL_RC_OK;
        }
        if (rc != vx::kSpoolPending) {
            TraceError(host, "Job %s not printed on %s: %s\n", request.jobId, request.printer,
                       error);
            return ZEL_RC_FAILED;
        }
        if (HostIsEnding(host)) {
            TraceLine(host, 5, "Job %s left to the print system, the service is ending: %s\n",
                      request.jobId, error);
            return ZEL_RC_OK;
        }
        if (vx::TickCountUs() >= deadline) {
            TraceLine(host, 1, "Job %s left to the print system after %u s: %s\n", request.jobId,
                      kDeliveryTimeoutMs / 1000, error);
            return ZEL_RC_OK;
        }
        vx::SleepUs(NextDeliveryPollUs(vx::TickCountUs() - start));
    }
}

// fileBytes: the data file's size, -1 when unknown.
int PrintToSpooler(const ZelHost* host, const PrintRequest& request, FILE* data,
                   vx::SpoolFormat format, int64_t fileBytes) {
    char error[kErrorSize];
    vx::SpoolJobPtr job;
    // The copies follow each other in one document, whose length is known before it goes.
    int64_t documentBytes = fileBytes >= 0 ? fileBytes * std::max(request.copies, 0) : -1;
    int rc = vx::SpoolJobStart(request.printer, DocumentName(request), request.owner, format,
                               documentBytes, &job, error, sizeof error);
    if (rc != vx::kSpoolOk) {
        TraceError(host, "%s\n", error);
        return RcOf(rc);
    }
    // The host notes the number first: should it die while the job prints, it can ask the print
    // system afterwards whether the job needs printing again.
    int number = vx::SpoolJobNumber(job.get());
    if (host->JobSpooled != nullptr && number > 0)
        host->JobSpooled(host->context, request.fileName, number);
    int64_t sent = 0;
    if (SendCopies(data, request.fileName, request.copies, WriteToSpoolJob, job.get(), &sent, error,
                   sizeof error) != 0) {
        TraceError(host, "Job %s not printed on %s: %s\n", request.jobId, request.printer, error);
        return ZEL_RC_FAILED;
    }
    rc = vx::SpoolJobFinish(job.get(), error, sizeof error);
    if (rc != vx::kSpoolOk) {
        TraceError(host, "%s\n", error);
        return RcOf(rc);
    }
    rc = FollowToDevice(host, request, job.get());
    if (rc != ZEL_RC_OK) return rc;
    TraceLine(host, 9, "PrintFile: job %s: %" PRId64 " bytes printed on %s (spooler job %d)\n",
              request.jobId, sent, request.printer, vx::SpoolJobNumber(job.get()));
    return ZEL_RC_OK;
}

}  // namespace

int PrintOneJob(const ZelHost* host, const PrintRequest& request) {
    const char* jobId = request.jobId != nullptr ? request.jobId : "";
    if (request.streamType == ZEL_STREAM_ZELWIN) {
        TraceError(host,
                   "Job %s on printer %s: the print-library stream (ZELWIN) cannot be rendered by "
                   "this print library; only raw and PDF streams print\n",
                   jobId, request.printer);
        return ZEL_RC_NOT_SUPPORTED;
    }
    if (request.streamType != ZEL_STREAM_RAW && request.streamType != ZEL_STREAM_PDF) {
        TraceError(host, "Job %s: unknown stream type %d\n", jobId, request.streamType);
        return ZEL_RC_BAD_ARGUMENT;
    }
    if (request.printer[0] == '\0') {
        TraceError(host, "Job %s: no printer name given\n", jobId);
        return ZEL_RC_BAD_ARGUMENT;
    }
    FilePtr data(fopen(request.fileName, "rb"));
    if (data == nullptr) {
        TraceError(host, "fopen failed for file %s of job %s: %s\n", request.fileName, jobId,
                   strerror(errno));
        return ZEL_RC_NO_FILE;
    }
    PrintRequest job = request;
    job.jobId = jobId;
    job.copies = request.copies > 0 ? request.copies : 1;

    // PDF goes to the print system as PDF unless the printer takes it as it is.
    bool pdfAsRaw = OptionValue(host, job.printer, "PDFasRAW", 0) != 0;
    vx::SpoolFormat format = job.streamType == ZEL_STREAM_PDF && !pdfAsRaw ? vx::SpoolFormat::kPdf
                                                                           : vx::SpoolFormat::kRaw;
    const char* builtIn = vx::BuiltInPrinterName();
    bool toFile = builtIn != nullptr && strcmp(job.printer, builtIn) == 0;
    int64_t fileBytes = vx::FsSize(job.fileName);
    TraceLine(host, 9,
              "PrintFile: job %s: file %s (%" PRId64 " bytes) x %d copies to %s %s as %s\n", jobId,
              job.fileName, fileBytes, job.copies, toFile ? "file printer" : "printer", job.printer,
              format == vx::SpoolFormat::kPdf ? "PDF" : "raw");
    return toFile ? PrintToFilePrinter(host, job, data.get(), format)
                  : PrintToSpooler(host, job, data.get(), format, fileBytes);
}

}  // namespace zel
