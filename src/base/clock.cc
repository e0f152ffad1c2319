// The date and time pictures of the trace log and of files moved aside, built on the local
// date and time so that both targets write the same texts.
#include "base/clock.h"

#include "base/text.h"

namespace vx {

namespace {

enum class Picture { kDate, kTime, kFileStamp };

// Reads the clock once and formats the picture. The text goes into out only when it fits
// whole: a cut date or time would mislead; otherwise out is left empty.
int FormatPicture(Picture picture, char sep, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    out[0] = '\0';
    LocalDateTime now{};
    if (GetLocalDateTime(&now) != 0) return -1;
    char text[64];
    size_t len = 0;
    switch (picture) {
        case Picture::kDate:
            len = FormatText(text, sizeof text, "%02d%c%02d%c%04d", now.day, sep, now.month, sep,
                             now.year);
            break;
        case Picture::kTime:
            len = FormatText(text, sizeof text, "%02d%c%02d%c%02d", now.hour, sep, now.minute, sep,
                             now.second);
            break;
        case Picture::kFileStamp:
            len = FormatText(text, sizeof text, "%02d_%02d_%04d_%02d_%02d_%02d", now.day, now.month,
                             now.year, now.hour, now.minute, now.second);
            break;
    }
    if (len + 1 > cap) return -1;
    CopyText(out, cap, text);
    return 0;
}

}  // namespace

int FormatLocalDate(char sep, char* out, size_t cap) {
    return FormatPicture(Picture::kDate, sep, out, cap);
}

int FormatLocalTime(char sep, char* out, size_t cap) {
    return FormatPicture(Picture::kTime, sep, out, cap);
}

int FormatFileStamp(char* out, size_t cap) {
    return FormatPicture(Picture::kFileStamp, '_', out, cap);
}

}  // namespace vx
