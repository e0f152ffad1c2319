// The job of an extended-protocol session: its fields as the commands set them, its data file
// while it is open (DS to DE), and the decoding of its data blocks (scrambling, C1, C2, checksum).
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/fileops.h"
#include "net/socket_io.h"
#include "protocol/extended_session.h"
#include "protocol/job_file_writer.h"
#include "protocol/session_text.h"

namespace vx {

// The error replies of the extended protocol, by their message numbers.
enum SessionError {
    kSessionOk = 0,
    kSessionNetwork = 803,    // a packet or data read failed
    kSessionTempFile = 805,   // the greeting or the temporary file could not be written
    kSessionQueueFull = 809,  // the job could not be taken over
    kSessionNoMemory = 815,   // the working buffers could not be allocated
    kSessionUnknown = 817,    // unknown command
    kSessionProtocol = 818,   // an argument or the order of the commands is wrong
    kSessionInsecure = 819,   // security required but not established
};

// "ER <message>\n": the messages end in a line feed of their own.
void SendSessionError(NetSocket& socket, SessionError error);

// How a command leaves the session.
enum SessionStep {
    kStepGoOn,     // the next packet follows
    kStepEnd,      // the session ends; a job still open is dropped
    kStepNoReply,  // the session goes on, and this command got no reply
};

// Size of each working buffer; a packet is one read of at most kPacketRead bytes.
constexpr size_t kSessionBufferSize = 30024;
constexpr int32_t kPacketRead = 30022;

struct ExtendedJob {
    // Set by the commands before DS.
    char printer[257] = {};
    char owner[13] = {};
    char division[13] = {};
    char receiver[13] = {};
    char title[101] = {};
    char dataType[9] = {};
    char dtField[13] = {};
    char faxNumber[41] = {};
    int32_t copies = 1;
    int32_t tray = 0;
    int32_t duplex = 0;
    int32_t noStatus = 0;
    int dataKind = 3;  // 1 for the print library's own stream ("ZELWIN"), else 3
    bool printerGiven = false, typeGiven = false, dtGiven = false, titleGiven = false;
    bool ownerGiven = false, faxJob = false, otFlag = false;
    TitleOptions options;

    // The open job: from DS to DE.
    bool open = false;
    char jobId[41] = {};  // as the sender gave it with DS
    char path[kMaxPath] = {};
    StreamPtr file;
    JobFileWriterPtr writer;  // a large job's writing thread; ends before file is closed
    int64_t bytes = 0;

    // Block decoding as negotiated.
    bool scramble = false;
    uint32_t key = 0;
    int compression = 0;  // 0 none, 1 C1, -2 C2 asked for, 2 C2 in use
};

// The session's connection, buffers and take-over of closed jobs.
struct SessionIo {
    NetSocket& socket;
    uint8_t* data;  // the packet, then the block
    uint8_t* aux;   // decoded output
    int32_t packetSize;
    ExtendedJobHandOver handOver;
    void* context;
};

// DS: opens the job and its temporary file.
SessionStep OpenExtendedJob(SessionIo& io, ExtendedJob& job, const char* arg);

// DB: one data block, of which the packet (length bytes at io.data) holds the header and the
// first part.
SessionStep ReceiveDataBlock(SessionIo& io, ExtendedJob& job, int32_t length);

// DE: closes the job and hands it over before the sender hears its identifier.
SessionStep CloseExtendedJob(SessionIo& io, ExtendedJob& job);

// A session that ends with its job still open: the fragment is never printed, and its file is
// removed unless KeepFile is set.
void DropOpenJob(ExtendedJob& job);

}  // namespace vx
