#include "jobs/job_threads.h"

#include <utility>

#include "jobs/thread_group.h"

namespace vx {

namespace {

ThreadGroup& JobThreads() {
    // Never destroyed: a thread may still leave while static objects are being destroyed.
    static ThreadGroup* group = new ThreadGroup;
    return *group;
}

}  // namespace

int StartJobThread(std::function<void()> body) {
    return JobThreads().Start(std::move(body)) == 0 ? 0 : -1;
}

void WaitForJobThreads() {
    JobThreads().WaitUntilNoneRuns();
}

}  // namespace vx
