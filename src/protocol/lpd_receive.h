// Reception of an LPD job (RFC 1179 receive-job subcommands): the control file into memory, each
// data file into a file of its own in the temporary directory, and the job record built from the
// control file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/fileops.h"
#include "jobs/job_record.h"
#include "net/socket_io.h"
#include "protocol/job_files.h"

namespace vx {

class RepeatedTrace;

// Takes over the jobs that a file of the dialogue has completed, before the sender hears the
// acknowledgement of that file: 0 when every one is safe with the service, -1 when none was taken
// (the sender is refused and their data files are removed). The records stay the caller's.
using LpdJobHandOver = int (*)(void* context, JobRecord* const* jobs, int count);

// Runs the subcommand dialogue for a queue. Every data file that arrives whole becomes a job of
// its own, in the order received, described by the control file that names it in its print lines
// (its copy count is the number of those lines), else by the last control file of the dialogue.
// A job is handed over as soon as both its files are there. A data file that does not arrive
// whole, or that no control file describes, is removed. A line traced for every subcommand or
// every control-file line is written a few times, then counted once at the end of the dialogue.
// Returns the number of jobs handed over.
int ReceiveJob(const char* queue, NetSocket* socket, LpdJobHandOver handOver, void* context);

// The control-file analysis: owner (at most 12 characters), title (at most 99) and the number of
// print lines (the copy count). Repeated lines of one kind are counted in *repeats (the
// dialogue's), else in a count of this control file alone.
void AnalyseControlFile(const char* control, char* owner, size_t ownerSize, char* title,
                        size_t titleSize, int32_t* printLines, RepeatedTrace* repeats = nullptr);

// The number of print lines (lower-case lines) of the control text whose value is the data file
// name as the sender gave it.
int32_t CountPrintLinesNaming(const char* control, const char* dataFileName);

// Largest control file the service takes into memory; a larger announcement is refused.
constexpr int64_t kMaxControlFileSize = 16 * 1024 * 1024;

// Receives an announced control file into a tracked buffer (NUL-terminated after the received
// bytes) handed over in *control, to be released with FreeControlFile. The buffer grows with the
// bytes that arrive, under the ceiling for the control files of all connections
// (protocol/control_file_memory.h). 0, or -1 (nothing handed over).
int ReceiveCmd(char** control, int64_t* length, const char* queue, const char* fileName,
               int64_t size, NetSocket* socket, RepeatedTrace* repeats = nullptr);
void FreeControlFile(char* control);

// Where ReceiveData stored a data file.
struct DataFileReceipt {
    char nameUsed[200];   // the file name in the temporary directory (the job identifier)
    char path[kMaxPath];  // the full path of the file
    bool storageFailed;   // the file could not be written: the job is refused
};

// Receives an announced data file into a file of its own in the temporary directory (a free name
// is searched under the process-wide file lock and the file created exclusively). 0 when the file
// arrived whole: its last acknowledgement is then the caller's, once the file's job is safe. -1
// otherwise, with nothing left on disk (a refusal was answered, or the sender went away).
int ReceiveData(const char* queue, const char* fileName, int64_t size, NetSocket* socket,
                DataFileReceipt* receipt, RepeatedTrace* repeats = nullptr);

}  // namespace vx
