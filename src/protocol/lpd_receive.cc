// The receive-job dialogue of an LPD connection: subcommands until the sender closes, then the
// job record from the control file and the last data file.
#include "protocol/lpd_receive.h"

#include <cstring>

#include "base/text.h"
#include "jobs/job_context.h"
#include "printserver/zelprsrv.h"

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

// The control file as long as the dialogue holds it.
struct HeldControlFile {
    char* text = nullptr;
    HeldControlFile() = default;
    HeldControlFile(const HeldControlFile&) = delete;
    HeldControlFile& operator=(const HeldControlFile&) = delete;
    ~HeldControlFile() { Replace(nullptr); }
    void Replace(char* other) {
        FreeControlFile(text);
        text = other;
    }
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

// The job record from the control file and the last data file, or null.
JobRecord* MakeJob(const char* queue, const char* control, const DataFileReceipt& lastData) {
    JobRecord* job = CreateJobRecord();
    if (job == nullptr) return nullptr;
    CopyText(job->PrinterName, queue);
    CopyText(job->JobId, lastData.nameUsed);
    JobContext* context = job->Context;
    CopyText(context->FileName, lastData.path);
    CopyText(context->JobId, lastData.nameUsed);
    int32_t printLines = 0;
    static_assert(sizeof context->Title >= kTitleSize);
    AnalyseControlFile(control, job->Owner, sizeof job->Owner, context->Title, kTitleSize,
                       &printLines);
    job->Copies = printLines;
    return job;
}

}  // namespace

JobRecord* ReceiveJob(const char* queue, NetSocket* socket) {
    HeldControlFile control;
    DataFileReceipt lastData{};
    int failedReads = 0;
    bool refused = false;

    for (bool going = true; going;) {
        char line[kSubcommandLength + 1] = {};
        int32_t got = SocketRead(*socket, line, kSubcommandLength);
        if (got == 0) {
            Trace(kTraceNotable, "ReceiveJob finished\n");
            break;
        }
        if (got < 0) {
            if (++failedReads <= kReadRetries) continue;
            SendAck(-1, *socket);
            return nullptr;
        }
        auto subcommand = static_cast<unsigned char>(line[0]);
        Trace(kTraceDetail, "Receive job command, buff[0] = %x\n", subcommand);
        switch (subcommand) {
            case kAbortJob:
                SendAck(-1, *socket);
                TraceError("%s not implemented.\n", "Abort job");
                break;
            case kReceiveControlFile: {
                int64_t size = 0;
                char name[kControlNameLength + 1];
                if (ParseFileSubcommand(line, true, &size, name, sizeof name) != 0) {
                    SendAck(-1, *socket);
                    return nullptr;
                }
                char* text = nullptr;
                int64_t length = 0;
                int rc = ReceiveCmd(&text, &length, queue, name, size, socket);
                if (rc == 0) control.Replace(text);
                SendAck(rc == 0 ? 0 : -1, *socket);
                going = rc == 0;
                break;
            }
            case kReceiveDataFile: {
                int64_t size = 0;
                char name[kSubcommandLength + 1];
                if (ParseFileSubcommand(line, false, &size, name, sizeof name) != 0) {
                    SendAck(-1, *socket);
                    return nullptr;
                }
                DataFileReceipt receipt{};
                int rc = ReceiveData(queue, name, size, socket, &receipt);
                Trace(kTraceNormal, "Filename used is %s\n", receipt.nameUsed);
                if (receipt.nameUsed[0] != '\0') lastData = receipt;
                refused = receipt.storageFailed;
                going = rc == 0;
                break;
            }
            default:
                TraceError("Unknown receive job command, buff[0] = %x\n", subcommand);
                SendAck(-1, *socket);
                return nullptr;
        }
    }

    if (control.text == nullptr) {
        TraceError("Controlfile is missing (protocol or network problem). No printout.\n");
        return nullptr;
    }
    if (refused) {
        TraceError("Job for printer '%s' refused: its data file could not be stored.\n", queue);
        return nullptr;
    }
    JobRecord* job = MakeJob(queue, control.text, lastData);
    if (job == nullptr) SendAck(-1, *socket);
    return job;
}

}  // namespace vx
