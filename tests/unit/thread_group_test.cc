// Counted threads: the wait for a group ends only when every thread of it has left its body.
#include "jobs/thread_group.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "gate.h"

namespace {

TEST(ThreadGroup, WaitEndsOnlyWhenEveryThreadHasLeftItsBody) {
    static vx::ThreadGroup group;  // outlives the threads that leave it
    vxtest::Gate door;
    std::atomic<int> left{0};
    constexpr int kThreads = 8;
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(group.Start([&] {
            EXPECT_TRUE(door.Pass());
            ++left;
        }),
                  0);
    }
    // The door opens only once the waiter is on its way: a wait that does not wait sees
    // threads that have not left yet.
    vxtest::Gate waiting;
    int seen = -1;
    std::thread waiter([&] {
        waiting.Open();
        group.WaitUntilNoneRuns();
        seen = left;
    });
    ASSERT_TRUE(waiting.Pass());
    door.Open();
    waiter.join();
    EXPECT_EQ(seen, kThreads);
}

// Threads whose body ended take the next bodies; every body runs, also when more come than
// threads wait, and while some are still busy.
TEST(ThreadGroup, IdleThreadsTakeLaterBodiesAndNoneIsLost) {
    static vx::ThreadGroup group;
    std::atomic<int> ran{0};
    for (int i = 0; i < 3; ++i) ASSERT_EQ(group.Start([&] { ++ran; }), 0);
    group.WaitUntilNoneRuns();
    vxtest::Gate door;
    constexpr int kBodies = 10;
    for (int i = 0; i < kBodies; ++i) {
        ASSERT_EQ(group.Start([&] {
            EXPECT_TRUE(door.Pass());
            ++ran;
        }),
                  0);
    }
    door.Open();
    group.WaitUntilNoneRuns();
    EXPECT_EQ(ran, 3 + kBodies);
}

}  // namespace
