// Reception of an LPD job (RFC 1179 receive-job subcommands): the control file into memory, each
// data file into a file of its own in the temporary directory, and the job record built from the
// control file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/fileops.h"
#include "jobs/job_record.h"
#include "net/socket_io.h"

namespace vx {

// Runs the subcommand dialogue for a queue. Returns the new job record (made with
// CreateJobRecord; its context holds the last data file and the title), or null.
JobRecord* ReceiveJob(const char* queue, NetSocket* socket);

// The control-file analysis: owner (at most 12 characters), title (at most 99) and the number of
// print lines (the copy count).
void AnalyseControlFile(const char* control, char* owner, size_t ownerSize, char* title,
                        size_t titleSize, int32_t* printLines);

// Largest control file the service takes into memory; a larger announcement is refused.
constexpr int64_t kMaxControlFileSize = 16 * 1024 * 1024;

// Receives an announced control file into a tracked buffer (NUL-terminated after the received
// bytes) handed over in *control, to be released with FreeControlFile. 0, or -1 (nothing handed
// over).
int ReceiveCmd(char** control, int64_t* length, const char* queue, const char* fileName,
               int64_t size, NetSocket* socket);
void FreeControlFile(char* control);

// Where ReceiveData stored a data file.
struct DataFileReceipt {
    char nameUsed[200];   // the file name in the temporary directory (the job identifier)
    char path[kMaxPath];  // the full path of the file
    bool storageFailed;   // the file could not be written: the job is refused
};

// Receives an announced data file into the temporary directory. 0, or -1.
int ReceiveData(const char* queue, const char* fileName, int64_t size, NetSocket* socket,
                DataFileReceipt* receipt);

}  // namespace vx
