// Threads of a group are detached: nothing joins them. The count goes up before a body is handed
// over (so a wait cannot miss a body about to run) and down, under the group's mutex, which the
// waiter also takes, once the body has ended: once the count reaches zero no body of the group
// touches anything the waiter may destroy next. Idle threads touch only the group itself, which
// lives as long as the process.
#include "jobs/thread_group.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace vx {

namespace {

// How long a thread whose body ended waits for another one before it ends itself.
constexpr auto kIdleThreadKeep = std::chrono::seconds(2);

}  // namespace

int ThreadGroup::Start(std::function<void()> body) {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        ++running_;
        // Every body handed over has an idle thread of its own to take it.
        if (static_cast<size_t>(idle_) > waiting_.size()) {
            waiting_.push_back(std::move(body));
            work_.notify_one();
            return 0;
        }
    }
    try {
        std::thread([this, work = std::move(body)]() mutable { Serve(std::move(work)); }).detach();
    } catch (const std::system_error& e) {
        std::lock_guard<std::mutex> hold(mutex_);
        BodyEnded();
        return e.code() == std::errc::resource_unavailable_try_again ? EAGAIN : -1;
    }
    return 0;
}

void ThreadGroup::Serve(std::function<void()> body) {
    for (;;) {
        body();
        body = nullptr;  // what the body holds goes before the count says it ended
        std::unique_lock<std::mutex> hold(mutex_);
        BodyEnded();
        ++idle_;
        work_.wait_for(hold, kIdleThreadKeep, [this] { return !waiting_.empty(); });
        --idle_;
        if (waiting_.empty()) return;
        body = std::move(waiting_.front());
        waiting_.pop_front();
    }
}

void ThreadGroup::WaitUntilNoneRuns() {
    std::unique_lock<std::mutex> hold(mutex_);
    ended_.wait(hold, [this] { return running_ == 0; });
}

void ThreadGroup::BodyEnded() {
    // Notified under the lock: once none runs, the waiter may end the process at once.
    if (--running_ == 0) ended_.notify_all();
}

}  // namespace vx
