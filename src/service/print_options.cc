// The command-line options that print or report on the print side: "-f", "-c", "-o", "-a", "-l",
// "-m" and "-M".
#include "service/print_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/codepage.h"
#include "base/fileops.h"
#include "config/option_globals.h"
#include "jobs/print_backend.h"
#include "jobs/printer_queues.h"
#include "printserver/zelprsrv.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

constexpr const char* kSource = "print_options";

// A local file printed at once as an LPD job on a thread of its own; returns when it has printed.
void PrintLocalFile(const char* printer, const char* path, const char* name, int32_t copies) {
    // ProcessFile reports a job that cannot be built ("Cannot print job %s on printer %s").
    ProcessFile(printer, path, name, copies, 1);
}

const char* BaseName(const char* path) {
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (IsPathSeparator(*p)) name = p + 1;
    }
    return name;
}

int CollectFileName(void* context, const char* name) {
    static_cast<std::vector<std::string>*>(context)->push_back(name);
    return 0;
}

// Converts one text field of a pending-job record, cut at cap bytes.
void FieldText(const ZelWide* field, size_t units, char* out, size_t cap) {
    size_t length = 0;
    while (length < units && field[length] != 0) ++length;
    Utf16ToCodePage(reinterpret_cast<const char16_t*>(field), length, 0, out, cap);
}

uint32_t g_pendingJobs = 0;

}  // namespace

void SetPendingJobCount(uint32_t count) {
    g_pendingJobs = count;
}

void PrintFileOption(const char* file, const char* printer, const char* copiesText) {
    int32_t copies = 1;
    // Decimal, octal ("03") and hexadecimal ("0x3") forms.
    if (copiesText != nullptr) copies = static_cast<int32_t>(strtol(copiesText, nullptr, 0));
    // A directory, or a name that is not there, prints nothing and says nothing.
    if (!FsExists(file) || FsIsDirectory(file)) return;
    PrintLocalFile(printer, file, BaseName(file), copies);
}

void PrintDirectoryOption(const char* directory, const char* printer) {
    std::vector<std::string> names;
    if (FsListDirectory(directory, CollectFileName, &names) != 0) return;
    // The same order on every system.
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        char path[kMaxPath];
        FormatText(path, sizeof path, "%s%c%s", directory, kPathSeparator, name.c_str());
        if (FsIsDirectory(path)) continue;
        PrintLocalFile(printer, path, name.c_str(), 1);
    }
}

void PrinterSettingsOption(const char* printer) {
    if (!Spooler().CanOpenPrinter(printer)) {
        fputs("Invalid printer name\n", stdout);
        fflush(stdout);
        return;
    }
    if (g_prsrv != nullptr) g_prsrv->ReportPrinterSettings(printer, 0);
    fflush(stdout);
}

void AnalysisOption() {
    fputs("\nLogging ZELWIN print environment... please wait!\n\nThis may take a few minutes...\n",
          stdout);
    fflush(stdout);
    Trace(kTraceNormal, "\n");
    if (g_prsrv == nullptr) return;
    Backend().LogPrintEnvironment(g_prsrv->TempDirectory(), 2, ZEL_ROOT_LOCAL_MACHINE);
}

void PendingJobsOption() {
    if (g_Options.UseEnhancedSW == 0) {
        fputs("Wrong command parameter: -l only usable with UseEnhancedSW option set\n", stdout);
        return;
    }
    if (g_prsrv == nullptr) return;
    size_t count = g_pendingJobs;
    size_t bytes = (count > 0 ? count : 1) * sizeof(SWE_JOB_INFO);
    auto* jobs = static_cast<SWE_JOB_INFO*>(
        g_prsrv->TrackedAlloc(bytes, kSource, __LINE__, "SWE_JOB_INFO *", 0));
    if (jobs == nullptr) {
        fputs("Error allocating memory\n", stdout);
        return;
    }
    int filled = count > 0 ? Backend().GetPendingJobsEx(jobs, static_cast<uint32_t>(count)) : 0;
    Trace(kTraceNormal, "Pending jobs:\n");
    Trace(kTraceNormal, "\n");
    for (int i = 0; i < filled; ++i) {
        char printer[256];
        char file[260];
        char jobId[50];
        char title[100];
        char owner[12];
        const SWE_JOB_INFO& job = jobs[i];
        FieldText(job.PrinterName, 256, printer, sizeof printer);
        FieldText(job.FileName, 260, file, sizeof file);
        FieldText(job.JobId, 51, jobId, sizeof jobId);
        FieldText(job.Title, 101, title, sizeof title);
        FieldText(job.Owner, 13, owner, sizeof owner);
        Trace(kTraceNormal, "%s %s %s %s %s\n", printer, file, jobId, title, owner);
    }
    g_prsrv->TrackedFree(jobs, kSource, __LINE__, "SWE_JOB_INFO *", 0);
}

void FontMetricsOption(const char* font, int mode, const char* flags) {
    int flagA = 0;
    int flagB = 0;
    if (flags != nullptr) {
        if (strcmp(flags, "-i01") == 0) flagA = 1;
        if (strcmp(flags, "-i10") == 0) flagB = 1;
        if (strcmp(flags, "-i11") == 0) flagA = flagB = 1;
    }
    if (g_prsrv == nullptr) return;
    int root = g_prsrv->Hive() == kHiveCurrentUser ? ZEL_ROOT_CURRENT_USER : ZEL_ROOT_LOCAL_MACHINE;
    Backend().WriteFontMetricFile(font, g_prsrv->TempDirectory(), mode, flagA, flagB, root,
                                  nullptr);
}

}  // namespace vx
