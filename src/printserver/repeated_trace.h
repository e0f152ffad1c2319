// Lines of one kind from one source (a control file, a receive-job dialogue) are traced a few
// times only; the others are counted, and one line at the end of the source says how many were
// left out. A sender cannot turn a control file of a million unknown lines into a million lines
// of trace. A line's kind is its format text.
#pragma once

#include <cstdint>

#include "base/text.h"

namespace vx {

class RepeatedTrace {
  public:
    // Lines of a kind traced before the counting starts.
    static constexpr int32_t kTracedPerKind = 3;

    RepeatedTrace() = default;
    RepeatedTrace(const RepeatedTrace&) = delete;
    RepeatedTrace& operator=(const RepeatedTrace&) = delete;
    // Writes the counts that are still open.
    ~RepeatedTrace() { TraceLeftOut(); }

    // Trace (level kTraceError: TraceError) for the first lines of the kind; counts the rest.
    void Trace(int level, const char* fmt, ...) VX_PRINTF(3, 4);
    // One line for every kind with lines left out, naming the first line of the kind and the
    // count; the counts start again from zero.
    void TraceLeftOut();
    // Lines of the kind of fmt left out so far.
    int32_t LeftOut(const char* fmt) const;

  private:
    static constexpr int kKinds = 8;
    static constexpr size_t kShownLength = 96;
    struct Kind {
        const char* format;
        int level;
        int32_t seen;
        char first[kShownLength];  // the first line of the kind, without its line feed
    };
    Kind* KindOf(const char* fmt, int level);

    Kind kinds_[kKinds] = {};
    int used_ = 0;
};

}  // namespace vx
