// A large received job's data written into its file on a thread of its own. A C2 block decodes to
// many times its size, and putting those bytes into the file costs the session as much time as
// decoding them: with the writing on another thread, the session answers the block and reads and
// decodes the next one meanwhile. The data is copied into chunks that the thread writes in the
// order handed over; the session waits only when the thread is a whole chunk behind.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace vx {

struct JobFileWriter;
struct JobFileWriterDeleter {
    void operator()(JobFileWriter* writer) const;  // lets the thread finish, then frees it
};
using JobFileWriterPtr = std::unique_ptr<JobFileWriter, JobFileWriterDeleter>;

// At most this many writers are at work at once in the process; a job beyond them is written by
// its session itself.
constexpr int kMaxJobFileWriters = 8;

// A writer for file (which the caller keeps, and does not touch until the writer is flushed or
// freed), or null when none can be had: too many at work, no memory, or no thread to spare.
JobFileWriterPtr StartJobFileWriter(FILE* file);

// Takes length bytes over for writing. False when a write of data handed over earlier failed;
// nothing more is written then.
bool WriteThroughWriter(JobFileWriter& writer, const void* data, size_t length);

// Waits until everything handed over is in the file (as far as the stream's own buffer). False
// when a write failed.
bool FlushJobFileWriter(JobFileWriter& writer);

}  // namespace vx
