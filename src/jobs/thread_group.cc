#include "jobs/thread_group.h"

#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace vx {

int ThreadGroup::Start(std::function<void()> body) {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        ++running_;
    }
    try {
        std::thread([this, work = std::move(body)] {
            work();
            Leave();
        }).detach();
    } catch (const std::system_error& e) {
        Leave();
        return e.code() == std::errc::resource_unavailable_try_again ? EAGAIN : -1;
    }
    return 0;
}

void ThreadGroup::WaitUntilNoneRuns() {
    std::unique_lock<std::mutex> hold(mutex_);
    ended_.wait(hold, [this] { return running_ == 0; });
}

void ThreadGroup::Leave() {
    // Notified under the lock: once none runs, the waiter may end the process at once.
    std::lock_guard<std::mutex> hold(mutex_);
    if (--running_ == 0) ended_.notify_all();
}

}  // namespace vx
