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
    // The TLS session ends first: its close notification still needs the connection.
    tls_.reset();
    if (handle_ != kNiNoHandle) NiCloseHandle(handle_);
    handle_ = kNiNoHandle;
    start_ = end_ = 0;
}

int SendConnection::RawWrite(const void* data, size_t length, SendResult* result) {
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

// 0 with *count > 0, 1 when the server closed the connection, -1 on another failure.
int SendConnection::RawRead(void* buffer, size_t length, size_t* count, SendResult* result) {
    int32_t slice =
        length < static_cast<size_t>(kWriteSlice) ? static_cast<int32_t>(length) : kWriteSlice;
    int32_t got = 0;
    int rc = NiRawRead(handle_, buffer, slice, timeoutMs_, &got);
    *count = static_cast<size_t>(got > 0 ? got : 0);
    if (got > 0) return 0;
    if (rc == kNiOk || rc == kNiClosed) {
        closedByServer_ = true;
        return 1;
    }
    closedByServer_ = false;
    Fail(result, kExitNetwork, "reading from %s failed: %s", host_, Why(rc));
    return -1;
}

int SendConnection::TlsSend(void* context, const void* data, size_t length) {
    auto* self = static_cast<SendConnection*>(context);
    return self->RawWrite(data, length, &self->tlsIo_);
}

int SendConnection::TlsRecv(void* context, void* buffer, size_t length, size_t* count) {
    auto* self = static_cast<SendConnection*>(context);
    int rc = self->RawRead(buffer, length, count, &self->tlsIo_);
    if (rc == 1)
        Fail(&self->tlsIo_, kExitNetwork, "reading from %s failed: %s", self->host_,
             Why(kNiClosed));
    return rc == 0 ? 0 : -1;
}

int SendConnection::StartTls(const TlsClientCredentials& credentials, SendResult* result) {
    if (start_ != end_)
        return Fail(result, kExitRefused,
                    "the server sent more than its answer before the secured session began");
    tlsIo_ = SendResult();
    TlsClientIo io;
    io.context = this;
    io.send = TlsSend;
    io.recv = TlsRecv;
    char error[400];
    TlsClient* client = nullptr;
    if (TlsClientOpen(credentials, io, &client, error, sizeof error) != 0) {
        // A lost connection is the reason, not what the TLS client made of it.
        if (tlsIo_.exitCode != kExitDelivered)
            return Fail(result, tlsIo_.exitCode, "secured session with %s: %s", host_,
                        tlsIo_.reason);
        return Fail(result, kExitRefused, "secured session with %s: %s", host_, error);
    }
    tls_.reset(client);
    return 0;
}

int SendConnection::Write(const void* data, size_t length, SendResult* result) {
    if (!tls_) return RawWrite(data, length, result);
    char error[400];
    if (TlsClientWrite(tls_.get(), data, length, error, sizeof error) == 0) return 0;
    if (tlsIo_.exitCode != kExitDelivered)
        return Fail(result, tlsIo_.exitCode, "%s", tlsIo_.reason);
    return Fail(result, kExitNetwork, "sending to %s failed: %s", host_, error);
}

int SendConnection::WriteText(const char* text, SendResult* result) {
    return Write(text, strlen(text), result);
}

// 0 with *count > 0, 1 when the server ended the connection (or the secured session), -1 on
// another failure.
int SendConnection::ReadSome(void* buffer, size_t length, size_t* count, SendResult* result) {
    if (!tls_) return RawRead(buffer, length, count, result);
    char error[400];
    if (TlsClientRead(tls_.get(), buffer, length, count, error, sizeof error) == 0) {
        if (*count > 0) return 0;
        closedByServer_ = true;
        return 1;
    }
    if (tlsIo_.exitCode != kExitDelivered) {
        if (closedByServer_) return 1;
        Fail(result, tlsIo_.exitCode, "%s", tlsIo_.reason);
        return -1;
    }
    Fail(result, kExitNetwork, "reading from %s failed: %s", host_, error);
    return -1;
}

int SendConnection::Fill(SendResult* result) {
    start_ = 0;
    end_ = 0;
    size_t count = 0;
    int rc = ReadSome(buffer_, sizeof buffer_, &count, result);
    end_ = count;
    if (rc == 0) return 0;
    if (rc == 1)
        return Fail(result, kExitNetwork, "reading from %s failed: %s", host_, Why(kNiClosed));
    return -1;
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
        size_t count = 0;
        int rc = ReadSome(buffer_, sizeof buffer_, &count, result);
        out->append(reinterpret_cast<const char*>(buffer_), count);
        if (rc == 1) return 0;
        if (rc != 0) return -1;
    }
    return 0;
}

}  // namespace vx
