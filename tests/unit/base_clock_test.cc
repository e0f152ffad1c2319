// The local clock's pictures and ticks. The file stamp's picture is checked against the C
// library's clock by the log switch (trace_log_test).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/sync.h"
#include "base/text.h"

namespace {

// Date and time read within one second must show that reading whole: field order, zero padding,
// the 24-hour form.
TEST(LocalDateTime, PicturesAgreeWithTheClock) {
    bool compared = false;
    for (int attempt = 0; attempt < 5 && !compared; ++attempt) {
        vx::LocalDateTime before{}, after{};
        char date[32], time[32], want[64];
        ASSERT_EQ(vx::GetLocalDateTime(&before), 0);
        ASSERT_EQ(vx::FormatLocalDate('.', date, sizeof date), 0);
        ASSERT_EQ(vx::FormatLocalTime(':', time, sizeof time), 0);
        ASSERT_EQ(vx::GetLocalDateTime(&after), 0);
        if (before.second != after.second || before.minute != after.minute) continue;
        vx::FormatText(want, sizeof want, "%02d.%02d.%04d %02d:%02d:%02d", before.day, before.month,
                       before.year, before.hour, before.minute, before.second);
        EXPECT_EQ(std::string(date) + " " + time, want);
        EXPECT_GE(before.year, 2020);
        EXPECT_TRUE(before.hour <= 23 && before.millisecond >= 0 && before.millisecond <= 999);
        compared = true;
    }
    EXPECT_TRUE(compared);
}

TEST(LocalDateTime, TooSmallBufferGivesEmptyTextNotACutOne) {
    char small[10];
    memset(small, 'x', sizeof small);
    EXPECT_EQ(vx::FormatLocalDate('.', small, sizeof small), -1);  // needs 11 with terminator
    EXPECT_STREQ(small, "");
    char exact[11];
    EXPECT_EQ(vx::FormatLocalDate('.', exact, sizeof exact), 0);
    EXPECT_EQ(strlen(exact), 10u);
}

TEST(Ticks, NeverGoBackwards) {
    const uint64_t firstTick = vx::TickCountMs(), firstCount = vx::HighResCounter();
    uint64_t lastTick = firstTick, lastCount = firstCount;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_GE(vx::TickCountMs(), lastTick);
        ASSERT_GE(vx::HighResCounter(), lastCount);
        lastTick = vx::TickCountMs();
        lastCount = vx::HighResCounter();
    }
    vx::SleepMs(30);
    EXPECT_GT(vx::TickCountMs(), firstTick);
    EXPECT_GT(vx::HighResCounter(), firstCount);
    EXPECT_GE(vx::HighResFrequency(), 1000u);
}

}  // namespace
