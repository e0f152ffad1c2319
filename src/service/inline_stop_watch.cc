#include "service/inline_stop_watch.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/clock.h"
#include "base/ni.h"
#include "config/process_state.h"
#include "jobs/thread_group.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// How often the watch looks whether a stop came.
constexpr uint32_t kWatchPollMs = 250;

ThreadGroup& WatchThreads() {
    static ThreadGroup* group = new ThreadGroup;
    return *group;
}

}  // namespace

struct InlineStopWatch::State {
    std::mutex mutex;
    std::condition_variable wake;
    bool served = false;
};

InlineStopWatch::InlineStopWatch(uint32_t graceMs) : state_(std::make_shared<State>()) {
    int rc = WatchThreads().Start([state = state_, graceMs] {
        std::unique_lock<std::mutex> hold(state->mutex);
        while (!state->served) {
            uint64_t stopAt = StopRequestedAtMs();
            if (stopAt != 0 && TickCountMs() >= stopAt + graceMs) {
                int open = NiShutDownConnections();
                if (open > 0)
                    Trace(kTraceNormal, "Stopping: %d connections still open after %u ms closed.\n",
                          open, static_cast<unsigned>(graceMs));
                return;
            }
            state->wake.wait_for(hold, std::chrono::milliseconds(kWatchPollMs));
        }
    });
    // Without a watch the connection is served all the same; only its stop is not bounded.
    if (rc != 0) TraceError("The stop watch of an inline connection could not start.\n");
}

InlineStopWatch::~InlineStopWatch() {
    {
        std::lock_guard<std::mutex> hold(state_->mutex);
        state_->served = true;
    }
    state_->wake.notify_all();
    WatchThreads().WaitUntilNoneRuns();
}

}  // namespace vx
