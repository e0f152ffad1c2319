// The copy count of a received job is capped by the setting "MaxCopies" (0 or less: no cap): a
// sender cannot turn a small job into a large one at the printer by asking for copies.
#pragma once

#include <cstdint>

namespace vx {

// The copies a job prints when it asks for asked and at most max are allowed (max 0 or less:
// no cap).
constexpr int32_t CappedCopies(int32_t asked, int32_t max) {
    return max > 0 && asked > max ? max : asked;
}

// The copy count a received job prints under "MaxCopies", with a trace line when it was cut.
int32_t LimitCopyCount(int32_t asked, const char* jobId);

}  // namespace vx
