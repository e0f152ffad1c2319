// The printer query: the spooler's jobs of the printer, or the warning that keeps them from
// printing, then the jobs still waiting in the service's own queue for it. Its lines never carry
// a NUL byte.
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/print_backend.h"
#include "jobs/printer_queues.h"
#include "jobs/zel_wide.h"
#include "printserver/zelprsrv.h"
#include "protocol/status_query.h"
#include "spooler/spooler_seam.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "printer_query.cc";
constexpr const char* kHeader = "Rank   Owner      Job  Files\n";
constexpr int kEnumAttempts = 10;
constexpr size_t kEnumSlack = 960;  // room for jobs that arrive between counting and reading
constexpr size_t kReplyLineSize = 1024;

// What the answer has sent so far.
struct PrinterAnswer {
    NetSocket* socket;
    const char* printer;
    bool headerSent;
    bool warningSent;
    int rank;  // the rank of the next job line: 0 is the active job
};

// The answer's texts go out without their NUL, whatever "send_with_null" says: LPD clients stop
// reading at the first NUL byte and would show only the header.
void SendText(NetSocket& socket, const char* text) {
    SocketWrite(socket, text, static_cast<int32_t>(strlen(text)));
}

void SendLine(PrinterAnswer& answer, const char* fmt, ...) VX_PRINTF(2, 3);
void SendLine(PrinterAnswer& answer, const char* fmt, ...) {
    char line[kReplyLineSize];
    va_list args;
    va_start(args, fmt);
    FormatTextV(line, sizeof line, fmt, args);
    va_end(args);
    SendText(*answer.socket, line);
}

void SendHeaderOnce(PrinterAnswer& answer) {
    if (answer.headerSent) return;
    SendText(*answer.socket, kHeader);
    answer.headerSent = true;
}

void RankText(int rank, char* out, size_t cap) {
    static const char* const kFirstRanks[] = {"active", "1st", "2nd", "3rd"};
    if (rank >= 0 && rank < 4)
        CopyText(out, cap, kFirstRanks[rank]);
    else
        FormatText(out, cap, "%dth", rank);
}

void SendJobLine(PrinterAnswer& answer, const char* owner, int jobColumn, const char* name) {
    char rank[16];
    RankText(answer.rank, rank, sizeof rank);
    SendLine(answer, "%-6.6s %-12.12s%3d  %s\n", rank, owner, jobColumn, name);
    ++answer.rank;
}

// The printer conditions a sender hears of, in the order they are looked at.
struct PrinterCondition {
    uint32_t bit;
    const char* reply;
    const char* traced;
};

constexpr PrinterCondition kPrinterConditions[] = {
    {kPrinterPaused, "Warning: Device paused\n", "device paused"},
    {kPrinterError, "Warning: Device error\n", "device error"},
    {kPrinterNoToner, "Warning: Device no toner\n", "device no toner"},
    {kPrinterNotAvailable, "Warning: Device not available\n", "device not available"},
    {kPrinterOffline, "Warning: Device offline\n", "device offline"},
    {kPrinterOutOfMemory, "Warning: Device out of memory\n", "device out of memory"},
    {kPrinterOutputBinFull, "Warning: Device output bin full\n", "device output bin full"},
    {kPrinterPaperJam, "Warning: Device paper jam\n", "device paper jam"},
    {kPrinterPaperOut, "Warning: Device out of paper\n", "device out of paper"},
    {kPrinterPaperProblem, "Warning: Device paper problem\n", "device paper problem"},
    {kPrinterUserIntervention, "Warning: User intervention required\n", "user invention required"},
};

struct JobCondition {
    uint32_t bit;
    const char* reply;
};

constexpr JobCondition kJobConditions[] = {
    {kSpoolJobBlockedQueue, "Warning: Device queue blocked\n"},
    {kSpoolJobError, "Warning: Device error\n"},
    {kSpoolJobOffline, "Warning: Device offline\n"},
    {kSpoolJobPaperOut, "Warning: Device out of paper\n"},
    {kSpoolJobPaused, "Warning: Device paused\n"},
    {kSpoolJobUserIntervention, "Warning: User intervention required\n"},
};

void SendPrinterWarning(PrinterAnswer& answer, SpoolerPrinter* printer) {
    uint32_t status = 0;
    Spooler().GetPrinterStatus(printer, &status);
    Trace(kTraceDetail, "QueryPrinter: pinfo->Status = %d\n", static_cast<int>(status));
    for (const PrinterCondition& condition : kPrinterConditions) {
        if ((status & condition.bit) == 0) continue;
        Trace(kTraceNormal, "QueryPrinter returns %s for printer %s\n", condition.traced,
              answer.printer);
        SendText(*answer.socket, condition.reply);
        answer.warningSent = true;
        return;
    }
}

void SendSpoolerJob(PrinterAnswer& answer, const SpoolerJobInfo& job) {
    if (job.statusText[0] == '\0' && (job.status & kSpoolJobPrinted) != 0) return;
    if (strstr(job.statusText, "Error") != nullptr || strstr(job.statusText, "Warn") != nullptr) {
        SendLine(answer, "Warning: %s\n", job.statusText);
    } else {
        for (const JobCondition& condition : kJobConditions) {
            if ((job.status & condition.bit) == 0) continue;
            SendText(*answer.socket, condition.reply);
            break;
        }
    }
    SendJobLine(answer, job.user, static_cast<int>(job.id), job.document);
}

