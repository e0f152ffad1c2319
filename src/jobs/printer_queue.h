// A printer's queue (PrinterQueue): one element of the printer queue list each; its job list holds
// the printer's queued jobs (JobInfo).
#pragma once

#include <cstdint>

#include "base/sync.h"
#include "jobs/job_info.h"
#include "lists/zlplist.h"

namespace vx {

struct PrinterQueue {
    char PrinterName[260];  // the list key, compared exactly
    ListId JobListId;
    EventHandle hInitEvent;   // "VorlixInitEvent_%i": the worker has started
    EventHandle hEndEvent;    // "VorlixEndEvent_%i": the worker has ended
    EventHandle hQueueEvent;  // "VorlixQueueEvent_%i": a job was appended
};

}  // namespace vx
