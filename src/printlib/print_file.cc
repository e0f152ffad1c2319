// PrintFile: the service hands one job's data file to the library.
#include <cstring>

#include "base/fileops.h"
#include "printlib/host_trace.h"
#include "printlib/job_delivery.h"
#include "printlib/wide_text.h"
#include "printlib/zelwin.h"
#include "spooler/spool_job.h"

extern "C" {

// The base and work directories, the device context, the reserved values, the registry root
// and the two print parameters carry nothing for raw and PDF streams.
ZELWIN_API int PrintFile(const char* fileName, const char*, const char*, const ZelWide* printerName,
                         const char* jobId, const char* title, const char* owner, int copies, int,
                         int streamType, void*, void*, int, const char*, int, int,
                         const ZelHost* host) {
    if (host == nullptr) return ZEL_RC_BAD_ARGUMENT;
    if (fileName == nullptr || printerName == nullptr) {
        zel::TraceError(host, "PrintFile called without %s\n",
                        fileName == nullptr ? "a file name" : "a printer name");
        return ZEL_RC_BAD_ARGUMENT;
    }
    char printer[512];
    zel::NarrowText(zel::WideText(printerName), vx::kPrinterNameCodePage, printer, sizeof printer);
    zel::PrintRequest request{
        printer,    fileName, jobId != nullptr ? jobId : "", title != nullptr ? title : "", copies,
        streamType, owner};
    int rc = zel::PrintOneJob(host, request);
    zel::TraceLine(host, 9, "PrintFile: job %s on printer %s: rc = %d\n", request.jobId, printer,
                   rc);
    return rc;
}
}
