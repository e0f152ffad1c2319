#include "tools/progress_bar.h"

#include "base/text.h"

namespace vx {

namespace {

constexpr int kBarWidth = 30;

int Percent(int64_t done, int64_t total) {
    if (total <= 0) return 100;
    if (done >= total) return 100;
    return static_cast<int>(done * 100 / total);
}

}  // namespace

void FormatProgress(const char* name, int64_t done, int64_t total, char* out, size_t cap) {
    int percent = Percent(done, total);
    char bar[kBarWidth + 1];
    int filled = percent * kBarWidth / 100;
    for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '-';
    bar[kBarWidth] = '\0';
    FormatText(out, cap, "%.40s [%s] %3d%%  %.1f/%.1f MB", name, bar, percent,
               static_cast<double>(done) / 1048576.0, static_cast<double>(total) / 1048576.0);
}

void StartProgress(ProgressBar* bar, FILE* out, bool shown, const char* name, int64_t total) {
    *bar = ProgressBar{};
    if (!shown || total < kProgressMinBytes) return;
    bar->out = out;
    bar->name = name;
    bar->total = total;
    AdvanceProgress(bar, 0);
}

void AdvanceProgress(ProgressBar* bar, size_t bytes) {
    if (bar->out == nullptr) return;
    bar->done += static_cast<int64_t>(bytes);
    int percent = Percent(bar->done, bar->total);
    if (percent == bar->shownPercent) return;
    bar->shownPercent = percent;
    char line[160];
    FormatProgress(bar->name, bar->done, bar->total, line, sizeof line);
    fprintf(bar->out, "\r%s", line);
    fflush(bar->out);
}

void FinishProgress(ProgressBar* bar) {
    if (bar->out == nullptr) return;
    fputc('\n', bar->out);
    fflush(bar->out);
    bar->out = nullptr;
}

}  // namespace vx
