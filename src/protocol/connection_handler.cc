// The connection handler: one connection carries exactly one command. The first read decides the
// protocol ("SC" opens an extended-protocol session, anything else is an LPD command), the
// command is served, a received job goes to job processing, and the socket is closed.
//
// LPD commands (RFC 1179) accept the binary code and the ASCII digit alike:
//   1 print waiting jobs, 2 receive a job, 3/4 queue state (short and long alike), 5 remove jobs.
// Refusals are the one-byte negative acknowledgement 0xFF; nothing else explains them.
#include "protocol/connection_handler.h"

#include <cstring>

#include "config/option_globals.h"
#include "config/process_state.h"
#include "jobs/job_context.h"
#include "jobs/job_lists.h"
#include "jobs/job_status_list.h"
#include "jobs/printer_queues.h"
#include "lists/zlplist.h"
#include "net/security_layer.h"
#include "net/security_state.h"
#include "printserver/version_text.h"
#include "printserver/zelprsrv.h"
#include "protocol/extended_session.h"
#include "protocol/lpd_receive.h"
#include "protocol/status_query.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

constexpr int32_t kFirstBufferSize = 3000;
// A queue name holds at most 255 characters; the buffer is the size the status queries expect.
constexpr int kQueueBufferSize = 257;
constexpr size_t kMaxQueueName = 255;
constexpr size_t kJobNameSize = 50;
constexpr size_t kMaxJobName = 49;
// A print or receive command line: the command byte, the queue name and a line feed.
constexpr int32_t kMinCommandLine = 2;
constexpr int32_t kMaxCommandLine = 258;
constexpr int32_t kMemoryReportInterval = 1000;

bool IsSeparator(char c) {
    return c == ' ' || c == '\t' || c == '\f';
}

bool IsLineEnd(char c) {
    return c == '\n' || c == '\0';
}

// Rejects a command the dispatch cannot read.
void Refuse(NetSocket& socket, const char* why) {
    TraceError("%s\n", why);
    SendAck(-1, socket);
}

void WrongCommand(NetSocket& socket) {
    Refuse(socket, "Wrong lpd command!");
}

// Sends a text without its terminating NUL (the LPD texts are plain lines).
void SendLine(NetSocket& socket, const char* text) {
    SocketWrite(socket, text, static_cast<int32_t>(strlen(text)));
}

// The queue name of a print or receive command: everything between the command byte and the
// final line feed. False when the line has not the length of such a command.
bool TakeCommandQueue(const char* buffer, int32_t length, char* queue, size_t size) {
    if (length < kMinCommandLine || length > kMaxCommandLine) return false;
    size_t chars = static_cast<size_t>(length - 2);
    CopyTextN(queue, size, buffer + 1, chars < kMaxQueueName ? chars : kMaxQueueName);
    return true;
}

// Copies a word from text (at most max characters, ending at a separator or a line end, or at
// the end of the buffer). *next receives where the copy stopped. False when the word is longer
// than max: at the limit, only a separator or a line end may follow.
bool TakeWord(const char* text, const char* end, char* out, size_t size, size_t max,
              const char** next) {
    size_t count = 0;
    while (text + count < end && count < max && !IsSeparator(text[count]) &&
           !IsLineEnd(text[count]))
        ++count;
    CopyTextN(out, size, text, count);
    *next = text + count;
    if (count < max || *next >= end) return true;
    return IsSeparator(**next) || IsLineEnd(**next);
}

void AnswerVersion(NetSocket& socket) {
    char version[64];
    GetVorlixVersionText(version, sizeof version);
    char line[128];
    FormatText(line, sizeof line, "This is Vorlix Version %s (64Bit)\n", version);
    SendLine(socket, line);
}

// Queue state, short and long alike: "3queue", "3queue JOB name", and the version query.
void QueueStateCommand(const char* buffer, int32_t length, NetSocket& socket) {
    if (length < kMinCommandLine) return WrongCommand(socket);
    const char* end = buffer + length;
    char queue[kQueueBufferSize];
    const char* stop = nullptr;
    if (!TakeWord(buffer + 1, end, queue, sizeof queue, kMaxQueueName, &stop))
        return WrongCommand(socket);

    if (stop >= end || IsLineEnd(*stop) || (stop + 1 < end && stop[1] == '\n'))
        return QueryPrinter(&socket, queue, kQueueBufferSize);

    const char* rest = stop;
    while (rest < end && IsSeparator(*rest)) ++rest;
    constexpr size_t kJobKeywordLength = 4;
    if (static_cast<size_t>(end - rest) >= kJobKeywordLength &&
        memcmp(rest, "JOB ", kJobKeywordLength) == 0) {
        char job[kJobNameSize];
        const char* after = nullptr;
        if (!TakeWord(rest + kJobKeywordLength, end, job, sizeof job, kMaxJobName, &after))
            return WrongCommand(socket);
        return QueryJob(&socket, queue, kQueueBufferSize, job);
    }

    constexpr int32_t kVersionQueryLength = 5;
    if (length < kVersionQueryLength) return WrongCommand(socket);
    if (memcmp(buffer, "4 x 1", kVersionQueryLength) == 0) return AnswerVersion(socket);
    // Any other such line is ignored: no answer, the connection is closed.
}

// A remote sender may not use plain LPD while security is required.
bool RejectedForSecurity(NetSocket& socket, int peerIsLocal) {
    int32_t state = g_SecurityState;
    if (peerIsLocal != 0 || (state != kSecurityRequired && state != kSecurityRequiredMissing))
        return false;
    TraceError("Vorlix will not accept Berkeley connection (method 'U')\n");
    TraceError("while running with required security.\n");
    SendLine(socket, "Connection rejected for security reasons.\n");
    return true;
}

