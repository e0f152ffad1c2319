// The process-wide lists of job processing, created at start-up and destroyed at the end.
#pragma once

#include "lists/zlplist.h"

namespace vx {

extern ListId g_JobStatusList;   // JobRecord heads of extended-protocol jobs
extern ListId g_JobQueueList;    // one PrinterQueue per printer
extern ListId g_ConnThreadList;  // one ConnInfo per connection being served

constexpr int32_t kJobStatusListCapacity = 1000;
constexpr int32_t kJobQueueListCapacity = 200;
constexpr int32_t kConnThreadListCapacity = 256;

}  // namespace vx
