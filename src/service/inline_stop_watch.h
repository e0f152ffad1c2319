// A connection served by the accepting thread itself (ConnectionMode 0) has nobody to wait out a
// stop's grace period for it: while it is served, this watch shuts it down once a stop request is
// older than the grace period, so that the stop ends within the same bound as with connection
// threads. The job being received is then dropped unacknowledged, as there.
#pragma once

#include <cstdint>
#include <memory>

namespace vx {

class InlineStopWatch {
  public:
    explicit InlineStopWatch(uint32_t graceMs);
    // Ends the watch and waits until its thread has left.
    ~InlineStopWatch();
    InlineStopWatch(const InlineStopWatch&) = delete;
    InlineStopWatch& operator=(const InlineStopWatch&) = delete;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vx
