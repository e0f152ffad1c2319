// A group of threads started detached and counted, so that the end of the service can wait until
// none of them runs any more: a thread counts from before it starts until it has left its body.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

namespace vx {

class ThreadGroup {
  public:
    ThreadGroup() = default;
    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;

    // Runs body on a new thread of the group: 0, EAGAIN when the system has no thread to spare,
    // or -1 when the thread could not be started for another reason.
    int Start(std::function<void()> body);

    // Waits until every thread started in the group has left its body.
    void WaitUntilNoneRuns();

  private:
    void Leave();

    std::mutex mutex_;
    std::condition_variable ended_;
    int running_ = 0;
};

}  // namespace vx
