// The fonts installed on the host and their metrics, in units of 1/1000 em: what a font metrics
// file (AFM) states. Windows has a font service (GDI) that gives the metrics; on Linux the host's
// fonts are files, found here and read by whoever needs their metrics.
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

// GetSystemFontMetrics's answer where the host has no font service (Linux): the font is a file,
// see FindInstalledFontFile.
constexpr int kNoFontService = -2;

// Asks the system's font service for the installed font by name in the bold and italic variant
// asked for, and fills its metrics. 0, -1 with error saying why, or kNoFontService.
int GetSystemFontMetrics(const char* fontName, bool bold, bool italic, FontMetrics* out,
                         char* error, size_t errorSize);

// The file of the installed font that best answers a name (family, full or PostScript name, or
// the file name without extension) in the bold and italic variant asked for. 0 and its path, or
// -1 with error saying why (always on Windows, whose fonts are asked for by name).
int FindInstalledFontFile(const char* fontName, bool bold, bool italic, char* path, size_t cap,
                          char* error, size_t errorSize);

}  // namespace vx
