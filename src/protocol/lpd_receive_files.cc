// The two file subcommands of a receive-job dialogue: the control file into memory, a data file
// into the temporary directory. Slow or broken senders get a bounded number of retries.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "base/fileops.h"
#include "base/text.h"
#include "jobs/job_journal.h"
#include "jobs/temp_names.h"
#include "printserver/repeated_trace.h"
#include "printserver/zelprsrv.h"
#include "protocol/control_file_memory.h"
#include "protocol/job_files.h"
#include "protocol/lpd_receive.h"

namespace vx {

namespace {

// A read that delivers nothing is retried this often before the transfer is given up.
constexpr int kReadRetries = 100;
constexpr int64_t kControlWarnSize = 32000;
constexpr int64_t kControlChunk = 32000;
// A control file's buffer starts this small and doubles whenever it is full.
constexpr int64_t kControlStartRoom = 4096;
// A data file is read in pieces of up to this many bytes, into a buffer held for its reception.
constexpr int64_t kDataRead = 256 * 1024;
// The data trace (level 10) shows a data file in slices of this many bytes.
constexpr int32_t kTracedDataSlice = 2000;
// Letters and digits of a data file name that are kept.
constexpr size_t kMaxDataName = 512;
// Room for the ".%03d" suffix of a name that is taken already, and for the ".job" and ".tmp"
// of the journal written beside the file.
constexpr size_t kSuffixRoom = 4 + 4 + 4;

bool IsAsciiAlnum(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The name as it is stored: a name ending in "/" has no base name, and of any other name only
// letters and digits are kept, so that no name a sender gives reaches outside the temporary
// directory. The name is cut so that it fits the path and the name used, with a suffix.
void StoredDataName(const char* fileName, size_t dirLength, char* name, size_t cap) {
    size_t room =
        kMaxPath - 1 > dirLength + kSuffixRoom ? kMaxPath - 1 - dirLength - kSuffixRoom : 0;
    size_t limit = std::min(
        {kMaxDataName, room, cap - 1, sizeof(DataFileReceipt::nameUsed) - 1 - kSuffixRoom});
    size_t kept = 0;
    if (!EndsWithChar(fileName, '/')) {
        for (const char* c = fileName; *c != '\0' && kept < limit; ++c)
            if (IsAsciiAlnum(*c)) name[kept++] = *c;
    }
    name[kept] = '\0';
    // Letters and digits alone never spell one of the service's own names; the check keeps it so
    // whatever this rule becomes.
    if (IsReservedTempName(name)) name[0] = '\0';
}

// The bytes of one read at trace level 10, one line per slice of kTracedDataSlice bytes, as the
// data trace has always shown them.
void TraceDataRead(const char* data, int32_t length) {
    if (g_prsrv == nullptr || !g_prsrv->TraceOn(kTraceData)) return;
    for (int32_t at = 0; at < length; at += kTracedDataSlice) {
        Trace(kTraceData, "%.*s\n", static_cast<int>(std::min(length - at, kTracedDataSlice)),
              data + at);
    }
}

// The room after a full buffer of room bytes: twice as much, or all the announced size needs
// when that is not much more (no last step of a few bytes that copies the whole buffer).
int64_t NextControlRoom(int64_t room, int64_t fullRoom) {
    int64_t doubled = room * 2;
    return doubled + room / 2 >= fullRoom ? fullRoom : doubled;
}

// Grows a control file's buffer. 0, or -1 after the error line when the control files of all
// connections would hold more than the ceiling (or memory ran out, which the allocator traced).
int GrowWithinCeiling(ControlBuffer* buffer, int64_t room, const char* fileName) {
    ControlGrowth grown = GrowControlBuffer(buffer, room);
    if (grown == kControlPastCeiling)
        TraceError(
            "Controlfile %s refused: the control files of all connections would hold more than "
            "%lld Bytes.\n",
            fileName, static_cast<long long>(kControlFileCeiling));
    return grown == kControlGrown ? 0 : -1;
}

}  // namespace

void FreeControlFile(char* control) {
    ReleaseControlText(control);
}

int ReceiveCmd(char** control, int64_t* length, const char* /*queue*/, const char* fileName,
               int64_t size, NetSocket* socket, RepeatedTrace* repeats) {
    *control = nullptr;
    *length = 0;
    if (size < 0 || size > kMaxControlFileSize) {
        TraceError("Controlfile of %lld Bytes refused (at most %lld Bytes).\n",
                   static_cast<long long>(size), static_cast<long long>(kMaxControlFileSize));
        return -1;
    }
    // Room for the bytes, the trailing zero byte that may come along with them, and the
    // terminator; the buffer starts small and grows as the bytes arrive.
    const int64_t fullRoom = size + 2;
    ControlBuffer buffer;
    if (GrowWithinCeiling(&buffer, std::min(fullRoom, kControlStartRoom), fileName) != 0) return -1;
    SendAck(0, *socket);
    RepeatedTrace own;
    RepeatedTrace& lines = repeats != nullptr ? *repeats : own;
    if (size > kControlWarnSize)
        lines.Trace(kTraceError, "Warning: Commandfile bigger than 32000 Bytes (%lld).\n",
                    static_cast<long long>(size));
    Trace(kTraceDetail, "ReceiveCmd: h_control_file = %p\n", static_cast<void*>(buffer.text));

    // One byte more than remains is asked for, so that the trailing zero byte may come along.
    int64_t received = 0;
    int retries = 0;
    buffer.text[0] = '\0';
    while (received < size) {
        if (received == buffer.room - 1 &&
            GrowWithinCeiling(&buffer, NextControlRoom(buffer.room, fullRoom), fileName) != 0) {
            FreeControlFile(buffer.text);
            return -1;
        }
        int64_t want = std::min({size - received + 1, buffer.room - 1 - received, kControlChunk});
        int32_t got = SocketRead(*socket, buffer.text + received, static_cast<int32_t>(want));
        if (got > 0) {
            received += got;
            buffer.text[received] = '\0';
            continue;
        }
        if (++retries <= kReadRetries) continue;
        if (got == 0)
            TraceError("Premature EOF in ReceiveCmd ( %lld of %lld Bytes )\n",
                       static_cast<long long>(received), static_cast<long long>(size));
        else
            TraceError("Error while reading on socket\n");
        FreeControlFile(buffer.text);
        return -1;
    }
    // A byte beyond the size is the trailing zero byte; otherwise it is still to come.
    if (received == size && AwaitNullbyte(*socket) != 0) {
        FreeControlFile(buffer.text);
        return -1;
    }
    buffer.text[size] = '\0';
    *control = buffer.text;
    *length = size;
    return 0;
}

int ReceiveData(const char* queue, const char* fileName, int64_t size, NetSocket* socket,
                DataFileReceipt* receipt, RepeatedTrace* repeats) {
    receipt->nameUsed[0] = '\0';
    receipt->path[0] = '\0';
    receipt->storageFailed = false;
    const char* dir = g_prsrv != nullptr ? g_prsrv->TempDirectory() : "";
    char name[kMaxDataName + 1];
    StoredDataName(fileName, strlen(dir), name, sizeof name);

    // Held for this data file: no more than the file needs.
    const auto room = static_cast<size_t>(std::clamp<int64_t>(size, 1, kDataRead));
    std::unique_ptr<char[]> block(new (std::nothrow) char[room]);
    if (block == nullptr) {
        TraceError("Out of memory: %s failed.\n", "ReceiveData buffer");
        receipt->storageFailed = true;
        SendAck(-1, *socket);
        return -1;
    }

    StreamPtr file;
    bool suffixed = false;
    JobFileResult created =
        CreateJobFile(dir, name, receipt->path, sizeof receipt->path, receipt->nameUsed,
                      sizeof receipt->nameUsed, &file, &suffixed);
    if (suffixed) {
        RepeatedTrace own;
        (repeats != nullptr ? *repeats : own)
            .Trace(kTraceNormal, "ReceiveData: tempfile '%s%s' exists.\n", dir, name);
    }
    if (created != kJobFileCreated) {
        if (created == kJobFileCannotCreate)
            TraceError("Printer '%s', File '%s'\n", queue, receipt->path);
        // The sender learns that the job cannot be stored here.
        receipt->storageFailed = true;
        receipt->nameUsed[0] = '\0';
        SendAck(-1, *socket);
        return -1;
    }
    SendAck(0, *socket);

    // A file that cannot be written (disk full) is not written further; the rest is read so
    // that the dialogue stays in step, and the file is refused at the end.
    int64_t received = 0;
    int retries = 0;
    while (received < size) {
        int32_t want = static_cast<int32_t>(std::min(size - received, static_cast<int64_t>(room)));
        int32_t got = SocketRead(*socket, block.get(), want);
        if (got <= 0) {
            if (++retries <= kReadRetries) continue;
            if (got == 0)
                TraceError("Premature EOF in do_recv_data ( %lld of %lld Bytes )\n",
                           static_cast<long long>(received), static_cast<long long>(size));
            else
                TraceError("ReceiveData: SocketRead failed after 100 tries - aborting.\n");
            // A fragment is never printed: the sender got no acknowledgement and sends it again.
            file.reset();
            RemoveReceivedFile(receipt->path);
            return -1;
        }
        TraceDataRead(block.get(), got);
        received += got;
        if (receipt->storageFailed) continue;
        size_t written = fwrite(block.get(), 1, static_cast<size_t>(got), file.get());
        if (written != static_cast<size_t>(got)) {
            TraceError("Write error on Datafile %s: only %lld of %lld Bytes written\n",
                       receipt->path, static_cast<long long>(written), static_cast<long long>(got));
            receipt->storageFailed = true;
        }
    }
    if (!receipt->storageFailed && SyncJobFiles() && FsFlushToDisk(file.get()) != 0) {
        TraceError("Write error on Datafile %s: the file could not be written to disk\n",
                   receipt->path);
        receipt->storageFailed = true;
    }
    if (fclose(file.release()) != 0) {
        if (!receipt->storageFailed)
            TraceError("Write error on Datafile %s: the file could not be closed\n", receipt->path);
        receipt->storageFailed = true;
    }
    if (AwaitNullbyte(*socket) != 0) {
        RemoveReceivedFile(receipt->path);
        return -1;
    }
    if (receipt->storageFailed) {
        // What could not be stored is of no use and only holds space that is short already.
        RemoveReceivedFile(receipt->path);
        SendAck(-1, *socket);
        return -1;
    }
    return 0;
}

}  // namespace vx
