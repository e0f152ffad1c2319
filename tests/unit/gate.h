// A door that test threads wait at until the test opens it, with a guard against hangs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vxtest {

// Only a guard against hangs, never a timing check.
constexpr auto kHangGuard = std::chrono::seconds(30);

// Threads wait at it until the test opens it; Pass is false when the hang guard ran out.
class Gate {
  public:
    void Open() {
        std::lock_guard<std::mutex> hold(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool Pass() {
        std::unique_lock<std::mutex> hold(mutex_);
        return changed_.wait_for(hold, kHangGuard, [this] { return open_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

}  // namespace vxtest
