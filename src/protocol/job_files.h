// The data files of received jobs in the temporary directory: each created exclusively, its journal
// reserved first, under a name of its own.
#pragma once

#include <cstddef>

#include "base/fileops.h"

namespace vx {

enum JobFileResult {
    kJobFileCreated,
    kJobFileNamesUsed,     // the name and all its ".%03d" suffixes are taken
    kJobFileCannotCreate,  // the file system refused the file
};

// Creates dir + name, else the first free dir + name + ".%03d": a name whose file or journal is in
// use is never shared, so that no reception writes into another job's file. The search and the
// creation happen under the process-wide file lock. The journal is reserved before the file is
// created: a process that dies while the file arrives leaves the reservation, by which the next
// start knows the file for a fragment. On kJobFileCreated, *file is open for writing, path holds
// the full path and nameUsed the name in the directory; *suffixed tells that the name itself was
// taken.
JobFileResult CreateJobFile(const char* dir, const char* name, char* path, size_t pathSize,
                            char* nameUsed, size_t nameSize, StreamPtr* file, bool* suffixed);

// Removes a received data file with its journal (or the journal's reservation).
void RemoveReceivedFile(const char* path);

}  // namespace vx
