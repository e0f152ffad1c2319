// Time: millisecond ticks, the high-resolution counter and the local date and time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// Milliseconds since an arbitrary start; never goes backwards.
uint64_t TickCountMs();
// The same in microseconds.
uint64_t TickCountUs();

// High-resolution counter and its frequency in counts per second.
uint64_t HighResCounter();
uint64_t HighResFrequency();

struct LocalDateTime {
    int year;
    int month;  // 1..12
    int day;    // 1..31
    int hour;   // 0..23
    int minute;
    int second;
    int millisecond;
};

// Returns 0 and the local date and time, or -1 (the fields are then zero).
int GetLocalDateTime(LocalDateTime* out);

// The pictures of the trace log: date "dd<sep>MM<sep>yyyy", time "hh<sep>mm<sep>ss" in
// 24-hour form. On failure the buffer is left empty and -1 returned.
int FormatLocalDate(char sep, char* out, size_t cap);
int FormatLocalTime(char sep, char* out, size_t cap);

// "dd_MM_yyyy_hh_mm_ss": the stamp appended to files that are moved aside.
int FormatFileStamp(char* out, size_t cap);

}  // namespace vx
