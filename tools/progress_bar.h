// A progress display on standard error for long transfers: one line redrawn in place, only on a
// terminal and only for jobs over a few MB, so that logs and pipes never see it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vx {

// Jobs smaller than this finish too fast for a display to help.
constexpr int64_t kProgressMinBytes = 4 * 1024 * 1024;

// The line for done of total bytes, e.g. "report.pdf [#####-----]  50%  12.0/24.0 MB",
// without line end. Cut at cap.
void FormatProgress(const char* name, int64_t done, int64_t total, char* out, size_t cap);

struct ProgressBar {
    FILE* out = nullptr;  // null: no display
    const char* name = "";
    int64_t total = 0;
    int64_t done = 0;
    int shownPercent = -1;
};

// Starts a display for total bytes when shown is set, the total is known and large enough.
void StartProgress(ProgressBar* bar, FILE* out, bool shown, const char* name, int64_t total);
// Counts bytes sent; redraws when the percentage changed.
void AdvanceProgress(ProgressBar* bar, size_t bytes);
// Ends the line (the display stays as last drawn).
void FinishProgress(ProgressBar* bar);

}  // namespace vx
