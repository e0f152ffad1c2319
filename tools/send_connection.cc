#include "tools/send_connection.h"

#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// Writes go out in slices: one job's data is not one call.
constexpr int32_t kWriteSlice = 65536;

const char* Why(int rc) {
    switch (rc) {
        case kNiHostUnknown:
            return "host unknown";
        case kNiRefused:
            return "connection refused";
        case kNiTimeout:
            return "timed out";
        case kNiClosed:
            return "connection closed by the server";
        default:
            return "network error";
    }
}

}  // namespace

int SendConnection::Open(const char* host, const char* port, int timeoutMs, SendResult* result) {
    Close();
    timeoutMs_ = timeoutMs;
    CopyText(host_, host);
    int rc = NiConnect(host, port, timeoutMs, &handle_);
    if (rc != kNiOk) {
        handle_ = kNiNoHandle;
        return Fail(result, kExitNetwork, "cannot connect to %s:%s: %s", host, port, Why(rc));
    }
    // A read returns what arrived instead of waiting for its whole length.
    NiSetSingleRead(handle_, true);
    return 0;
}

void SendConnection::Close() {
    if (handle_ != kNiNoHandle) NiCloseHandle(handle_);
    handle_ = kNiNoHandle;
    start_ = end_ = 0;
}

int SendConnection::Write(const void* data, size_t length, SendResult* result) {
    const char* from = static_cast<const char*>(data);
    while (length > 0) {
        int32_t slice =
            length < static_cast<size_t>(kWriteSlice) ? static_cast<int32_t>(length) : kWriteSlice;
        int32_t written = 0;
        int rc = NiRawWrite(handle_, from, slice, timeoutMs_, &written);
        from += written;
        length -= static_cast<size_t>(written);
        // The time-out bounds a wait without progress: a slow reader is still a reader.
        if (rc == kNiTimeout && written > 0) continue;
        if (rc != kNiOk) {
            closedByServer_ = rc == kNiClosed;
            return Fail(result, kExitNetwork, "sending to %s failed: %s", host_, Why(rc));
        }
    }
    return 0;
}

int SendConnection::WriteText(const char* text, SendResult* result) {
    return Write(text, strlen(text), result);
}

int SendConnection::Fill(SendResult* result) {
    start_ = 0;
    end_ = 0;
    int32_t count = 0;
    int rc = NiRawRead(handle_, buffer_, sizeof buffer_, timeoutMs_, &count);
    end_ = static_cast<size_t>(count);
    if (count > 0) return 0;
    if (rc == kNiOk) rc = kNiClosed;
    closedByServer_ = rc == kNiClosed;
    return Fail(result, kExitNetwork, "reading from %s failed: %s", host_, Why(rc));
}

int SendConnection::ReadByte(uint8_t* byte, SendResult* result) {
    if (start_ == end_ && Fill(result) != 0) return -1;
    *byte = buffer_[start_++];
    return 0;
}

int SendConnection::ReadUntil(char delimiter, char* out, size_t cap, SendResult* result) {
    size_t n = 0;
    for (;;) {
        if (start_ == end_ && Fill(result) != 0) {
            if (cap > 0) out[n] = '\0';
            return -1;
        }
        char c = static_cast<char>(buffer_[start_++]);
        if (c == delimiter) break;
        if (n + 1 < cap) out[n++] = c;
    }
    if (cap > 0) out[n] = '\0';
    return 0;
}

int SendConnection::ReadUntilWithin(char delimiter, char* out, size_t cap, int waitMs,
                                    SendResult* result) {
    int kept = timeoutMs_;
    timeoutMs_ = waitMs;
    int rc = ReadUntil(delimiter, out, cap, result);
    timeoutMs_ = kept;
    return rc;
}

int SendConnection::ReadToEnd(std::string* out, size_t limit, SendResult* result) {
    out->append(reinterpret_cast<const char*>(buffer_ + start_), end_ - start_);
    start_ = end_ = 0;
    while (out->size() < limit) {
        int32_t count = 0;
        int rc = NiRawRead(handle_, buffer_, sizeof buffer_, timeoutMs_, &count);
        out->append(reinterpret_cast<const char*>(buffer_), static_cast<size_t>(count));
        if (rc == kNiClosed || (rc == kNiOk && count == 0)) return 0;
        if (rc != kNiOk)
            return Fail(result, kExitNetwork, "reading from %s failed: %s", host_, Why(rc));
    }
    return 0;
}

}  // namespace vx
