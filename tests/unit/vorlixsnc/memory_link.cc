#include "memory_link.h"

#include <algorithm>
#include <chrono>

namespace vxtest {

bool ByteQueue::Put(const void* data, int length) {
    const unsigned char* from = static_cast<const unsigned char*>(data);
    {
        std::lock_guard<std::mutex> hold(lock_);
        if (closed_) return false;
        bytes_.insert(bytes_.end(), from, from + length);
    }
    changed_.notify_all();
    return true;
}

int ByteQueue::Take(void* buffer, int length, int timeoutMs, int* count) {
    *count = 0;
    std::unique_lock<std::mutex> hold(lock_);
    auto ready = [this] { return !bytes_.empty() || closed_; };
    if (timeoutMs < 0)
        changed_.wait(hold, ready);
    else if (!changed_.wait_for(hold, std::chrono::milliseconds(timeoutMs), ready))
        return kLinkTimeout;
    if (bytes_.empty()) return kLinkClosed;
    int taken = std::min<int>(length, static_cast<int>(bytes_.size()));
    std::copy_n(bytes_.begin(), taken, static_cast<unsigned char*>(buffer));
    bytes_.erase(bytes_.begin(), bytes_.begin() + taken);
    *count = taken;
    return 0;
}

void ByteQueue::Close() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        closed_ = true;
    }
    changed_.notify_all();
}

namespace {

int ServerReceive(void* context, void* buffer, int length, int timeoutMs, int* count) {
    auto* link = static_cast<MemoryLink*>(context);
    link->lastServerTimeout = timeoutMs;
    return link->toServer.Take(buffer, length, timeoutMs, count);
}

int ServerSend(void* context, const void* data, int length, int, int* count) {
    auto* link = static_cast<MemoryLink*>(context);
    *count = 0;
    if (!link->toClient.Put(data, length)) return kLinkClosed;
    *count = length;
    return 0;
}

}  // namespace

SncTransport MemoryLink::ServerTransport() {
    return SncTransport{this, ServerReceive, ServerSend};
}

int ClientRecv(void* link, void* buffer, size_t length, size_t* count) {
    int got = 0;
    int rc = static_cast<MemoryLink*>(link)->toClient.Take(buffer, static_cast<int>(length), 10000,
                                                           &got);
    *count = static_cast<size_t>(got);
    return rc == 0 ? 0 : -1;
}

int ClientSend(void* link, const void* data, size_t length) {
    return static_cast<MemoryLink*>(link)->toServer.Put(data, static_cast<int>(length)) ? 0 : -1;
}

void TraceLog::Collect(void* context, const char* line) {
    auto* self = static_cast<TraceLog*>(context);
    std::lock_guard<std::mutex> hold(self->lock_);
    self->lines_.emplace_back(line);
}

bool TraceLog::Has(const std::string& part) {
    std::lock_guard<std::mutex> hold(lock_);
    for (const std::string& line : lines_)
        if (line.find(part) != std::string::npos) return true;
    return false;
}

std::string TraceLog::All() {
    std::lock_guard<std::mutex> hold(lock_);
    std::string all;
    for (const std::string& line : lines_) all += line + "\n";
    return all;
}

}  // namespace vxtest
