// The time left of a caller's time-out, for each transport call of one library call.
#pragma once

#include <algorithm>
#include <chrono>

namespace vx::snc {

class Deadline {
  public:
    // timeoutMs -1: no limit.
    explicit Deadline(int timeoutMs)
        : timeoutMs_(timeoutMs), end_(Clock::now() + std::chrono::milliseconds(timeoutMs)) {}
    // The milliseconds left (0 once passed), or -1 for no limit.
    int Remaining() const {
        if (timeoutMs_ < 0) return -1;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>(std::max<long long>(0, left.count()));
    }

  private:
    using Clock = std::chrono::steady_clock;
    int timeoutMs_;
    Clock::time_point end_;
};

}  // namespace vx::snc
