// The metrics of a TrueType / OpenType font file, for fonts the host keeps as files (Linux).
#pragma once

#include <cstddef>
#include <cstdio>

#include "spooler/font_metrics.h"

namespace vx {

// 0 and the font's metrics scaled to 1/1000 em, or -1 with error saying why.
int ReadTrueTypeMetrics(FILE* file, FontMetrics* out, char* error, size_t errorSize);

}  // namespace vx
