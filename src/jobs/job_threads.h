// The threads of job processing (printer workers and one-job threads): started detached and
// counted, so that the end of the service can wait until none of them runs any more.
#pragma once

#include <functional>

namespace vx {

// Runs body on a new thread. 0, or -1 when the thread cannot be started.
int StartJobThread(std::function<void()> body);

// Waits until every thread started with StartJobThread has left its body.
void WaitForJobThreads();

}  // namespace vx
