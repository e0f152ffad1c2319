#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/api_trace.h"
#include "base/sync.h"
#include "base/text.h"
#include "test_support.h"

namespace {

// Waits (polling, with a generous bound) until count reaches want; never asserts a duration.
bool AwaitCount(const std::atomic<int>& count, int want) {
    for (int i = 0; i < 1000 && count.load() < want; ++i) vx::SleepMs(10);
    return count.load() >= want;
}

TEST(AutoResetEvent, OneSetReleasesOneWaitAndClears) {
    vx::AutoEvent event(nullptr);
    ASSERT_TRUE(event.Valid());
    EXPECT_EQ(event.Wait(0), vx::kWaitTimeout);
    EXPECT_EQ(event.Set(), 0);
    EXPECT_EQ(event.Set(), 0);  // setting a set event does not count twice
    EXPECT_EQ(event.Wait(0), vx::kWaitSignaled);
    EXPECT_EQ(event.Wait(50), vx::kWaitTimeout);
    EXPECT_EQ(vx::EvWait(nullptr, 0), vx::kWaitFailed);
    EXPECT_EQ(vx::EvSet(nullptr), -1);
}

TEST(AutoResetEvent, EachSetWakesExactlyOneOfTwoWaiters) {
    vx::AutoEvent event(nullptr);
    ASSERT_TRUE(event.Valid());
    std::atomic<int> woken{0}, failed{0};
    auto waiter = [&] { ++(event.Wait(vx::kWaitInfinite) == vx::kWaitSignaled ? woken : failed); };
    std::thread first(waiter), second(waiter);
    vx::SleepMs(50);  // let both block; a set before they wait is kept and changes nothing
    EXPECT_EQ(event.Set(), 0);
    ASSERT_TRUE(AwaitCount(woken, 1));
    vx::SleepMs(100);
    EXPECT_EQ(woken.load(), 1) << "one set must not release both waiters";
    EXPECT_EQ(event.Set(), 0);
    ASSERT_TRUE(AwaitCount(woken, 2));
    first.join();
    second.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_EQ(event.Wait(0), vx::kWaitTimeout);
}

TEST(AutoResetEvent, NamedEventsAreSharedByName) {
    std::string name = vxtest::UniqueName("vxev_"), other = vxtest::UniqueName("vxev_");
    {
        vx::AutoEvent a(name.c_str());
        vx::AutoEvent b(name.c_str());
        vx::AutoEvent c(other.c_str());
        ASSERT_TRUE(a.Valid() && b.Valid() && c.Valid());
        EXPECT_EQ(a.Set(), 0);
        EXPECT_EQ(c.Wait(0), vx::kWaitTimeout);
        EXPECT_EQ(b.Wait(0), vx::kWaitSignaled);
        EXPECT_EQ(a.Wait(0), vx::kWaitTimeout);
        a.Reset();  // closing one handle keeps the event alive for the other
        EXPECT_EQ(b.Set(), 0);
        vx::AutoEvent again(name.c_str());
        EXPECT_EQ(again.Wait(0), vx::kWaitSignaled);
        b.Set();
    }
    // All handles closed: the name gives a fresh, clear event.
    vx::AutoEvent fresh(name.c_str());
    ASSERT_TRUE(fresh.Valid());
    EXPECT_EQ(fresh.Wait(0), vx::kWaitTimeout);
}

void CollectLine(void* context, const char* line) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
}

TEST(AutoResetEvent, EveryCallIsEchoedToTheApiTraceWhileASinkIsSet) {
    std::vector<std::string> lines;
    vx::SetApiTraceSink(CollectLine, &lines);
    vx::EventHandle event = vx::EvCreate(nullptr);
    vx::EvSet(event);
    vx::EvWait(event, 0);
    vx::EvClose(event);
    vx::SetApiTraceSink(nullptr, nullptr);
    vx::EvClose(vx::EvCreate(nullptr));
    std::vector<std::string> expected;
    for (const char* fmt : {"CreateEvent(..,NULL) = %p\n", "SetEvent(%p)\n",
                            "WaitForSingleObject(%p)\n", "CloseHandle(%p)\n"}) {
        char line[128];
        vx::FormatText(line, sizeof line, fmt, event);
        expected.push_back(line);
    }
    EXPECT_EQ(lines, expected);
}

TEST(Threads, IdsDifferBetweenThreads) {
    uint32_t mine = vx::CurrentThreadId(), theirs = 0;
    std::thread([&] { theirs = vx::CurrentThreadId(); }).join();
    EXPECT_TRUE(mine != 0 && theirs != 0 && mine != theirs);
    EXPECT_EQ(mine, vx::CurrentThreadId());
}

}  // namespace
