// JobContext: what the receiving connection keeps about a job beside its JobRecord: the data
// file, the title, the identifier recorded on the LPD path and what stream detection found.
#pragma once

#include <cstdint>

#include "base/fileops.h"

namespace vx {

struct JobContext {
    char FileName[kMaxPath];  // full path of the job's data file
    char Title[103];          // at most 100 characters
    char JobId[51];           // the job's identifier as the LPD path records it
    int32_t WideData;         // set by ProcessJob: the stream marker was found in UTF-16 only
};

}  // namespace vx
