// The metrics of a font installed on the host, in units of 1/1000 em: what a font metrics file
// (AFM) states. Windows asks GDI; Linux reads the font's TrueType file itself.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

constexpr int kMetricCodeCount = 256;  // character codes of the Windows-1252 code page

struct FontMetrics {
    char familyName[128];
    char fullName[128];
    char postScriptName[128];  // may be empty (GDI does not always give one)
    char weight[32];           // "Regular", "Bold", ...
    char source[260];          // the font file, or the GDI face
    int italicAngleTenths;  // degrees * 10, counter-clockwise from vertical (negative leans right)
    bool fixedPitch;
    int ascender;
    int descender;  // negative below the baseline
    int capHeight;  // 0 when unknown
    int xHeight;    // 0 when unknown
    int underlinePosition;
    int underlineThickness;
    int bbox[4];  // xMin, yMin, xMax, yMax
    // Advance width of each Windows-1252 code; -1 where the font has no character.
    int widths[kMetricCodeCount];
};

// Finds the installed font by name (family, full or PostScript name; Linux also the file name
// without extension), in the bold and italic variant asked for, and fills its metrics.
// 0, or -1 with error saying why.
int GetInstalledFontMetrics(const char* fontName, bool bold, bool italic, FontMetrics* out,
                            char* error, size_t errorSize);

}  // namespace vx
