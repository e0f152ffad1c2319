// Print jobs through the Windows spooler with the RAW data type: the bytes go to the printer's
// port as they are. The spooler takes the job at EndDocPrinter; a printer that cannot be opened,
// or a job the spooler cannot pass on at its end, is a device error.
#include "spooler/spool_job.h"

#include <windows.h>
#include <winspool.h>

#include "base/syserror.h"
#include "base/text.h"

struct vx::SpoolJob {
    HANDLE printer = nullptr;
    char name[256] = {};
    DWORD number = 0;
    bool documentOpen = false;  // between StartDocPrinter and EndDocPrinter
};

namespace vx {

namespace {

void FormatFailure(char* error, size_t errorSize, const char* call, const char* printer,
                   DWORD code) {
    char text[256];
    SystemErrorText(code, text, sizeof text);
    FormatText(error, errorSize, "%s failed for printer %s: error %lu (%s)", call, printer,
               static_cast<unsigned long>(code), text);
}

}  // namespace

void SpoolJobRelease(SpoolJob* job) {
    if (job == nullptr) return;
    // An unfinished document is thrown away rather than printed in part.
    if (job->documentOpen) AbortPrinter(job->printer);
    if (job->printer != nullptr) ClosePrinter(job->printer);
    delete job;
}

int SpoolJobStart(const char* printer, const char* title, const char*, SpoolFormat, int64_t,
                  SpoolJobPtr* job, char* error, size_t errorSize) {
    job->reset();
    SpoolJobPtr opened(new SpoolJob);
    CopyText(opened->name, printer);
    if (!OpenPrinterA(const_cast<char*>(printer), &opened->printer, nullptr)) {
        opened->printer = nullptr;
        FormatFailure(error, errorSize, "OpenPrinterA", printer, GetLastError());
        return kSpoolDeviceError;
    }
    char docName[256];
    CopyText(docName, title != nullptr ? title : "");
    char dataType[] = "RAW";
    DOC_INFO_1A info{};
    info.pDocName = docName;
    info.pDatatype = dataType;
    opened->number = StartDocPrinterA(opened->printer, 1, reinterpret_cast<LPBYTE>(&info));
    if (opened->number == 0) {
        FormatFailure(error, errorSize, "StartDocPrinterA", printer, GetLastError());
        return kSpoolFailed;
    }
    opened->documentOpen = true;
    *job = std::move(opened);
    return kSpoolOk;
}

int SpoolJobWrite(SpoolJob* job, const void* data, size_t size, char* error, size_t errorSize) {
    const BYTE* next = static_cast<const BYTE*>(data);
    while (size > 0) {
        DWORD piece = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!WritePrinter(job->printer, const_cast<BYTE*>(next), piece, &written) || written == 0) {
            FormatFailure(error, errorSize, "WritePrinter", job->name, GetLastError());
            return kSpoolFailed;
        }
        next += written;
        size -= written;
    }
    return kSpoolOk;
}

int SpoolJobFinish(SpoolJob* job, char* error, size_t errorSize) {
    job->documentOpen = false;
    if (!EndDocPrinter(job->printer)) {
        FormatFailure(error, errorSize, "EndDocPrinter", job->name, GetLastError());
        return kSpoolDeviceError;
    }
    return kSpoolOk;
}

// The spooler has the whole job once the document ended; it holds it for a paused printer.
int SpoolJobProgress(SpoolJob*, char*, size_t) {
    return kSpoolOk;
}

SpooledJobFate SpooledJobFateOf(const char* printer, int number) {
    if (printer == nullptr || number <= 0) return SpooledJobFate::kUnknown;
    HANDLE handle = nullptr;
    if (!OpenPrinterA(const_cast<char*>(printer), &handle, nullptr))
        return SpooledJobFate::kUnknown;
    SpooledJobFate fate = SpooledJobFate::kUnknown;
    DWORD needed = 0;
    GetJobA(handle, static_cast<DWORD>(number), 1, nullptr, 0, &needed);
    // A job that is no longer in the queue may have printed or been deleted: nobody can tell.
    if (needed >= sizeof(JOB_INFO_1A)) {
        auto* info = static_cast<JOB_INFO_1A*>(HeapAlloc(GetProcessHeap(), 0, needed));
        if (info != nullptr && GetJobA(handle, static_cast<DWORD>(number), 1,
                                       reinterpret_cast<LPBYTE>(info), needed, &needed)) {
            if ((info->Status & (JOB_STATUS_DELETING | JOB_STATUS_DELETED)) != 0) {
                fate = SpooledJobFate::kGone;
            } else if ((info->Status & JOB_STATUS_SPOOLING) != 0) {
                // Its data never arrived whole: it must not print what it has.
                SetJobA(handle, static_cast<DWORD>(number), 0, nullptr, JOB_CONTROL_DELETE);
                fate = SpooledJobFate::kGone;
            } else {
                fate = SpooledJobFate::kTaken;
            }
        }
        if (info != nullptr) HeapFree(GetProcessHeap(), 0, info);
    }
    ClosePrinter(handle);
    return fate;
}

int SpoolJobNumber(const SpoolJob* job) {
    return job != nullptr ? static_cast<int>(job->number) : 0;
}

}  // namespace vx
