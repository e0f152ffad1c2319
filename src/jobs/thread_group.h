// A group of threads started detached and counted, so that the end of the service can wait until
// none of them runs any more: a body counts from before it starts until it has ended.
//
// A thread whose body has ended stays a short while for the next body of its group: connections
// that follow each other are served without a new thread for each.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace vx {

class ThreadGroup {
  public:
    ThreadGroup() = default;
    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;

    // Runs body on a thread of the group (an idle one, else a new one): 0, EAGAIN when the system
    // has no thread to spare, or -1 when the thread could not be started for another reason.
    int Start(std::function<void()> body);

    // Waits until every body started in the group has ended.
    void WaitUntilNoneRuns();

  private:
    void Serve(std::function<void()> body);
    // Under the lock: the body that ended is no longer counted.
    void BodyEnded();

    std::mutex mutex_;
    std::condition_variable ended_;
    std::condition_variable work_;
    std::deque<std::function<void()>> waiting_;  // bodies handed to idle threads
    int running_ = 0;
    int idle_ = 0;
};

}  // namespace vx
