#include "printlib/job_states.h"

#include <mutex>
#include <vector>

#include "printlib/zelwin.h"

namespace zel {

namespace {

struct JobState {
    std::u16string jobId;
    std::u16string printer;
    int state;
    std::u16string errorText;
};

struct StateTable {
    std::mutex lock;
    std::vector<JobState> entries;
};

// Lives until the process ends: printer workers may still report while it exits.
StateTable& Table() {
    static StateTable* table = new StateTable;
    return *table;
}

bool Matches(const JobState& entry, const std::u16string& jobId, const std::u16string& printer) {
    return entry.jobId == jobId && (printer.empty() || entry.printer == printer);
}

}  // namespace

void SetJobState(const std::u16string& jobId, const std::u16string& printer, int state,
                 const std::u16string& errorText) {
    StateTable& table = Table();
    std::lock_guard<std::mutex> hold(table.lock);
    for (JobState& entry : table.entries) {
        if (entry.jobId == jobId && entry.printer == printer) {
            entry.state = state;
            entry.errorText = errorText;
            return;
        }
    }
    table.entries.push_back(JobState{jobId, printer, state, errorText});
}

int TakeJobState(const std::u16string& jobId, const std::u16string& printer, int* state,
                 std::u16string* errorText) {
    StateTable& table = Table();
    std::lock_guard<std::mutex> hold(table.lock);
    for (auto entry = table.entries.begin(); entry != table.entries.end(); ++entry) {
        if (!Matches(*entry, jobId, printer)) continue;
        *state = entry->state;
        *errorText = entry->errorText;
        if (entry->state == ZEL_JOB_DONE || entry->state == ZEL_JOB_ERROR) {
            table.entries.erase(entry);
        }
        return 0;
    }
    return 1;
}

void ForgetJobStates() {
    StateTable& table = Table();
    std::lock_guard<std::mutex> hold(table.lock);
    table.entries.clear();
}

}  // namespace zel
