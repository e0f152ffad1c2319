// Two in-memory byte streams joining the library's session (through an SncTransport) to a test
// client, with the transport's time-outs and codes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "snc/vorlixsnc.h"

namespace vxtest {

constexpr int kLinkTimeout = -5;
constexpr int kLinkClosed = -6;

// One direction: bytes put at one end, taken at the other.
class ByteQueue {
  public:
    // false when the reader has gone.
    bool Put(const void* data, int length);
    // Waits at most timeoutMs (-1: no limit) for at least one byte: 0 with *count, kLinkTimeout,
    // or kLinkClosed once the writer closed and everything was taken.
    int Take(void* buffer, int length, int timeoutMs, int* count);
    void Close();

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<unsigned char> bytes_;
    bool closed_ = false;
};

struct MemoryLink {
    ByteQueue toServer;
    ByteQueue toClient;
    std::atomic<int> lastServerTimeout{0};  // the time-out of the library's last receive

    // The library's end.
    SncTransport ServerTransport();
    // Ends both directions, so that neither end waits any longer.
    void Close() {
        toServer.Close();
        toClient.Close();
    }
};

// The sender's TLS client's end of a MemoryLink (the recv and send of snc/tls_client.h's
// TlsClientIo, context the link): a receive waits at most 10 s.
int ClientRecv(void* link, void* buffer, size_t length, size_t* count);
int ClientSend(void* link, const void* data, size_t length);

// The library's trace lines, from whichever thread writes them (SncSetTrace(Collect, &log)).
class TraceLog {
  public:
    static void Collect(void* context, const char* line);
    bool Has(const std::string& part);
    std::string All();

  private:
    std::mutex lock_;
    std::vector<std::string> lines_;
};

}  // namespace vxtest
