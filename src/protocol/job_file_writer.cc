#include "protocol/job_file_writer.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace vx {

namespace {

// Large enough that a write costs the file system little per byte, small enough that the writers
// of the process hold a few megabytes at most.
constexpr size_t kChunkSize = 256 * 1024;

std::atomic<int> g_writersAtWork{0};

}  // namespace

struct JobFileWriter {
    FILE* file = nullptr;
    std::unique_ptr<uint8_t[]> filling;  // the session's: data not yet handed over
    std::unique_ptr<uint8_t[]> writing;  // the thread's while toWrite is not 0
    size_t filled = 0;

    std::mutex mutex;
    std::condition_variable changed;
    size_t toWrite = 0;  // bytes of `writing` the thread is to write
    bool failed = false;
    bool ending = false;
    std::thread thread;
};

namespace {

void WriteChunks(JobFileWriter* w) {
    std::unique_lock<std::mutex> lock(w->mutex);
    for (;;) {
        w->changed.wait(lock, [w] { return w->toWrite > 0 || w->ending; });
        if (w->toWrite == 0) return;
        size_t n = w->toWrite;
        bool written = !w->failed;
        lock.unlock();
        if (written) written = fwrite(w->writing.get(), 1, n, w->file) == n;
        lock.lock();
        if (!written) w->failed = true;
        w->toWrite = 0;
        w->changed.notify_all();
    }
}

// Hands the filled chunk to the thread once it has written the one before. False after a failed
// write.
bool HandOver(JobFileWriter& w) {
    std::unique_lock<std::mutex> lock(w.mutex);
    w.changed.wait(lock, [&w] { return w.toWrite == 0; });
    if (w.failed) return false;
    if (w.filled == 0) return true;
    std::swap(w.filling, w.writing);
    w.toWrite = w.filled;
    w.filled = 0;
    w.changed.notify_all();
    return true;
}

}  // namespace

void JobFileWriterDeleter::operator()(JobFileWriter* writer) const {
    if (writer == nullptr) return;
    if (writer->thread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(writer->mutex);
            writer->ending = true;
        }
        writer->changed.notify_all();
        writer->thread.join();
    }
    delete writer;
    g_writersAtWork.fetch_sub(1);
}

JobFileWriterPtr StartJobFileWriter(FILE* file) {
    if (file == nullptr) return nullptr;
    if (g_writersAtWork.fetch_add(1) >= kMaxJobFileWriters) {
        g_writersAtWork.fetch_sub(1);
        return nullptr;
    }
    // From here on the deleter gives the place back.
    JobFileWriterPtr writer(new (std::nothrow) JobFileWriter);
    if (writer == nullptr) {
        g_writersAtWork.fetch_sub(1);
        return nullptr;
    }
    writer->file = file;
    writer->filling.reset(new (std::nothrow) uint8_t[kChunkSize]);
    writer->writing.reset(new (std::nothrow) uint8_t[kChunkSize]);
    if (writer->filling == nullptr || writer->writing == nullptr) return nullptr;
    try {
        writer->thread = std::thread(WriteChunks, writer.get());
    } catch (const std::system_error&) {
        return nullptr;
    }
    return writer;
}

bool WriteThroughWriter(JobFileWriter& writer, const void* data, size_t length) {
    const auto* from = static_cast<const uint8_t*>(data);
    while (length > 0) {
        size_t n = kChunkSize - writer.filled;
        if (n > length) n = length;
        memcpy(writer.filling.get() + writer.filled, from, n);
        writer.filled += n;
        from += n;
        length -= n;
        if (writer.filled == kChunkSize && !HandOver(writer)) return false;
    }
    return true;
}

bool FlushJobFileWriter(JobFileWriter& writer) {
    if (!HandOver(writer)) return false;
    std::unique_lock<std::mutex> lock(writer.mutex);
    writer.changed.wait(lock, [&writer] { return writer.toWrite == 0; });
    return !writer.failed;
}

}  // namespace vx
