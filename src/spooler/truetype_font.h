// Reading TrueType / OpenType font files (the sfnt container): the names of the 'name' table,
// and the metrics from 'head', 'hhea', 'hmtx', 'cmap' (format 4) and, when present, 'OS/2' and
// 'post'. Neutral code over stdio, so that fonts are read the same way wherever there is no
// system font service to ask.
#pragma once

#include <cstddef>
#include <cstdio>

#include "spooler/font_metrics.h"

namespace vx {

struct TrueTypeNames {
    char family[128];      // name id 1
    char subfamily[64];    // name id 2 ("Regular", "Bold Italic", ...)
    char fullName[128];    // name id 4
    char postScript[128];  // name id 6
};

// 0 and the font's names, or -1 when the file is no sfnt font or has no names.
int ReadTrueTypeNames(FILE* file, TrueTypeNames* out);

// 0 and the font's metrics scaled to 1/1000 em, or -1 with error saying why.
int ReadTrueTypeMetrics(FILE* file, FontMetrics* out, char* error, size_t errorSize);

}  // namespace vx
