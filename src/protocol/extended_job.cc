#include "protocol/extended_job.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <mutex>

#include "base/text.h"
#include "config/option_globals.h"
#include "jobs/job_context.h"
#include "jobs/job_journal.h"
#include "jobs/temp_names.h"
#include "net/security_state.h"
#include "printserver/global_setting.h"
#include "printserver/process_locks.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"
#include "protocol/block_checksum.h"
#include "protocol/block_result.h"
#include "protocol/c1_decoder.h"
#include "protocol/c2_inflater.h"
#include "protocol/compression_trace.h"
#include "protocol/job_file_writer.h"
#include "protocol/job_files.h"
#include "protocol/k1_scrambler.h"
#include "protocol/output_file.h"

namespace vx {

namespace {

constexpr size_t kJobIdWidth = 40;
constexpr size_t kRecordIdLength = 50;
constexpr size_t kTitleLength = 99;
// A job whose file has this much is large: its further data is written on a thread of its own.
constexpr int64_t kLargeJobBytes = 1 << 20;

// Jobs reach their printer queues in the order in which their senders closed them.
std::mutex& JobSequenceLock() {
    static std::mutex lock;
    return lock;
}

// The network handle as the trace lines show it.
void* HandleForTrace(const NetSocket& socket) {
    return reinterpret_cast<void*>(static_cast<intptr_t>(socket.niHandle));
}

SessionStep ProtocolError(SessionIo& io, const char* why) {
    TraceError("%s\n", why);
    SendSessionError(io.socket, kSessionProtocol);
    return kStepEnd;
}

bool IsBlank(uint8_t c) {
    return c == ' ' || c == '\t';
}

// A name in the temporary directory for a job the sender gave no identifier.
void NameWithoutId(char* name, size_t cap) {
    static std::atomic<uint32_t> sequence{0};
    FormatText(name, cap, "vxjob%08x%04x", static_cast<unsigned>(time(nullptr)),
               static_cast<unsigned>(++sequence & 0xFFFF));
}

// A file of the same name that no job owns any more (a job of an earlier run whose file was kept)
// is overwritten; one that a job still owns is never touched, and the job gets a suffixed name.
void OverwriteLeftover(const char* path) {
    if (!JournalingOn() || !FsExists(path) || HasJobJournal(path)) return;
    Trace(kTraceNormal, "CreateTempfile: Overwriting file '%s'.\n", path);
    FsRemove(path);
}

// A job file no job needs any more: removed with its journal, or, with KeepFile, kept without it.
void RetireFile(const char* path) {
    if (GlobalSetting("KeepFile") != 0)
        RemoveJobJournalOf(path);
    else
        RemoveReceivedFile(path);
}

// Closes the job's file without a word, its writing thread ended first.
void ReleaseJobFile(ExtendedJob& job) {
    job.writer.reset();
    job.file.reset();
}

// Appends decoded bytes to the job's file. False after the file is closed and the 805 error sent.
bool AppendToJob(SessionIo& io, ExtendedJob& job, const uint8_t* data, size_t length) {
    if (length == 0) return true;
    bool written = job.writer != nullptr ? WriteThroughWriter(*job.writer, data, length)
                                         : fwrite(data, 1, length, job.file.get()) == length;
    if (written) {
        const bool crossing = job.bytes < kLargeJobBytes &&
                              job.bytes + static_cast<int64_t>(length) >= kLargeJobBytes;
        job.bytes += static_cast<int64_t>(length);
        // Once, as the job becomes large; without a writer it goes on as it was.
        if (crossing) job.writer = StartJobFileWriter(job.file.get());
        return true;
    }
    ReleaseJobFile(job);
    SendSessionError(io.socket, kSessionTempFile);
    TraceError("ProcessBlock failed\n");
    return false;
}

// What decoding a block produced.
struct BlockOutput {
    bool summed = false;  // the sender gave a checksum: the decoded bytes are added up
    int result = kBlockDone;
    size_t produced = 0;
    uint32_t sum = 0;
    int calls = 0;
};

// Decodes the block by the job's compression mode into io.aux, appending each full buffer.
// False when appending failed (the reply is sent).
bool DecodeBlock(SessionIo& io, ExtendedJob& job, const uint8_t* in, size_t inLength,
                 BlockOutput* out) {
    if (job.compression == 0) {
        out->calls = 1;
        out->produced = inLength;
        if (out->summed) out->sum = AddToBlockSum(0, in, inLength);
        return AppendToJob(io, job, in, inLength);
    }
    C2BlockPtr c2;
    if (job.compression != 1) {
        c2 = BeginC2Block(in, inLength);
        if (c2 == nullptr) {
            out->result = kBlockNoDecoder;
            return true;
        }
        job.compression = 2;
    }
    size_t consumed = 0;
    do {
        size_t produced = 0;
        if (c2 != nullptr) {
            out->result = InflateC2Block(*c2, io.aux, kSessionBufferSize, &produced);
        } else {
            size_t taken = 0;
            out->result = DecodeC1(in + consumed, inLength - consumed, io.aux, kSessionBufferSize,
                                   &taken, &produced);
            consumed += taken;
        }
        ++out->calls;
        out->produced += produced;
        if (out->summed) out->sum = AddToBlockSum(out->sum, io.aux, produced);
        if (out->result >= 0 && !AppendToJob(io, job, io.aux, produced)) return false;
    } while (out->result == kBlockOutputFull);
    if (job.compression == 1)
        Trace(kTraceDetail, "Decompress_1: %d Bytes -> %d Bytes\n", static_cast<int>(inLength),
              static_cast<int>(out->produced));
    else {
        TraceDecompression(inLength, out->produced, out->result);
        Trace(kTraceDetail, "CsDecompr: %d Bytes -> %d Bytes\n", static_cast<int>(inLength),
              static_cast<int>(out->produced));
    }
    return true;
}

// Reads a decimal number of at most max; *p moves past the digits. False when no digit stands
// there. A larger number reads as max + 1.
bool ReadNumber(const uint8_t** p, const uint8_t* end, int64_t max, int64_t* value) {
    if (*p >= end || **p < '0' || **p > '9') return false;
    int64_t n = 0;
    for (; *p < end && **p >= '0' && **p <= '9'; ++*p)
        if (n <= max) n = n * 10 + (**p - '0');
    *value = n > max ? max + 1 : n;
    return true;
}

}  // namespace

void SendSessionError(NetSocket& socket, SessionError error) {
    const char* text = "";
    switch (error) {
        case kSessionOk:
            return;
        case kSessionNetwork:
            text = "803 Vorlix: Netzwerkprobleme.\n";
            break;
        case kSessionTempFile:
            text = "805 Vorlix: Fehler beim Schreiben in Zwischendatei.\n";
            break;
        case kSessionQueueFull:
            text = "809 Vorlix: Warteschlange voll.\n";
            break;
        case kSessionNoMemory:
            text = "815 Vorlix: Nicht genug Hauptspeicher.\n";
            break;
        case kSessionUnknown:
            text = "817 Vorlix: Unbekanntes Kommando.\n";
            break;
        case kSessionProtocol:
            text = "818 Vorlix: Protokollfehler zum Vorlix festgestellt.\n";
            break;
        case kSessionInsecure:
            text =
                "819 Vorlix: Sicherung der Daten\xFC"
                "bertragung nicht erfolgt.\n";
            break;
    }
    char reply[128];
    FormatText(reply, sizeof reply, "ER %s\n", text);
    SocketWrite(socket, reply, static_cast<int32_t>(strlen(reply)));
}

SessionStep OpenExtendedJob(SessionIo& io, ExtendedJob& job, const char* arg) {
    if (!job.printerGiven || !job.dtGiven || !job.typeGiven || job.open)
        return ProtocolError(io, "Command DS: protocol error");
    CopyFreeText(job.jobId, sizeof job.jobId, kJobIdWidth, arg, false);
    if (g_SecurityState == kSecurityRequired && !IsSecured(io.socket)) {
        SendSessionError(io.socket, kSessionInsecure);
        TraceError("Security mode mismatch.\n");
        return kStepEnd;
    }

    // The identifier names the file, made safe so that it never leaves the temporary directory.
    char name[sizeof job.jobId + 24];
    if (job.jobId[0] != '\0')
        SafeTempName(job.jobId, name, sizeof name);
    else
        NameWithoutId(name, sizeof name);
    const char* dir = g_prsrv != nullptr ? g_prsrv->TempDirectory() : "";
    char nameUsed[sizeof name + 8];
    bool suffixed = false;
    JobFileResult created;
    {
        LockHold hold(ProcessFileLock());
        FormatText(job.path, sizeof job.path, "%s%s", dir, name);
        OverwriteLeftover(job.path);
        created = CreateJobFile(dir, name, job.path, sizeof job.path, nameUsed, sizeof nameUsed,
                                &job.file, &suffixed);
    }
    if (created != kJobFileCreated) {
        TraceError("Command DS: CreatePrintfile failed\n");
        SendSessionError(io.socket, kSessionTempFile);
        return kStepEnd;
    }
    Trace(kTraceNormal, "Creating tempfile %s\n", job.path);
    job.open = true;
    job.bytes = 0;
    SendOK(nullptr, io.socket);
    return kStepGoOn;
}

SessionStep ReceiveDataBlock(SessionIo& io, ExtendedJob& job, int32_t length) {
    if (!job.open) return ProtocolError(io, "Command DB without DS !");
    const uint8_t* end = io.data + length;
    const uint8_t* p = io.data + 2;
    while (p < end && IsBlank(*p)) ++p;
    int64_t limit = 2 * static_cast<int64_t>(io.packetSize);
    int64_t size = 0;
    if (!ReadNumber(&p, end, limit, &size)) return ProtocolError(io, "Command DB: length missing!");
    if (size > limit) return ProtocolError(io, "Command DB: data block too large!");
    Trace(kTraceDetail, "Data packet with %d bytes follows\n", static_cast<int>(size));
    while (p < end && IsBlank(*p)) ++p;
    int64_t checksum = 0;
    ReadNumber(&p, end, INT32_MAX, &checksum);
    while (p < end && IsBlank(*p)) ++p;
    if (p < end && *p == '\r') ++p;
    if (p < end && *p == '\n') ++p;

    // The rest of the packet is the block's first part; further reads bring the rest.
    int64_t have = end - p;
    if (have > size) return ProtocolError(io, "Command DB: data block longer than announced!");
    memmove(io.data, p, static_cast<size_t>(have));
    while (have < size) {
        int32_t got = SocketRead(io.socket, io.data + have, static_cast<int32_t>(size - have));
        if (got < 1) {
            TraceError("Error from SocketRead\n");
            SendSessionError(io.socket, kSessionNetwork);
            return kStepEnd;
        }
        have += got;
    }

    if (job.scramble) UnscrambleBlock(job.key, io.data, static_cast<size_t>(size));
    BlockOutput out;
    out.summed = checksum != 0;
    if (!DecodeBlock(io, job, io.data, static_cast<size_t>(size), &out)) return kStepEnd;
    if (out.result < 0) {
        TraceError("Decompression error code = %d. (nihdl = %p)\n", out.result,
                   HandleForTrace(io.socket));
        SendSessionError(io.socket, kSessionProtocol);
        return kStepEnd;
    }
    if (checksum != 0) {
        if (out.calls > 1)
            Trace(kTraceNormal, "Can not check checksum, buffer too small. (nihdl = %p)\n",
                  HandleForTrace(io.socket));
        else if (BlockChecksum(out.sum) != static_cast<uint32_t>(checksum))
            TraceError(
                "Checksum error in data transmission. Printout may be damaged. (nihdl = %p)\n",
                HandleForTrace(io.socket));
    }
    SendOK(nullptr, io.socket);
    return kStepGoOn;
}

SessionStep CloseExtendedJob(SessionIo& io, ExtendedJob& job) {
    if (!job.open) return ProtocolError(io, "Command DE without DS!");
    bool closed = job.writer == nullptr || FlushJobFileWriter(*job.writer);
    job.writer.reset();
    if (SyncJobFiles() && FsFlushToDisk(job.file.get()) != 0) closed = false;
    if (fclose(job.file.release()) != 0) closed = false;
    job.open = false;
    if (!closed) {
        SendSessionError(io.socket, kSessionTempFile);
        TraceError("ClosePrintfile failed\n");
        RemoveReceivedFile(job.path);
        return kStepEnd;
    }

    JobRecordPtr record = CreateJobRecord();
    if (record == nullptr) {
        SendSessionError(io.socket, kSessionQueueFull);
        RemoveReceivedFile(job.path);
        return kStepEnd;
    }
    CopyTextN(record->JobId, sizeof record->JobId, job.jobId[0] != '\0' ? job.jobId : job.path,
              kRecordIdLength);
    Trace(kTraceNormal, "Job-ID is %s\n", record->JobId);
    CopyText(record->PrinterName, job.printer);
    CopyText(record->Owner, job.owner);
    record->Copies = job.copies;
    record->PrintParam1 = job.tray;
    record->PrintParam2 = job.duplex;
    record->NoStatusFlag = job.noStatus;
    JobContext* context = record->Context;
    CopyText(context->FileName, job.path);
    const char* title = job.title[0] == ' ' ? job.title + 1 : job.title;
    if (job.titleGiven)
        FormatText(context->Title, kTitleLength + 1, "%s/%s:%s", job.owner, record->JobId, title);
    else
        FormatText(context->Title, kTitleLength + 1, "%s/%s", job.owner, record->JobId);
    TrimTrailing(context->Title, " ");

    // With the FILE option the data goes into the output directory instead of to the printer.
    bool delivered = job.options.file;
    if (delivered) {
        char written[kMaxPath];
        if (WriteJobToOutputFile(job.path, job.options.fileName, written, sizeof written) != 0) {
            SendSessionError(io.socket, kSessionTempFile);
            RemoveReceivedFile(job.path);
            return kStepEnd;
        }
        Trace(kTraceNormal, "Job %s written to %s\n", record->JobId, written);
    }

    int taken;
    {
        std::unique_lock<std::mutex> sequence(JobSequenceLock(), std::defer_lock);
        if (g_Options.KeepJobSequence != 0) sequence.lock();
        taken = io.handOver != nullptr ? io.handOver(io.context, record.get(), delivered) : -1;
    }
    if (taken != 0) {
        SendSessionError(io.socket, kSessionQueueFull);
        RemoveReceivedFile(job.path);
        return kStepEnd;
    }
    if (delivered) RetireFile(job.path);
    SendOK(record->JobId, io.socket);
    return kStepGoOn;
}

void DropOpenJob(ExtendedJob& job) {
    if (!job.open) return;
    ReleaseJobFile(job);
    job.open = false;
    TraceError("Job %s for printer %s dropped: the session ended before the job was closed.\n",
               job.jobId[0] != '\0' ? job.jobId : job.path, job.printer);
    RetireFile(job.path);
}

}  // namespace vx
