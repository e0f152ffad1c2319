// Counted threads: the wait for a group ends only when every thread of it has left its body.
#include "jobs/thread_group.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// A door the threads wait at until the test opens it.
class Door {
  public:
    void Open() {
        std::lock_guard<std::mutex> hold(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void Pass() {
        std::unique_lock<std::mutex> hold(mutex_);
        changed_.wait(hold, [this] { return open_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

TEST(ThreadGroup, WaitEndsOnlyWhenEveryThreadHasLeftItsBody) {
    static vx::ThreadGroup group;  // outlives the threads that leave it
    Door door;
    std::atomic<int> left{0};
    constexpr int kThreads = 8;
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(group.Start([&] {
            door.Pass();
            ++left;
        }),
                  0);
    }
    // The door opens only once the waiter is on its way: a wait that does not wait sees
    // threads that have not left yet.
    Door waiting;
    int seen = -1;
    std::thread waiter([&] {
        waiting.Open();
        group.WaitUntilNoneRuns();
        seen = left;
    });
    waiting.Pass();
    door.Open();
    waiter.join();
    EXPECT_EQ(seen, kThreads);

    // An empty group does not wait, also after its threads have gone.
    group.WaitUntilNoneRuns();
    vx::ThreadGroup none;
    none.WaitUntilNoneRuns();
}

}  // namespace
