// The job threads (printer workers and one-job threads) are one thread group for the whole
// process: started detached and counted, so that the end of the service waits until none of them
// is still inside its body, whatever its events said before.
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
