// One job of the enhanced mode's printer queues, as QueueJobEx hands it over.
#pragma once

#include <cstdint>
#include <string>

namespace zel {

struct QueuedJob {
    std::u16string printer;
    std::u16string fileName;
    std::u16string jobId;
    std::u16string title;
    std::u16string owner;
    int copies = 1;
    int noStatus = 0;
    int number = 0;          // the job number shown in queue listings (1..999)
    int deviceErrors = 0;    // device errors in a row so far
    uint64_t retryAtMs = 0;  // not printed again before this tick (after a device error)
};

}  // namespace zel
