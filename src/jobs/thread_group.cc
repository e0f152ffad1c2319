// Threads of a group are detached: nothing joins them. The count goes up before the thread starts
// (so a wait cannot miss a thread about to run) and down as its very last act, under the group's
// mutex, which the waiter also takes: once the count reaches zero no thread of the group touches
// anything the waiter may destroy next.
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
