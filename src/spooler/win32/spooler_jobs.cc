// An open printer of the Windows spooler, its jobs (EnumJobsA level 1) and its status
// (GetPrinterA level 2), for the printer status answers.
#include <new>

#include "base/text.h"
#include "spooler/spooler.h"
#include "spooler/win32/spooler_win32.h"

namespace vx {

struct SpoolerPrinter {
    HANDLE handle;
};

namespace {

void CopyField(char* out, size_t cap, const char* text) {
    CopyText(out, cap, text != nullptr ? text : "");
}

}  // namespace

SpoolerPrinter* SpoolerOpenPrinter(const char* printer) {
    if (printer == nullptr || printer[0] == '\0') return nullptr;
    HANDLE handle = nullptr;
    if (!OpenPrinterA(const_cast<char*>(printer), &handle, nullptr) || handle == nullptr)
        return nullptr;
    auto* opened = new (std::nothrow) SpoolerPrinter{handle};
    if (opened == nullptr) ClosePrinter(handle);
    return opened;
}

int SpoolerClosePrinter(SpoolerPrinter* printer) {
    if (printer == nullptr) return kSpoolerFailed;
    BOOL closed = ClosePrinter(printer->handle);
    delete printer;
    return closed ? kSpoolerOk : kSpoolerFailed;
}

int SpoolerEnumJobs(SpoolerPrinter* printer, SpoolerJobInfo* out, int capacity) {
    if (printer == nullptr) return kSpoolerFailed;
    DWORD needed = 0;
    DWORD returned = 0;
    if (!EnumJobsA(printer->handle, 0, kSpoolerMaxJobs, 1, nullptr, 0, &needed, &returned) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return kSpoolerFailed;
    if (needed == 0) return 0;
    LocalBlock buffer(needed);
    if (!buffer.Valid()) return kSpoolerNoMemory;
    if (!EnumJobsA(printer->handle, 0, kSpoolerMaxJobs, 1, buffer.Bytes(), needed, &needed,
                   &returned))
        return kSpoolerFailed;
    const auto* jobs = reinterpret_cast<const JOB_INFO_1A*>(buffer.Bytes());
    for (DWORD i = 0; out != nullptr && i < returned && static_cast<int>(i) < capacity; ++i) {
        SpoolerJobInfo& job = out[i];
        job = SpoolerJobInfo{};
        job.id = jobs[i].JobId;
        CopyField(job.user, sizeof job.user, jobs[i].pUserName);
        CopyField(job.document, sizeof job.document, jobs[i].pDocument);
        CopyField(job.statusText, sizeof job.statusText, jobs[i].pStatus);
        job.status = jobs[i].Status;
    }
    return static_cast<int>(returned);
}

int SpoolerGetPrinterStatus(SpoolerPrinter* printer, uint32_t* status) {
    if (printer == nullptr || status == nullptr) return kSpoolerFailed;
    *status = 0;
    DWORD needed = 0;
    if (!GetPrinterA(printer->handle, 2, nullptr, 0, &needed) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return kSpoolerFailed;
    if (needed == 0) return kSpoolerFailed;
    LocalBlock buffer(needed);
    if (!buffer.Valid()) return kSpoolerNoMemory;
    if (!GetPrinterA(printer->handle, 2, buffer.Bytes(), needed, &needed)) return kSpoolerFailed;
    *status = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.Bytes())->Status;
    return kSpoolerOk;
}

}  // namespace vx
