// Delivering one job to the print system (the spooler, or the built-in file printer): the code
// behind PrintFile and behind the enhanced mode's printer workers.
#pragma once

#include "printlib/zelwin.h"

namespace zel {

struct PrintRequest {
    const char* printer;   // in the code page of the spooler calls
    const char* fileName;  // the job's data file
    const char* jobId;
    const char* title;  // may be empty
    int copies;
    int streamType;               // ZEL_STREAM_*
    const char* owner = nullptr;  // the job's user at the print system, where it takes one
};

// Sends the job's data to the printer (or the built-in file printer) copies times within one
// print job. Returns ZEL_RC_*; every failure is traced as an error line with its reason.
int PrintOneJob(const ZelHost* host, const PrintRequest& request);

}  // namespace zel
