#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/sync.h"

namespace {

bool SameSecond(const vx::LocalDateTime& a, const vx::LocalDateTime& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second;
}

// True when text is digits with sep at the given positions, nothing else.
bool HasShape(const char* text, size_t length, std::initializer_list<size_t> seps, char sep) {
    if (strlen(text) != length) return false;
    for (size_t i = 0; i < length; ++i) {
        bool isSep = false;
        for (size_t s : seps) isSep = isSep || s == i;
        if (isSep ? text[i] != sep : (text[i] < '0' || text[i] > '9')) return false;
    }
    return true;
}

int Number(const char* text, size_t pos, size_t len) {
    return std::stoi(std::string(text + pos, len));
}

// Formats while the clock stays within one second, so the text can be compared with a reading.
template <typename Format>
bool FormatWithinOneSecond(Format format, char* out, vx::LocalDateTime* reading) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        vx::LocalDateTime before{};
        vx::LocalDateTime after{};
        if (vx::GetLocalDateTime(&before) != 0 || format(out) != 0 ||
            vx::GetLocalDateTime(&after) != 0)
            return false;
        if (SameSecond(before, after)) {
            *reading = before;
            return true;
        }
    }
    return false;
}

TEST(LocalDateTime, FieldsInRange) {
    vx::LocalDateTime now{};
    ASSERT_EQ(vx::GetLocalDateTime(&now), 0);
    EXPECT_GE(now.year, 2020);
    EXPECT_TRUE(now.month >= 1 && now.month <= 12);
    EXPECT_TRUE(now.day >= 1 && now.day <= 31);
    EXPECT_TRUE(now.hour >= 0 && now.hour <= 23);
    EXPECT_TRUE(now.minute >= 0 && now.minute <= 59);
    EXPECT_TRUE(now.second >= 0 && now.second <= 59);
    EXPECT_TRUE(now.millisecond >= 0 && now.millisecond <= 999);
}

TEST(LocalDateTime, PicturesHaveTheirShapeAndAgreeWithTheClock) {
    char date[16];
    vx::LocalDateTime at{};
    ASSERT_TRUE(FormatWithinOneSecond(
        [&](char* out) { return vx::FormatLocalDate('.', out, sizeof date); }, date, &at));
    EXPECT_TRUE(HasShape(date, 10, {2, 5}, '.')) << date;
    EXPECT_EQ(Number(date, 0, 2), at.day);
    EXPECT_EQ(Number(date, 3, 2), at.month);
    EXPECT_EQ(Number(date, 6, 4), at.year);

    char time[16];
    ASSERT_TRUE(FormatWithinOneSecond(
        [&](char* out) { return vx::FormatLocalTime(':', out, sizeof time); }, time, &at));
    EXPECT_TRUE(HasShape(time, 8, {2, 5}, ':')) << time;
    EXPECT_EQ(Number(time, 0, 2), at.hour);  // 24-hour form: no AM/PM, hours up to 23
    EXPECT_EQ(Number(time, 3, 2), at.minute);
    EXPECT_EQ(Number(time, 6, 2), at.second);

    char stamp[32];
    ASSERT_TRUE(FormatWithinOneSecond(
        [&](char* out) { return vx::FormatFileStamp(out, sizeof stamp); }, stamp, &at));
    EXPECT_TRUE(HasShape(stamp, 19, {2, 5, 10, 13, 16}, '_')) << stamp;
    EXPECT_EQ(Number(stamp, 0, 2), at.day);
    EXPECT_EQ(Number(stamp, 6, 4), at.year);
    EXPECT_EQ(Number(stamp, 11, 2), at.hour);
    EXPECT_EQ(Number(stamp, 17, 2), at.second);
}

TEST(LocalDateTime, TooSmallBufferGivesEmptyTextNotACutOne) {
    char small[10];
    memset(small, 'x', sizeof small);
    EXPECT_EQ(vx::FormatLocalDate('.', small, sizeof small), -1);  // needs 11 with terminator
    EXPECT_STREQ(small, "");
    char exact[11];
    EXPECT_EQ(vx::FormatLocalDate('.', exact, sizeof exact), 0);
    EXPECT_EQ(strlen(exact), 10u);
    char stamp[19];
    EXPECT_EQ(vx::FormatFileStamp(stamp, sizeof stamp), -1);
    EXPECT_STREQ(stamp, "");
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
