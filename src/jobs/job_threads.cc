#include "jobs/job_threads.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace vx {

namespace {

struct ThreadCount {
    std::mutex mutex;
    std::condition_variable ended;
    int running = 0;
};

ThreadCount& Threads() {
    // Never destroyed: a thread may still leave while static objects are being destroyed.
    static ThreadCount* count = new ThreadCount;
    return *count;
}

void Leave() {
    ThreadCount& t = Threads();
    std::lock_guard<std::mutex> hold(t.mutex);
    if (--t.running == 0) t.ended.notify_all();
}

}  // namespace

int StartJobThread(std::function<void()> body) {
    ThreadCount& t = Threads();
    {
        std::lock_guard<std::mutex> hold(t.mutex);
        ++t.running;
    }
    try {
        std::thread([work = std::move(body)] {
            work();
            Leave();
        }).detach();
    } catch (const std::system_error&) {
        Leave();
        return -1;
    }
    return 0;
}

void WaitForJobThreads() {
    ThreadCount& t = Threads();
    std::unique_lock<std::mutex> hold(t.mutex);
    t.ended.wait(hold, [&t] { return t.running == 0; });
}

}  // namespace vx