// The spooler's jobs of the printer into a tracked block; null when the spooler did not answer.
SpoolerJobInfo* ReadSpoolerJobs(SpoolerPrinter* printer, int* count) {
    const SpoolerCalls& spooler = Spooler();
    for (int attempt = 0; attempt < kEnumAttempts; ++attempt) {
        int needed = spooler.EnumJobs(printer, nullptr, 0);
        if (needed < 0) continue;
        size_t bytes = static_cast<size_t>(needed) * sizeof(SpoolerJobInfo) + kEnumSlack;
        auto* jobs = static_cast<SpoolerJobInfo*>(
            g_prsrv->TrackedAlloc(bytes, kSourceFile, __LINE__, "job info buffer", 0));
        if (jobs == nullptr) continue;
        int capacity = static_cast<int>(bytes / sizeof(SpoolerJobInfo));
        int got = spooler.EnumJobs(printer, jobs, capacity);
        if (got >= 0 && got <= capacity) {
            *count = got;
            return jobs;
        }
        g_prsrv->TrackedFree(jobs, kSourceFile, __LINE__, "job info buffer", 0);
    }
    Trace(kTraceNormal, "EnumJobs failed, skipping query.\n");
    return nullptr;
}

void SendSpoolerPart(PrinterAnswer& answer, SpoolerPrinter* printer) {
    int count = 0;
    SpoolerJobInfo* jobs = ReadSpoolerJobs(printer, &count);
    if (jobs == nullptr) return;
    if (count > 0) {
        SendHeaderOnce(answer);
        SendPrinterWarning(answer, printer);
        for (int i = 0; i < count && !answer.warningSent; ++i) SendSpoolerJob(answer, jobs[i]);
    }
    g_prsrv->TrackedFree(jobs, kSourceFile, __LINE__, "job info buffer", 0);
}

// What the answer shows of a job waiting in the service's queue.
struct QueuedJobLine {
    char owner[sizeof JobInfo::Owner];
    char jobId[sizeof JobInfo::JobId];
};

int CollectQueuedJob(void* context, int32_t, const JobInfo& job) {
    QueuedJobLine line{};
    CopyText(line.owner, job.Owner);
    CopyText(line.jobId, job.JobId);
    static_cast<std::vector<QueuedJobLine>*>(context)->push_back(line);
    return 0;
}

// The waiting jobs are copied out under the job list's lock and sent after it: a sender that
// stops reading must not hold up the printer's worker and the receivers of new jobs.
void SendOwnQueue(PrinterAnswer& answer) {
    if (answer.warningSent) return;
    std::vector<QueuedJobLine> jobs;
    VisitQueuedJobs(answer.printer, CollectQueuedJob, &jobs);
    if (answer.rank == 0) answer.rank = 1;  // no spooler job is active: the first waits as "1st"
    for (const QueuedJobLine& job : jobs) {
        SendHeaderOnce(answer);
        SendJobLine(answer, job.owner, answer.rank, job.jobId);
    }
}

// The print library's queue lines, likewise read under its lock and sent after it.
void SendLibraryQueue(PrinterAnswer& answer) {
    using ReplyLine = std::array<char, kReplyLineSize>;
    std::vector<ReplyLine> lines;
    const PrintBackend& library = Backend();
    ZelWide printer[kQueueNameSize];
    ToZelWide(answer.printer, kQueueNameSize - 1, printer, kQueueNameSize);
    library.LockPrinterListEx(printer);
    int count = 0;
    if (library.GetNumberOfEntriesEx(printer, &count) != 0) count = 0;
    for (int i = 0; i < count; ++i) {
        ReplyLine line{};
        if (library.GetNextQueueEntryEx(printer, i, line.data(), static_cast<int>(line.size())) !=
            0)
            continue;
        line.back() = '\0';
        lines.push_back(line);
    }
    library.UnlockPrinterListEx(printer);
    for (const ReplyLine& line : lines) SendText(*answer.socket, line.data());
}

}  // namespace

void QueryPrinter(NetSocket* socket, const char* queue, int queueSize) {
    if (socket == nullptr || g_prsrv == nullptr) return;
    char printer[kQueueNameSize];
    ResolveQueueName(queue, queueSize, printer, sizeof printer);
    Trace(kTraceNormal, "QueryPrinter called for printer %s\n", printer);
    PrinterAnswer answer{socket, printer, false, false, 0};

    OpenedPrinter opened(printer);
    if (opened.Get() == nullptr) {
        TraceError("Printer %s not found.\n", printer);
        SendText(*socket, "Warning: Device unknown\n");
        answer.headerSent = true;
    } else {
        SendSpoolerPart(answer, opened.Get());
    }

    if (g_Options.UseEnhancedSW != 0)
        SendLibraryQueue(answer);
    else
        SendOwnQueue(answer);

    if (!answer.headerSent) SendText(*socket, "no entries\n");
    if (opened.Get() != nullptr && opened.Close() != 0) TraceError("ClosePrinter failed.\n");
}

}  // namespace vx
