// The version text of the banner: product version, ".", file version.
#pragma once

#include <cstddef>

namespace vx {

// From the executable's version resource where it has one (Windows); from the same texts compiled
// in otherwise.
void GetVorlixVersionText(char* out, size_t cap);

}  // namespace vx
