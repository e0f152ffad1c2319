// Font metrics written as an AFM file (Adobe Font Metrics 4.1, plain text): the font's global
// values and the advance width of every character code it has, in 1/1000 em, for the
// Windows-1252 codes (PDF's WinAnsiEncoding).
#pragma once

#include <cstdio>

#include "spooler/font_metrics.h"

namespace zel {

// Writes codes firstCode..lastCode that the font has. 0, or -1 when writing failed.
int WriteAfm(FILE* out, const vx::FontMetrics& metrics, int firstCode, int lastCode);

}  // namespace zel
