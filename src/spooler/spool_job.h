// One print job sent to the host's print system: CUPS on Linux, the Windows spooler (winspool,
// RAW data type) on Windows. The data goes in chunks; once the document is finished the print
// system holds the whole job, and the caller may follow it until it has reached the device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/codepage.h"

namespace vx {

// The built-in file printer of the Linux build (BuiltInPrinterName): jobs for it are written into
// the output directory, so that a machine without CUPS still prints somewhere visible. The
// spooler layer reports it as a printer too.
constexpr char kFilePrinterName[] = "file";
// Printer names are passed to the print system in the code page of its narrow-text calls.
constexpr uint32_t kPrinterNameCodePage = kCodePageNarrowApi;

// How the print system is told to treat the data.
enum class SpoolFormat {
    kRaw,  // passed to the device unchanged
    kPdf,  // PDF for the print system to render (Linux); sent raw on Windows
};

// Results of the calls below.
enum SpoolResult {
    kSpoolOk = 0,
    kSpoolFailed = -1,       // the print system refused, cancelled or aborted the job
    kSpoolDeviceError = -2,  // the print system refused the job: it cannot be reached, or the
                             // printer is unknown or not accepting jobs
    kSpoolPending = 1,       // the finished job is still on its way to the device
    kSpoolHeld = 2,          // the print system holds the finished job until its printer can
                             // print (a paused or stopped printer, an unreachable device)
};

struct SpoolJob;

// Cancels a job that was not finished and releases it.
void SpoolJobRelease(SpoolJob* job);

struct SpoolJobReleaser {
    void operator()(SpoolJob* job) const { SpoolJobRelease(job); }
};
using SpoolJobPtr = std::unique_ptr<SpoolJob, SpoolJobReleaser>;

// Opens the printer and starts a job named title, for owner where the print system takes the
// user from its caller (CUPS; the Windows spooler takes the service's own user). On failure *job
// stays empty and error names the call that failed, the printer and the reason ("Create-Job
// failed for printer X: ..."). documentBytes is the length of the data to come when known (-1
// otherwise): CUPS then takes the document in one piece instead of in chunks, and data beyond it,
// or a document that ends short of it, fails the job.
int SpoolJobStart(const char* printer, const char* title, const char* owner, SpoolFormat format,
                  int64_t documentBytes, SpoolJobPtr* job, char* error, size_t errorSize);

// Sends the next piece of the job's data.
int SpoolJobWrite(SpoolJob* job, const void* data, size_t size, char* error, size_t errorSize);

// Ends the job's document: from here on the print system holds the whole job, and releasing it
// no longer cancels it.
int SpoolJobFinish(SpoolJob* job, char* error, size_t errorSize);

// Where a finished job is now: kSpoolOk once it has reached the device (the Windows spooler
// takes a job over whole: at once), kSpoolPending while it is on its way, kSpoolHeld while the
// print system holds it for a printer that cannot print now (error says why), kSpoolFailed when
// the print system cancelled or aborted it. One look; the caller decides how long to follow.
int SpoolJobProgress(SpoolJob* job, char* error, size_t errorSize);

// The print system's number of the job (0 before it has one).
int SpoolJobNumber(const SpoolJob* job);

// What became of a job that an earlier process gave the print system and then died before it
// heard the end: the print system holds the whole job (waiting, held, printing or printed); the
// job is gone (cancelled, aborted, unknown to the print system, or still without all its data,
// in which case it is cancelled now, so that it never prints in part); or the print system cannot
// tell.
enum class SpooledJobFate { kTaken, kGone, kUnknown };
SpooledJobFate SpooledJobFateOf(const char* printer, int number);

}  // namespace vx
