// The receive-job dialogue of an LPD connection: subcommands until the sender closes. Control
// files are held in memory, data files written to files of their own; a data file becomes a job
// as soon as a control file describes it, and the job is safe with the service before the sender
// hears the acknowledgement that completes it. Data files that wait for a control file when the
// sender closes are described by the last control file; any other end of the dialogue removes
// them, since the sender, refused or cut off, sends its job again.
#include "protocol/lpd_receive.h"

#include <cstring>
#include <utility>
#include <vector>

#include "base/text.h"
#include "jobs/job_context.h"
#include "printserver/repeated_trace.h"
#include "printserver/trace.h"

namespace vx {

namespace {

constexpr int32_t kSubcommandLength = 200;
constexpr size_t kControlNameLength = 48;
constexpr int kReadRetries = 100;
// The title handed to the analysis: at most 99 characters and the terminator.
constexpr size_t kTitleSize = 100;

enum Subcommand : unsigned char {
    kAbortJob = 0x01,
    kReceiveControlFile = 0x02,
    kReceiveDataFile = 0x03,
};

// The control files of the dialogue, released at its end.
struct ControlFiles {
    std::vector<char*> texts;
    ControlFiles() = default;
    ControlFiles(const ControlFiles&) = delete;
    ControlFiles& operator=(const ControlFiles&) = delete;
    ~ControlFiles() {
        for (char* text : texts) FreeControlFile(text);
    }
    void DropLast() {
        FreeControlFile(texts.back());
        texts.pop_back();
    }
};

// A data file that arrived whole, with the name the sender gave it (the one control files name).
struct ArrivedDataFile {
    char sentName[kSubcommandLength + 1];
    DataFileReceipt receipt;
};

struct Dialogue {
    const char* queue;
    NetSocket* socket;
    LpdJobHandOver handOver;
    void* context;
    ControlFiles controls;
    std::vector<ArrivedDataFile> waiting;  // whole, not yet described by a control file
    int jobsMade = 0;
    // Lines written per subcommand or per control-file line: a few of each kind, then a count.
    RepeatedTrace lines;
};

bool IsCountEnd(char c) {
    return c == ' ' || c == '\t' || c == '\f';
}
bool IsFieldEnd(char c) {
    return IsCountEnd(c) || c == '\n' || c == '\0';
}

// What tells the two file subcommands apart in the trace.
struct FileSubcommandTexts {
    const char* spaceError;
    const char* lineEndError;
    const char* announced;
};
constexpr FileSubcommandTexts kControlTexts{"Format error in 'receive control file' (WSP)\n",
                                            "Format error in 'receive control file' (NL)\n",
                                            "Controlfile %s, %lld Bytes\n"};
constexpr FileSubcommandTexts kDataTexts{"Format error in 'receive data file' (WSP)\n",
                                         "Format error in 'receive data file (NL)'\n",
                                         "Datafile %s, %lld Bytes\n"};

// The announced size and the name of a file subcommand: "<byte><count> <name>\n". 0, or -1
// after the error line.
int ParseFileSubcommand(const char* line, bool control, int64_t* size, char* name, size_t cap) {
    const FileSubcommandTexts& texts = control ? kControlTexts : kDataTexts;
    const char* p = line + 1;
    // Every character adds its value minus '0': a stray one gives a wrong count, not a refusal.
    uint64_t count = 0;
    for (; !IsFieldEnd(*p); ++p)
        count = count * 10 + static_cast<uint64_t>(static_cast<int64_t>(*p - '0'));
    *size = static_cast<int64_t>(count);
    if (!IsCountEnd(*p)) {
        TraceError("%s", texts.spaceError);
        return -1;
    }
    const char* start = ++p;
    while (!IsFieldEnd(*p)) ++p;
    size_t length = static_cast<size_t>(p - start);
    if (control && length > kControlNameLength) {
        TraceError("Controlfile name too long\n");
        return -1;
    }
    CopyTextN(name, cap, start, length);
    while (IsCountEnd(*p)) ++p;
    if (*p != '\n') {
        TraceError("%s", texts.lineEndError);
        return -1;
    }
    Trace(kTraceNotable, texts.announced, name, static_cast<long long>(*size));
    return 0;
}

// The job record of one data file, described by a control file: named in its print lines (the
// copy count is the number of those lines) or, when it names the file nowhere, as a whole.
JobRecordPtr MakeJob(const char* queue, const char* control, const ArrivedDataFile& data,
                     RepeatedTrace* lines) {
    JobRecordPtr job = CreateJobRecord();
    if (job == nullptr) return nullptr;
    CopyText(job->PrinterName, queue);
    CopyText(job->JobId, data.receipt.nameUsed);
    JobContext* context = job->Context;
    CopyText(context->FileName, data.receipt.path);
    CopyText(context->JobId, data.receipt.nameUsed);
    int32_t printLines = 0;
    static_assert(sizeof context->Title >= kTitleSize);
    AnalyseControlFile(control, job->Owner, sizeof job->Owner, context->Title, kTitleSize,
                       &printLines, lines);
    int32_t naming = CountPrintLinesNaming(control, data.sentName);
    job->Copies = naming > 0 ? naming : printLines;
    return job;
}

void RemoveDataFiles(const ArrivedDataFile* files, size_t count) {
    for (size_t i = 0; i < count; ++i) RemoveReceivedFile(files[i].receipt.path);
}

// Makes and hands over the jobs of the data files. 0, or -1 when they were not taken: their files
// are removed.
int HandOverJobs(Dialogue& d, const ArrivedDataFile* files, size_t count, const char* control) {
    if (count == 0) return 0;
    // Owned here; job processing copies what it keeps.
    std::vector<JobRecordPtr> owned;
    std::vector<JobRecord*> jobs;
    for (size_t i = 0; i < count; ++i) {
        JobRecordPtr job = MakeJob(d.queue, control, files[i], &d.lines);
        if (job == nullptr) break;
        jobs.push_back(job.get());
        owned.push_back(std::move(job));
    }
    if (jobs.size() == count && d.handOver(d.context, jobs.data(), static_cast<int>(count)) == 0) {
        d.jobsMade += static_cast<int>(count);
        return 0;
    }
    d.lines.Trace(kTraceError, "Job for printer '%s' refused: it could not be taken over.\n",
                  d.queue);
    RemoveDataFiles(files, count);
    return -1;
}

// The newest control file that names the data file, or null.
const char* ControlNaming(const Dialogue& d, const char* sentName) {
    for (auto it = d.controls.texts.rbegin(); it != d.controls.texts.rend(); ++it)
        if (CountPrintLinesNaming(*it, sentName) > 0) return *it;
    return nullptr;
}

// A data file arrived whole: its job is made now if a control file describes it, else it waits.
// Either way the sender hears the acknowledgement only now.
void DataFileArrived(Dialogue& d, const char* sentName, const DataFileReceipt& receipt) {
    ArrivedDataFile data{};
    CopyText(data.sentName, sentName);
    data.receipt = receipt;
    const char* control = ControlNaming(d, sentName);
    if (control == nullptr) {
        d.waiting.push_back(data);
        SendAck(0, *d.socket);
        return;
    }
    SendAck(HandOverJobs(d, &data, 1, control) == 0 ? 0 : -1, *d.socket);
}

// A control file arrived: the waiting data files it names become jobs, in the order they came.
// The control file is acknowledged once they are safe; refused, it is forgotten with them.
void ControlFileArrived(Dialogue& d, char* control) {
    d.controls.texts.push_back(control);
    std::vector<ArrivedDataFile> named, rest;
    for (const ArrivedDataFile& data : d.waiting)
        (CountPrintLinesNaming(control, data.sentName) > 0 ? named : rest).push_back(data);
    d.waiting.swap(rest);
    if (HandOverJobs(d, named.data(), named.size(), control) == 0) {
        SendAck(0, *d.socket);
        return;
    }
    d.controls.DropLast();
    SendAck(-1, *d.socket);
}

// The end of the dialogue. After an orderly close, data files that still wait are described by
// the last control file; after any other end they are removed.
void FinishDialogue(Dialogue& d, bool closedInOrder) {
    if (d.controls.texts.empty()) {
        TraceError("Controlfile is missing (protocol or network problem). No printout.\n");
    } else if (closedInOrder && !d.waiting.empty()) {
        HandOverJobs(d, d.waiting.data(), d.waiting.size(), d.controls.texts.back());
        d.waiting.clear();
    } else if (d.jobsMade == 0 && d.waiting.empty()) {
        Trace(kTraceNotable, "No data file arrived for the control file. No printout.\n");
    }
    RemoveDataFiles(d.waiting.data(), d.waiting.size());
    d.waiting.clear();
    d.lines.TraceLeftOut();
}

}  // namespace

int ReceiveJob(const char* queue, NetSocket* socket, LpdJobHandOver handOver, void* context) {
    Dialogue d{queue, socket, handOver, context, {}, {}, 0, {}};
    int failedReads = 0;
    bool closedInOrder = false;

    for (bool going = true; going;) {
        char line[kSubcommandLength + 1] = {};
        int32_t got = SocketRead(*socket, line, kSubcommandLength);
        if (got == 0) {
            Trace(kTraceNotable, "ReceiveJob finished\n");
            closedInOrder = true;
            break;
        }
        if (got < 0) {
            if (++failedReads <= kReadRetries) continue;
            SendAck(-1, *socket);
            break;
        }
        auto subcommand = static_cast<unsigned char>(line[0]);
        Trace(kTraceDetail, "Receive job command, buff[0] = %x\n", subcommand);
        switch (subcommand) {
            case kAbortJob:
                SendAck(-1, *socket);
                d.lines.Trace(kTraceError, "%s not implemented.\n", "Abort job");
                break;
            case kReceiveControlFile: {
                int64_t size = 0;
                char name[kControlNameLength + 1];
                if (ParseFileSubcommand(line, true, &size, name, sizeof name) != 0) {
                    SendAck(-1, *socket);
                    going = false;
                    break;
                }
                char* text = nullptr;
                int64_t length = 0;
                if (ReceiveCmd(&text, &length, queue, name, size, socket, &d.lines) == 0) {
                    ControlFileArrived(d, text);
                } else {
                    SendAck(-1, *socket);
                    going = false;
                }
                break;
            }
            case kReceiveDataFile: {
                int64_t size = 0;
                char name[kSubcommandLength + 1];
                if (ParseFileSubcommand(line, false, &size, name, sizeof name) != 0) {
                    SendAck(-1, *socket);
                    going = false;
                    break;
                }
                DataFileReceipt receipt{};
                int rc = ReceiveData(queue, name, size, socket, &receipt, &d.lines);
                d.lines.Trace(kTraceNormal, "Filename used is %s\n", receipt.nameUsed);
                if (rc == 0)
                    DataFileArrived(d, name, receipt);
                else
                    going = false;
                break;
            }
            default:
                TraceError("Unknown receive job command, buff[0] = %x\n", subcommand);
                SendAck(-1, *socket);
                going = false;
                break;
        }
    }
    FinishDialogue(d, closedInOrder);
    return d.jobsMade;
}

}  // namespace vx
