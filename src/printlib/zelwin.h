/* The print library: "zelwin64.dll" on Windows, "libzelwin.so" on Linux. The service links it at
   build time and prints every job through PrintFile; with UseEnhancedSW the library also keeps the
   printer queues and job states itself (the *Ex calls).

   A plain C interface, so that the service and the library share no C++ runtime state. Texts are
   narrow strings in the host's code page unless typed ZelWide (UTF-16LE, terminated). The service
   lends the library its settings and its trace through a ZelHost. */
#ifndef VORLIX_ZELWIN_H
#define VORLIX_ZELWIN_H

#include <stddef.h>
#include <stdint.h>

#include "base/dll_export.h"

#if defined(ZELWIN_BUILDING)
#define ZELWIN_API VX_DLL_EXPORT
#else
#define ZELWIN_API VX_DLL_IMPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef uint16_t ZelWide;

/* Print results. */
enum {
    ZEL_RC_OK = 0,
    ZEL_RC_FAILED = 1, /* any failure not named below; the reason is in the trace */
    ZEL_RC_BAD_ARGUMENT = 2,
    ZEL_RC_NO_FILE = 3,       /* the data file cannot be read */
    ZEL_RC_NOT_SUPPORTED = 4, /* the stream type cannot be printed (the print-library stream) */
    ZEL_RC_DEVICE = 11,       /* the print system refused the job: unreachable, no such printer,
                                 or a printer that accepts no jobs */
};

/* Stream types. */
enum { ZEL_STREAM_ZELWIN = 1, ZEL_STREAM_RAW = 2, ZEL_STREAM_PDF = 3 };

/* Registry roots. */
enum { ZEL_ROOT_LOCAL_MACHINE = 0, ZEL_ROOT_CURRENT_USER = 1 };

/* Job states of the enhanced mode, as JobStatusQueryEx reports them. */
enum { ZEL_JOB_WAITING = 20, ZEL_JOB_PRINTING = 21, ZEL_JOB_DONE = 22, ZEL_JOB_ERROR = 23 };

/* What the service lends the library: its settings (global with per-printer override) and its
   trace. Every member must be set. */
typedef struct ZelHost {
    void* context;
    /* The effective integer setting for a printer (printer may be null). */
    int32_t (*GetOptionValue)(void* context, const char* printer, const char* name, int32_t def);
    /* A text setting, cut to size. */
    void (*GetString)(void* context, const char* name, const char* def, char* buffer, size_t size);
    /* Where the built-in file printer writes its jobs (ends with a separator). */
    void (*GetOutputDirectory)(void* context, char* buffer, size_t size);
    /* One trace line at a level; the text ends with "\n". Error lines are level -1 and their text
       begins "Error: ". */
    void (*Trace)(void* context, int level, const char* text);
    /* The job of a data file has been made in the print system, which knows it by this number;
       called before the job's data is sent. May be null. */
    void (*JobSpooled)(void* context, const char* fileName, int spoolJobNumber);
    /* Nonzero once the host is ending: a job the print system already holds is then left to it
       instead of being followed until it prints. May be null. */
    int (*Ending)(void* context);
} ZelHost;

/* Prints one file. Raw streams reach the printer unchanged; PDF goes as PDF (for the print system
   to render) unless "PDFasRAW" says to send it as it is. copies: the data is sent that many times.
   Returns ZEL_RC_*. The device context, the reserved pointer and the reserved string are unused. */
ZELWIN_API int PrintFile(const char* fileName, const char* baseDirectory, const char* workDirectory,
                         const ZelWide* printerName, const char* jobId, const char* title,
                         const char* owner, int copies, int wideData, int streamType,
                         void* deviceContext, void* reserved, int registryRoot,
                         const char* reservedText, int printParam2, int printParam1,
                         const ZelHost* host);

/* ---- enhanced mode: the library keeps the queues and job states ---- */

/* One pending job as GetPendingJobsEx reports it. */
typedef struct SWE_JOB_INFO {
    ZelWide PrinterName[256];
    ZelWide FileName[260];
    ZelWide JobId[51];
    ZelWide Title[101];
    ZelWide Owner[13];
} SWE_JOB_INFO;

/* mode 2: the service's queueing. pendingMode: count the jobs still pending from the last run
   into *pendingCount. 0 on success. */
ZELWIN_API int InitEx(int mode, int pendingMode, uint32_t* pendingCount, const ZelHost* host);
/* Waits for the current jobs, keeps the waiting ones for the next start. 0 on success. */
ZELWIN_API int ExitEx(void);
ZELWIN_API int QueueJobEx(const ZelWide* printerName, const ZelWide* fileName, const ZelWide* title,
                          const ZelWide* owner, int copies, int noStatus, const ZelWide* jobId);
/* 0 and the job's state (ZEL_JOB_*) and error text, or a nonzero code when the job is unknown. A
   final state is reported once and then forgotten. */
ZELWIN_API int JobStatusQueryEx(const ZelWide* jobId, const ZelWide* printerName, int* state,
                                ZelWide* errorText, int errorTextSize);
/* Fills at most count records; returns the number filled. */
ZELWIN_API int GetPendingJobsEx(SWE_JOB_INFO* jobs, uint32_t count);
ZELWIN_API int LockPrinterListEx(const ZelWide* printerName);
ZELWIN_API int UnlockPrinterListEx(const ZelWide* printerName);
ZELWIN_API int GetNumberOfEntriesEx(const ZelWide* printerName, int* count);
/* The index-th waiting job of a printer as one status line, ready to send. */
ZELWIN_API int GetNextQueueEntryEx(const ZelWide* printerName, int index, char* line, int size);
/* A run-time option change that the service forwards. */
ZELWIN_API int ChangeOptionEx(const char* name, const char* value);

/* ---- diagnostics ---- */

/* Writes a report of the host's printers, drivers and ports into directory. */
ZELWIN_API int LogPrintEnvironment(const char* directory, int mode, int registryRoot);
/* Writes the metrics of an installed font into directory. mode 1 or 2; flags as the format needs.
 */
ZELWIN_API int WriteFontMetricFile(const char* fontName, const char* directory, int mode, int flagA,
                                   int flagB, int registryRoot, void* reserved);

#ifdef __cplusplus
}
#endif

#endif
