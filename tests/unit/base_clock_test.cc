// The local clock's pictures and ticks. The file stamp's picture is checked against the C
// library's clock by the log switch (trace_log_test).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/sync.h"
#include "base/text.h"

namespace {

using Formatter = int (*)(char* out, size_t cap);
using Picture = void (*)(const vx::LocalDateTime& at, char* out, size_t cap);

// Formats while the clock stays within one second and gives what the picture must show for
// that reading, so the text can be compared whole (shape, zero padding, 24-hour form).
bool FormatAgainstClock(Formatter format, Picture picture, std::string* text,
                        std::string* expected) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        vx::LocalDateTime before{};
        vx::LocalDateTime after{};
        char out[32];
        if (vx::GetLocalDateTime(&before) != 0 || format(out, sizeof out) != 0 ||
            vx::GetLocalDateTime(&after) != 0)
            return false;
        if (before.second != after.second || before.minute != after.minute) continue;
        char want[32];
        picture(before, want, sizeof want);
        *text = out;
        *expected = want;
        return true;
    }
    return false;
}

TEST(LocalDateTime, PicturesAgreeWithTheClock) {
    const struct {
        Formatter format;
        Picture picture;
    } pictures[] = {{[](char* out, size_t cap) { return vx::FormatLocalDate('.', out, cap); },
                     [](const vx::LocalDateTime& at, char* out, size_t cap) {
                         vx::FormatText(out, cap, "%02d.%02d.%04d", at.day, at.month, at.year);
                     }},
                    {[](char* out, size_t cap) { return vx::FormatLocalTime(':', out, cap); },
                     [](const vx::LocalDateTime& at, char* out, size_t cap) {
                         vx::FormatText(out, cap, "%02d:%02d:%02d", at.hour, at.minute, at.second);
                     }}};
    std::string text;
    std::string expected;
    for (const auto& p : pictures) {
        ASSERT_TRUE(FormatAgainstClock(p.format, p.picture, &text, &expected));
        EXPECT_EQ(text, expected);
    }

    vx::LocalDateTime now{};
    ASSERT_EQ(vx::GetLocalDateTime(&now), 0);
    EXPECT_GE(now.year, 2020);
    EXPECT_TRUE(now.hour >= 0 && now.hour <= 23 && now.millisecond >= 0 && now.millisecond <= 999);
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
    uint64_t firstTick = vx::TickCountMs();
    uint64_t firstCount = vx::HighResCounter();
    uint64_t lastTick = firstTick;
    uint64_t lastCount = firstCount;
    for (int i = 0; i < 1000; ++i) {
        uint64_t tick = vx::TickCountMs();
        uint64_t count = vx::HighResCounter();
        ASSERT_GE(tick, lastTick);
        ASSERT_GE(count, lastCount);
        lastTick = tick;
        lastCount = count;
    }
    vx::SleepMs(30);
    EXPECT_GT(vx::TickCountMs(), firstTick);
    EXPECT_GT(vx::HighResCounter(), firstCount);
    EXPECT_GE(vx::HighResFrequency(), 1000u);
}

}  // namespace
