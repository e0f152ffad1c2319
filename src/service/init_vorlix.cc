#include "service/init_vorlix.h"

#include <new>

#include "base/eventlog.h"
#include "base/process.h"
#include "config/option_globals.h"
#include "jobs/job_lists.h"
#include "jobs/job_record.h"
#include "jobs/print_backend.h"
#include "jobs/printer_queue.h"
#include "jobs/printer_queues.h"
#include "lists/typed_list.h"
#include "net/listener.h"
#include "net/security_layer.h"
#include "printserver/service_events.h"
#include "printserver/zelprsrv.h"
#include "service/connections.h"

namespace vx {

EventHandle g_StopEvent = nullptr;

namespace {

bool g_exited = false;

// Releases the job lists made so far (on a failed start and at the end).
void DestroyJobLists() {
    ExitList(g_JobStatusList);
    ExitList(g_JobQueueList);
    g_JobStatusList = kInvalidListId;
    g_JobQueueList = kInvalidListId;
}

// The job status list and the job queue list, or with UseEnhancedSW the print library's queues.
// 0, the failing list creation's code, or the print library's result.
int CreateJobLists(int pendingJobsMode, uint32_t* pendingJobs) {
    if (g_Options.UseEnhancedSW != 0) {
        // The print library keeps queues and job states itself in this mode.
        return Backend().InitEx(2, pendingJobsMode, pendingJobs, g_prsrv->Host());
    }
    // Neither list counts in the list memory; the printers' job lists do.
    int rc = InitList(kJobStatusListCapacity, kJobStatusElementSize, &g_JobStatusList, 0);
    if (rc != 0) {
        TraceError("InitVorlix: cannot init job status list - aborting\n");
        return rc;
    }
    rc = TypedList<PrinterQueue>::Create(kJobQueueListCapacity, &g_JobQueueList, 0);
    if (rc != 0) {
        DestroyJobLists();
        TraceError("InitVorlix: cannot init job queue list - aborting\n");
        return rc;
    }
    return 0;
}

// The connection list, whichever keeps the jobs: connections are served in both modes. When it
// cannot be made, what CreateJobLists made is released again.
int CreateConnectionThreadList() {
    int rc = CreateConnectionList(g_Options.ConnectionMode);
    if (rc == 0) return 0;
    if (g_Options.UseEnhancedSW != 0)
        Backend().ExitEx();
    else
        DestroyJobLists();
    TraceError("InitVorlix: cannot init connection thread list - aborting\n");
    return rc;
}

}  // namespace

int InitVorlix(int loadLibraries, int pendingJobsMode, uint32_t* pendingJobs, int userMode) {
    if (pendingJobs != nullptr) *pendingJobs = 0;
    g_exited = false;

    PrsrvConfig config;
    config.runMode = kRunModeService;
    config.hive = userMode != 0 ? kHiveCurrentUser : kHiveLocalMachine;
    // Only the runs that print bind the optional libraries.
    config.loadLibraries = loadLibraries != 0;
    g_prsrv = new (std::nothrow) Czelprsrv(config);
    if (g_prsrv == nullptr) return 1;
    Czelprsrv& p = *g_prsrv;

    p.SetUserModeMark(userMode, p.SettingsKey());
    // The service keeps its trace logs whatever KeepFile says.
    p.KeepLogsAtEnd();

    char modulePath[kMaxPath] = {};
    GetExecutablePath(modulePath, sizeof modulePath);
    if (RegisterEventSourceEntry("Application", kServiceEventSource, modulePath, 1) != 0)
        TraceError("AddEventSource failed.\n");

    ReadOptionGlobals(p);
    p.Trace(kTraceNotable, "Module name: %s\n", modulePath);

    int rc = CreateJobLists(pendingJobsMode, pendingJobs);
    // A print library that did not start leaves its code to return; connections are served all
    // the same.
    if (rc == 0 || g_Options.UseEnhancedSW != 0) {
        int listRc = CreateConnectionThreadList();
        if (listRc != 0) rc = listRc;
    }
    p.ReportMemoryUsage(0, ListMemoryInUse());
    return rc;
}

void ExitVorlix() {
    if (g_exited || g_prsrv == nullptr) return;
    g_exited = true;
    g_prsrv->ReportMemoryUsage(1, ListMemoryInUse());
    // Every connection finishes its command before the workers are stopped.
    WaitForConnectionThreads();
    // The workers end after their current job; the queues are saved for the next start.
    if (g_Options.UseEnhancedSW != 0)
        Backend().ExitEx();
    else
        StopPrinterQueues();
    DestroyJobLists();
    DestroyConnectionList();
    ExitSecurity();
    Czelprsrv* p = g_prsrv;
    g_prsrv = nullptr;
    delete p;
}

void StopService(const char* message) {
    if (g_prsrv != nullptr)
        g_prsrv->Trace(kTraceBanner, "%s", message != nullptr ? message : "Stop service.\n");
    ExitVorlix();
    // The base libraries after the service's own state: the listening handle and the network trace.
    if (g_ListenHandle != kNiNoHandle) {
        NiCloseHandle(g_ListenHandle);
        g_ListenHandle = kNiNoHandle;
    }
    NiTraceClose();
    if (g_StopEvent != nullptr) EvSet(g_StopEvent);
}

}  // namespace vx
