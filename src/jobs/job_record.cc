#include "jobs/job_record.h"

#include <cstring>
#include <new>

#include "jobs/job_context.h"

namespace vx {

namespace {
// A record and its context travel together from reception to processing.
struct RecordWithContext {
    JobRecord record;
    JobContext context;
};
}  // namespace

JobRecordPtr CreateJobRecord() {
    auto* both = new (std::nothrow) RecordWithContext;
    if (both == nullptr) return nullptr;
    memset(both, 0, sizeof *both);
    both->record.Copies = 1;
    both->record.Context = &both->context;
    return JobRecordPtr(&both->record);
}

void ReleaseJobRecord(JobRecord* record) {
    if (record == nullptr) return;
    delete reinterpret_cast<RecordWithContext*>(record);
}

}  // namespace vx
