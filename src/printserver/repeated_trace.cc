#include "printserver/repeated_trace.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "printserver/zelprsrv.h"

namespace vx {

RepeatedTrace::Kind* RepeatedTrace::KindOf(const char* fmt, int level) {
    for (int i = 0; i < used_; ++i)
        if (kinds_[i].format == fmt) return &kinds_[i];
    if (used_ == kKinds) return nullptr;
    Kind* kind = &kinds_[used_++];
    *kind = Kind{fmt, level, 0, {}};
    return kind;
}

void RepeatedTrace::Trace(int level, const char* fmt, ...) {
    Czelprsrv* p = g_prsrv;
    if (p == nullptr || !p->TraceOn(level)) return;
    // More kinds than the table holds are traced as they come: the kinds are call sites, few.
    Kind* kind = KindOf(fmt, level);
    if (kind != nullptr) {
        if (kind->seen < INT32_MAX) ++kind->seen;
        if (kind->seen > kTracedPerKind) return;
    }
    char line[kTraceLineSize];
    va_list args;
    va_start(args, fmt);
    FormatTextV(line, sizeof line, fmt, args);
    va_end(args);
    if (kind != nullptr && kind->seen == 1) {
        CopyText(kind->first, line);
        TrimLineEnd(kind->first);
    }
    if (level == kTraceError)
        p->TraceError("%s", line);
    else
        p->Trace(level, "%s", line);
}

void RepeatedTrace::TraceLeftOut() {
    Czelprsrv* p = g_prsrv;
    for (int i = 0; i < used_; ++i) {
        Kind& kind = kinds_[i];
        int32_t leftOut = kind.seen - kTracedPerKind;
        // An error's count is no error of its own: it is shown as the errors were.
        int level = kind.level == kTraceError ? kTraceNormal : kind.level;
        if (leftOut > 0 && p != nullptr)
            p->Trace(level, "%s ... (%d more lines of this kind not traced)\n", kind.first,
                     static_cast<int>(leftOut));
    }
    used_ = 0;
}

int32_t RepeatedTrace::LeftOut(const char* fmt) const {
    for (int i = 0; i < used_; ++i)
        if (kinds_[i].format == fmt)
            return kinds_[i].seen > kTracedPerKind ? kinds_[i].seen - kTracedPerKind : 0;
    return 0;
}

}  // namespace vx
