#include "protocol/job_files.h"

#include "base/text.h"
#include "jobs/job_journal.h"
#include "jobs/spare_files.h"
#include "printserver/process_locks.h"
#include "printserver/trace.h"

namespace vx {

namespace {

constexpr int kMaxSuffix = 999;

// Creates the file under one name, its journal reserved first. *taken tells that the name (or
// its journal's) is in use.
FILE* CreateUnderName(const char* path, bool* taken) {
    if (ReserveJobJournal(path, taken) != 0) return nullptr;
    FILE* file = NewJobFile(path, taken);
    if (file == nullptr) RemoveJobJournalOf(path);
    return file;
}

}  // namespace

JobFileResult CreateJobFile(const char* dir, const char* name, char* path, size_t pathSize,
                            char* nameUsed, size_t nameSize, StreamPtr* file, bool* suffixed) {
    LockHold hold(ProcessFileLock());
    *suffixed = false;
    // An empty name is the directory itself, which is always taken.
    bool taken = name[0] == '\0';
    FormatText(path, pathSize, "%s%s", dir, name);
    if (!taken) file->reset(CreateUnderName(path, &taken));
    if (*file != nullptr) {
        CopyText(nameUsed, nameSize, name);
        return kJobFileCreated;
    }
    if (!taken) return kJobFileCannotCreate;
    *suffixed = true;
    for (int n = 1; n <= kMaxSuffix; ++n) {
        FormatText(path, pathSize, "%s%s.%03d", dir, name, n);
        file->reset(CreateUnderName(path, &taken));
        if (*file != nullptr) {
            FormatText(nameUsed, nameSize, "%s.%03d", name, n);
            return kJobFileCreated;
        }
        if (!taken) return kJobFileCannotCreate;
    }
    TraceError("All filenames starting with %s used.\n", name);
    return kJobFileNamesUsed;
}

void RemoveReceivedFile(const char* path) {
    FsRemove(path);
    RemoveJobJournalOf(path);
}

}  // namespace vx
