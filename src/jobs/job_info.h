// Filling a queued job's record from what was received: data stream detection, the title rule
// and the job's own event when a thread of its own prints it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jobs/printer_queue.h"

namespace vx {

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
