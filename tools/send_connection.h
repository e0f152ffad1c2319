// The sender's end of one connection to the server: connect, write everything, read a byte, a
// line or up to a delimiter through a small buffer, each within the time-out. Every failure is
// recorded in the SendResult as a network failure naming what went wrong. Once StartTls has run,
// every write and read goes through the TLS session instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/ni.h"
#include "snc/tls_client.h"
#include "tools/send_result.h"

namespace vx {

class SendConnection {
  public:
    SendConnection() = default;
    SendConnection(const SendConnection&) = delete;
    SendConnection& operator=(const SendConnection&) = delete;
    ~SendConnection() { Close(); }

    // Connects to host on port (decimal text); timeoutMs bounds the connect and every later wait.
    int Open(const char* host, const char* port, int timeoutMs, SendResult* result);
    void Close();

    // Writes all of data. One call is one write: the server reads each command as one packet.
    int Write(const void* data, size_t length, SendResult* result);
    int WriteText(const char* text, SendResult* result);

    // Reads one byte (an LPD acknowledgement).
    int ReadByte(uint8_t* byte, SendResult* result);
    // Reads up to and including delimiter; the text before it goes to out (cut at cap, the rest
    // of a longer text is read and dropped). -1 when the connection ends first.
    int ReadUntil(char delimiter, char* out, size_t cap, SendResult* result);
    // The same, waiting at most waitMs for it (the connection's time-out stays as it was).
    int ReadUntilWithin(char delimiter, char* out, size_t cap, int waitMs, SendResult* result);
    // Everything up to the end of the connection (a query's answer), at most limit bytes.
    int ReadToEnd(std::string* out, size_t limit, SendResult* result);

    // Runs the TLS hand-shake over the open connection (nothing of the server's may be waiting
    // unread); from then on every write and read travels in the secured session.
    int StartTls(const TlsClientCredentials& credentials, SendResult* result);

    // True when the last failure was the server closing the connection (not a lost one).
    bool ClosedByServer() const { return closedByServer_; }

  private:
    int Fill(SendResult* result);
    // The connection's bytes as they go over the network, below the TLS session.
    int RawWrite(const void* data, size_t length, SendResult* result);
    int RawRead(void* buffer, size_t length, size_t* count, SendResult* result);
    // Everything that arrives next, through the TLS session when there is one.
    int ReadSome(void* buffer, size_t length, size_t* count, SendResult* result);
    static int TlsSend(void* context, const void* data, size_t length);
    static int TlsRecv(void* context, void* buffer, size_t length, size_t* count);

    NiHandle handle_ = kNiNoHandle;
    int timeoutMs_ = 0;
    char host_[64] = {};
    uint8_t buffer_[4096];
    size_t start_ = 0;
    size_t end_ = 0;
    bool closedByServer_ = false;
    TlsClientPtr tls_;
    SendResult tlsIo_;  // why the connection below the TLS session failed
};

}  // namespace vx
