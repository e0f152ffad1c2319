// A printer's queued job (JobInfo), one element of its printer's job list, and how it is filled
// from what was received: data stream detection, the title rule and the job's own event when a
// thread of its own prints it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/sync.h"

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
    // The place of the job's journal among all journals, once written (0: not known here), so
    // that a later state is appended without reading the journal back.
    uint64_t JournalSequence;
};

// Bytes at the start of a data file that stream detection looks at.
constexpr size_t kStreamProbeSize = 999;

// The service's base directory as the print library and the restart files see it (ends with the
// separator; empty while there is no print-server object).
const char* JobBaseDirectory();

// Fills *out (cleared first). owner and title may be null. The job's event (named with the job
// id) is made when ProcessingMode is 0 or ownThread is set: exactly then the job is printed by a
// thread of its own. Returns 1, or 0 when the data file cannot be opened.
int FillJobInfo(const char* printer, const char* fileName, const char* jobId, const char* owner,
                const char* title, int32_t copies, int32_t param1, int32_t param2,
                int32_t noStatusFlag, char protocol, int32_t ownThread, int32_t setupAgain,
                JobInfo* out);

}  // namespace vx
