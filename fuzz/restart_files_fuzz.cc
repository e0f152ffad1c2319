// Feeds the bytes of a restart file or a job journal, as the next start reads them back from
// disk, to the record reader and to both record parsers (queued job, job status), and as the
// journal of a received job to the start-up scan of the temporary directory. A file cut off by a
// crash or a full disk must be read without harm.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzz_service.h"
#include "jobs/job_journal.h"
#include "jobs/restart_record.h"

namespace {

template <size_t N>
void CheckTerminated(const char (&field)[N]) {
    if (strnlen(field, N) == N) __builtin_trap();
}

void ReadRecords(const uint8_t* data, size_t size) {
    if (size == 0) return;
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (file == nullptr) return;
    static vx::RestartRecord r;
    unsigned announced = 0;
    while (vx::ReadRestartRecord(file, &r, &announced) == vx::kReadRecord) {
        if (r.length > vx::kMaxRestartRecord || r.data[r.length] != '\0') __builtin_trap();
        vx::SavedJob job;
        vx::ParseJob(r, &job);
        CheckTerminated(job.printer);
        CheckTerminated(job.owner);
        CheckTerminated(job.title);
        CheckTerminated(job.fileName);
        CheckTerminated(job.jobId);
        vx::JobRecord status;
        vx::ParseStatus(r, &status);
        CheckTerminated(status.JobId);
        CheckTerminated(status.Owner);
        CheckTerminated(status.PrinterName);
        CheckTerminated(status.StatusText);
    }
    fclose(file);
}

// The journal of a received job beside its data file, then the scan that finds it.
void ScanJournal(const std::string& root, const uint8_t* data, size_t size) {
    std::string dataFile = root + "/temp/fuzzjob.prn";
    std::string journal = dataFile + vx::kJournalExtension;
    FILE* file = fopen(journal.c_str(), "wb");
    if (file == nullptr) return;
    fwrite(data, 1, size, file);
    fclose(file);
    file = fopen(dataFile.c_str(), "wb");
    if (file != nullptr) fclose(file);
    vx::ReadJobJournals();
    remove(journal.c_str());
    remove(dataFile.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& root = vxfuzz::StartService();
    ReadRecords(data, size);
    ScanJournal(root, data, size);
    return 0;
}
