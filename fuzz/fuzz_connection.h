// A connection whose far end belongs to the fuzz target: a connected socket pair, the near end
// entered in the network layer's handle table as an accepted connection is. The code under test
// reads what the target sent, answers on the near end and closes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "net/socket_io.h"

namespace vxfuzz {

class FuzzConnection {
  public:
    FuzzConnection();
    ~FuzzConnection();
    FuzzConnection(const FuzzConnection&) = delete;
    FuzzConnection& operator=(const FuzzConnection&) = delete;

    // The near end, for the code under test (which may close it).
    vx::NetSocket& Socket() { return socket_; }

    // Sends what fits into the connection without waiting; the rest is cut.
    void Send(const uint8_t* data, size_t size);
    // The sender is done: the near end reads the end of the connection after the bytes sent.
    void EndSending();
    // Waits up to timeoutMs for an answer and reads what came. False when the near end has been
    // closed.
    bool AwaitAnswer(int timeoutMs);
    // Reads and drops the answers until the near end is closed.
    void DrainUntilClosed();
    // Reads and drops what has been answered so far.
    void Drain();

  private:
    int far_ = -1;
    vx::NetSocket socket_;
    bool closed_ = false;
};

// Plays a sender's whole side of one connection to the connection handler. The input is the
// sender's bytes in segments separated by "~~~~"; each segment is sent after the service has
// answered the previous one (or has stayed silent for a moment), as a sender that waits for its
// answers does, and the connection ends after the last one. Jobs for the printer "lp" are
// received, journaled and queued; the fake print library prints them without output. Traps when
// the handler leaves its socket open.
void PlayDialogue(const uint8_t* data, size_t size);

}  // namespace vxfuzz