// Counts a job taken over; every 1000th writes the memory report, and passing RestartAfterJobs
// asks the main thread for a scheduled restart.
void CountJob() {
    int32_t jobs = ++g_ProcessedJobs;
    if (jobs % kMemoryReportInterval == 0 && g_prsrv != nullptr)
        g_prsrv->ReportMemoryUsage(jobs, ListMemoryInUse());
    int32_t limit = g_Options.RestartAfterJobs;
    if (limit > 0 && jobs > limit) RequestStop(kStopScheduled);
}

// LPD jobs completed by one file of the dialogue: marked printing, their identifiers recorded for
// processing, journaled and queued all together, counted.
int ProcessLpdJobs(void*, JobRecord* const* jobs, int count) {
    for (int i = 0; i < count; ++i) {
        jobs[i]->Status = kJobPrinting;
        if (jobs[i]->Context != nullptr) CopyText(jobs[i]->Context->JobId, jobs[i]->JobId);
    }
    if (ProcessJobs(jobs, count, 'U') != 0) return -1;
    for (int i = 0; i < count; ++i) CountJob();
    return 0;
}

// An extended-protocol job the sender has closed: entered into the status list (unless no status
// is kept for it), queued with protocol letter 'S' and counted, before the sender hears "OK". A
// job delivered into a file already is entered as done.
int ProcessExtendedJob(void*, JobRecord* job, bool delivered) {
    int entered = EnterReceivedJob(job);
    if (entered < 0) {
        TraceError("Can not store job %s\n", job->JobId);
        return -1;
    }
    if (entered == 0)
        Trace(kTraceDetail, "Insert job %s in status list %i, status = %i\n", job->JobId,
              g_JobStatusList, job->Status);
    if (delivered) {
        if (entered == 0) RecordPrintOutcome(job->PrinterName, job->JobId, 0);
    } else if (ProcessJob(job, 'S') != 0) {
        if (entered == 0) RemoveJobStatus(job->PrinterName, job->JobId);
        return -1;
    }
    CountJob();
    return 0;
}

void ReceiveJobCommand(const char* buffer, int32_t length, NetSocket& socket, int peerIsLocal) {
    if (length < kMinCommandLine || length > kMaxCommandLine) return WrongCommand(socket);
    if (RejectedForSecurity(socket, peerIsLocal)) return;
    char queue[kQueueBufferSize];
    TakeCommandQueue(buffer, length, queue, sizeof queue);
    Trace(kTraceBanner, "Receive job for printer %s (Berkley protocol).\n", queue);
    // The sender learns at once that the host has no such queue, instead of its job vanishing
    // after the acknowledgement.
    ResolveDefaultPrinter(queue, sizeof queue);
    if (!Spooler().CanOpenPrinter(queue)) {
        TraceError("Receive job for unknown printer %s refused.\n", queue);
        SendAck(-1, socket);
        return;
    }
    SendAck(0, socket);
    ReceiveJob(queue, &socket, ProcessLpdJobs, nullptr);
}

void CloseConnection(NetSocket& socket, int32_t* state) {
    if (*state == -1) return;
    SocketClose(socket);
    *state = -1;
}

}  // namespace

void LpdDispatch(const char* buffer, int32_t length, NetSocket* socket, int peerIsLocal) {
    if (length <= 0 || buffer == nullptr || socket == nullptr) return;
    char queue[kQueueBufferSize];
    switch (buffer[0]) {
        case 0x01:
        case '1':
            // Printing is never held back here: the request is acknowledged and nothing else.
            if (!TakeCommandQueue(buffer, length, queue, sizeof queue)) {
                WrongCommand(*socket);
                return;
            }
            SendAck(0, *socket);
            return;
        case 0x02:
        case '2':
            return ReceiveJobCommand(buffer, length, *socket, peerIsLocal);
        case 0x03:
        case 0x04:
        case '3':
        case '4':
            QueueStateCommand(buffer, length, *socket);
            return;
        case 0x05:
        case '5':
            if (length < kMinCommandLine)
                WrongCommand(*socket);
            else
                SendLine(*socket, "lprm not implemented.\n");
            return;
        default:
            Refuse(*socket, "Unknown lpd command!");
            return;
    }
}

void ConnectionHandler(NetSocket* socket, int peerIsLocal, int32_t* state) {
    int32_t ownState = 0;
    if (state == nullptr) state = &ownState;
    if (socket == nullptr) {
        *state = -1;
        return;
    }
    // The security layer sees the connection before any protocol traffic: one it turns away
    // is closed without a word.
    if (!PrepareConnectionSecurity(*socket)) {
        CloseConnection(*socket, state);
        return;
    }
    char buffer[kFirstBufferSize + 1] = {};
    int32_t length = SocketRead(*socket, buffer, kFirstBufferSize);
    if (length < 0) {
        Trace(kTraceBanner, "Lost connection after initial connect.\n");
        if (socket->niHandle != kNiNoHandle) CloseConnection(*socket, state);
        *state = -1;
        return;
    }

    if (length >= 2 && buffer[0] == 'S' && buffer[1] == 'C') {
        ExtendedSession(*socket, ProcessExtendedJob, nullptr);
    } else {
        LpdDispatch(buffer, length, socket, peerIsLocal);
    }

    if (*state != -1) {
        Trace(kTraceDetail, "Command received, closing socket.\n");
        CloseConnection(*socket, state);
    }
}

}  // namespace vx
