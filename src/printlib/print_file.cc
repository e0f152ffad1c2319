// Placeholder entry points until the print library's work lands: every call fails plainly.
#include "printlib/zelwin.h"

extern "C" {

ZELWIN_API int PrintFile(const char*, const char*, const char*, const ZelWide*, const char*,
                         const char*, const char*, int, int, int, void*, void*, int, const char*,
                         int, int, const ZelHost* host) {
    if (host != nullptr)
        host->Trace(host->context, -1, "Error: PrintFile: printing is not part of this build\n");
    return ZEL_RC_NOT_SUPPORTED;
}

ZELWIN_API int InitEx(int, int, uint32_t* pendingCount, const ZelHost*) {
    if (pendingCount != nullptr) *pendingCount = 0;
    return -1;
}
ZELWIN_API int ExitEx(void) { return 0; }
ZELWIN_API int QueueJobEx(const ZelWide*, const ZelWide*, const ZelWide*, const ZelWide*, int, int,
                          const ZelWide*) {
    return -1;
}
ZELWIN_API int JobStatusQueryEx(const ZelWide*, const ZelWide*, int*, ZelWide*, int) { return -1; }
ZELWIN_API int GetPendingJobsEx(SWE_JOB_INFO*, uint32_t) { return 0; }
ZELWIN_API int LockPrinterListEx(const ZelWide*) { return -1; }
ZELWIN_API int UnlockPrinterListEx(const ZelWide*) { return -1; }
ZELWIN_API int GetNumberOfEntriesEx(const ZelWide*, int* count) {
    if (count != nullptr) *count = 0;
    return -1;
}
ZELWIN_API int GetNextQueueEntryEx(const ZelWide*, int, char*, int) { return -1; }
ZELWIN_API int ChangeOptionEx(const char*, const char*) { return 0; }
ZELWIN_API int LogPrintEnvironment(const char*, int, int) { return -1; }
ZELWIN_API int WriteFontMetricFile(const char*, const char*, int, int, int, int, void*) { return -1; }
}
