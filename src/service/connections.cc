// Connection threads and the connection list.
//
// The accepting (main) thread takes one connection at a time. With connection threads it puts a
// ConnInfo record into the connection list, starts a thread with a copy of the record and waits
// on hEventInit until the thread has taken it over; without both events the accepting thread
// serves the connection itself. The thread serves the connection and, as long as the service
// runs, removes its record from the list itself (under the list's lock), setting and closing
// hEventQueue. Once a stop reason is set the thread only sets hEventQueue and leaves the record
// to the shutdown wait, which polls the first record's event once a second, never holding the
// list's lock longer than that, so that finishing threads can still reach it. A thread still
// traces after it has set its event, so the threads are also counted: the shutdown wait ends
// only when every one has left its body.
#include "service/connections.h"

#include <atomic>
#include <cerrno>
#include <thread>

#include "base/clock.h"
#include "base/ni.h"
#include "config/process_state.h"
#include "jobs/job_lists.h"
#include "jobs/thread_group.h"
#include "lists/list_lock.h"
#include "lists/typed_list.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"
#include "protocol/connection_handler.h"
#include "service/inline_stop_watch.h"

namespace vx {

namespace {

constexpr uint32_t kShutdownPollMs = 1000;

// ConnectionMode as the connection list was made with: option changes at run time must not make
// the accept path or the end of the service use a list that does not exist.
std::atomic<int32_t> g_listMode{0};

// Connections are keyed by their network handle, the first member of the record.
int MatchConnection(const void* key, const void* element, int, void*) {
    if (key == nullptr || element == nullptr) return 1;
    return *static_cast<const int32_t*>(key) ==
                   static_cast<const ConnInfo*>(element)->Connection.niHandle
               ? 0
               : 1;
}

void ServeConnection(ConnInfo& info) {
    int32_t state = 0;
    ConnectionHandler(&info.Connection, info.ConnectionArg, &state);
}

// Serves the connection on the accepting thread, under a watch that bounds a stop.
void ServeInline(ConnInfo& info, uint32_t stopGraceMs) {
    InlineStopWatch watch(stopGraceMs);
    ServeConnection(info);
}

// Removes the ended connection's record, setting and closing the event of the record found.
void RemoveFromList(ConnInfo& own) {
    ListLockHold hold(g_ConnThreadList);
    int32_t handle = own.Connection.niHandle;
    ConnInfo found{};
    int32_t index = 0;
    if (FindElement(g_ConnThreadList, MatchConnection, &index, &handle, &found, 0) != 0) {
        TraceError("Connection %i not found in list %i\n", handle, g_ConnThreadList);
        EvSet(own.hEventQueue);
        EvClose(own.hEventQueue);
        return;
    }
    EvSet(found.hEventQueue);
    EvClose(found.hEventQueue);
    DeleteElement(g_ConnThreadList, MatchConnection, &handle, 0);
}

// The connection threads, counted until each has left its body: the end of the service waits
// for them before the print-server object they trace through goes away. Never destroyed: a
// thread may still leave while static objects are being destroyed.
ThreadGroup& ConnectionThreads() {
    static ThreadGroup* group = new ThreadGroup;
    return *group;
}

// Starts the thread with a copy of the record, which lives as long as the thread: nothing the
// thread reads depends on the accepting thread's stack. 0, or EAGAIN (or -1) when it could not
// be started.
int StartConnectionThread(const ConnInfo& info) {
    return ConnectionThreads().Start([copy = info]() mutable { ConnectionThread(&copy); });
}

// True when both events of the record exist; otherwise closes the one that does.
bool HasBothEvents(ConnInfo& info) {
    if (info.hEventInit != nullptr && info.hEventQueue != nullptr) return true;
    if (info.hEventInit != nullptr) EvClose(info.hEventInit);
    if (info.hEventQueue != nullptr) EvClose(info.hEventQueue);
    info.hEventInit = nullptr;
    info.hEventQueue = nullptr;
    return false;
}

void ReportThreadStartFailure(int error) {
    if (error == EAGAIN)
        TraceError("Could not start connection thread: Too many threads.\n");
    else
        TraceError("Could not start connection thread.\n");
    RequestStop(kStopConnectionThread);
}

}  // namespace

int CreateConnectionList(int32_t mode) {
    g_listMode = 0;
    if (mode == 0) return 0;
    int rc = TypedList<ConnInfo>::Create(kConnThreadListCapacity, &g_ConnThreadList, 0);
    if (rc == 0) g_listMode = mode;
    return rc;
}

void DestroyConnectionList() {
    ExitList(g_ConnThreadList);
    g_ConnThreadList = kInvalidListId;
    g_listMode = 0;
}

void ConnectionThread(ConnInfo* info) {
    ConnInfo own = *info;
    // From here on the accepting thread may reuse its record.
    EvSet(own.hEventInit);
    Trace(kTraceDetail, "Start new connection thread\n");

    // The handler closes the socket; the record keeps the handle as the list's key.
    ConnInfo served = own;
    ServeConnection(served);

    if (g_StopReason != kStopNone) {
        Trace(kTraceDetail, "Signaling connection %i with event %p for list %i\n",
              own.Connection.niHandle, own.hEventQueue, g_ConnThreadList);
        EvSet(own.hEventQueue);
    } else {
        RemoveFromList(own);
    }
    Trace(kTraceDetail, "End connection thread\n");
}

void AcceptConnection(uint32_t stopGraceMs) {
    ConnInfo info{};
    int isLocal = 0;
    while (AcceptNetworkConnection(&info.Connection, g_ListenHandle, &isLocal) < 0) {
        // Served all the same: the handler reports the failed descriptor and returns.
        if (g_StopReason != kStopNone) break;
    }
    info.ConnectionArg = isLocal;
    Trace(kTraceDetail, "Got handle %d for new connection\n", info.Connection.niHandle);

    if (g_listMode == 0) {
        ServeInline(info, stopGraceMs);
        return;
    }

    info.hEventInit = EvCreate("");
    info.hEventQueue = EvCreate("");
    if (g_prsrv != nullptr) {
        g_prsrv->TraceApi("CreateEvent(.., connInfo.hEventInit) = %p\n", info.hEventInit);
        g_prsrv->TraceApi("CreateEvent(.., connInfo.hEventQueue) = %p\n", info.hEventQueue);
    }
    if (!HasBothEvents(info)) {
        // No thread could confirm its start or report its end, and the shutdown wait would poll
        // a record without an event: the connection is served here instead.
        TraceError("CreateEvent failed: connection %i is served without a connection thread.\n",
                   info.Connection.niHandle);
        ServeInline(info, stopGraceMs);
        return;
    }
    TypedList<ConnInfo>(g_ConnThreadList).Append(info, 1);

    int error = StartConnectionThread(info);
    if (error == 0) {
        EvWait(info.hEventInit, kWaitInfinite);
    } else {
        // Nobody serves this connection: it ends here. Its record stays in the list with its
        // event set, so that the shutdown of the restart that follows does not wait for it.
        ReportThreadStartFailure(error);
        if (info.Connection.niHandle != kNiNoHandle) SocketClose(info.Connection);
        EvSet(info.hEventQueue);
    }
    EvClose(info.hEventInit);
}

void WaitForConnectionThreads(uint32_t graceMs) {
    if (g_prsrv != nullptr)
        g_prsrv->Trace(kTraceNotable, "List memory in use: %u bytes\n", ListMemoryInUse());
    if (g_listMode == 0) return;
    Trace(kTraceNotable, "Enter connection loop\n");
    uint64_t graceEnd = (StopRequestedAtMs() != 0 ? StopRequestedAtMs() : TickCountMs()) + graceMs;
    bool graceOver = false;
    for (;;) {
        uint64_t now = TickCountMs();
        if (!graceOver && now >= graceEnd) {
            // Their threads see the end of their connections and finish as after any other end.
            graceOver = true;
            int open = NiShutDownConnections();
            if (open > 0)
                Trace(kTraceNormal, "Stopping: %d connections still open after %u ms closed.\n",
                      open, static_cast<unsigned>(graceMs));
        }
        uint32_t waitMs = kShutdownPollMs;
        if (!graceOver && graceEnd - now < waitMs) waitMs = static_cast<uint32_t>(graceEnd - now);
        ListLockHold hold(g_ConnThreadList);
        if (!hold.Held()) break;
        ConnInfo* first = TypedList<ConnInfo>(g_ConnThreadList).First(0);
        if (first == nullptr) break;
        Trace(kTraceDetail, "Wait for connection event %p for connection %i for list %i\n",
              first->hEventQueue, first->Connection.niHandle, g_ConnThreadList);
        if (EvWait(first->hEventQueue, waitMs) == kWaitSignaled) {
            EvClose(first->hEventQueue);
            int rc = DeleteFirstElement(g_ConnThreadList, 0);
            Trace(kTraceDetail, "Delete connection from list %i rc = %i\n", g_ConnThreadList, rc);
        }
        // The lock is given up between passes so that ending threads reach the list.
        hold.Release();
        std::this_thread::yield();
    }
    // A thread still traces and releases its resources after it has signalled its record.
    ConnectionThreads().WaitUntilNoneRuns();
    Trace(kTraceNotable, "Finish connection loop.\n");
}

}  // namespace vx
