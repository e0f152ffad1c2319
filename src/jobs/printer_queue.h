// The queued job of a printer (JobInfo) and the printer's queue (PrinterQueue), one element of the
// printer queue list each.
#pragma once

#include <cstdint>

#include "base/sync.h"
#include "lists/zlplist.h"

namespace vx {

struct JobInfo {
    char PrinterName[257];
    char FileName[260];
    char JobId[51];  // always terminated at position 50
    char WorkDir[260];
    char Owner[13];
    char Title[103];
    int32_t Copies;
    int32_t WideData;    // the stream marker was found in UTF-16 form only
    int32_t StreamType;  // 1 print-library stream, 2 raw, 3 PDF
    char Protocol;       // 'S' extended protocol, 'U' plain LPD and local files
    int32_t PrintParam1;
    int32_t PrintParam2;
    int32_t NoStatusFlag;
    int32_t OwnThread;   // printed by a thread of its own; the receiver waits for it
    int32_t SetupAgain;  // kept first in the queue after a device error
    EventHandle hEvent;  // named with the JobId, only for jobs printed by their own thread
    // The data file was received by the service: it has a journal beside it and is deleted when
    // the job is final. Zero for local files printed on request, which are never deleted.
    int32_t ReceivedFile;
};

struct PrinterQueue {
    char PrinterName[260];  // the list key, compared exactly
    ListId JobListId;
    EventHandle hInitEvent;   // "VorlixInitEvent_%i": the worker has started
    EventHandle hEndEvent;    // "VorlixEndEvent_%i": the worker has ended
    EventHandle hQueueEvent;  // "VorlixQueueEvent_%i": a job was appended
};

}  // namespace vx
