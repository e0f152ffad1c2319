#include "jobs/job_lists.h"

namespace vx {

ListId g_JobStatusList = kInvalidListId;
ListId g_JobQueueList = kInvalidListId;
ListId g_ConnThreadList = kInvalidListId;

}  // namespace vx
