#include "printlib/afm_file.h"

#include <cstdlib>

namespace zel {

namespace {

// AFM's FontName is one token: the PostScript name, else the full name without blanks.
void WriteFontName(FILE* out, const vx::FontMetrics& metrics) {
    const char* name =
        metrics.postScriptName[0] != '\0' ? metrics.postScriptName : metrics.fullName;
    fputs("FontName ", out);
    for (const char* p = name; *p != '\0'; ++p) {
        if (*p != ' ') fputc(*p, out);
    }
    fputc('\n', out);
}

}  // namespace

int WriteAfm(FILE* out, const vx::FontMetrics& metrics, int firstCode, int lastCode) {
    if (firstCode < 0) firstCode = 0;
    if (lastCode >= vx::kMetricCodeCount) lastCode = vx::kMetricCodeCount - 1;
    int count = 0;
    for (int code = firstCode; code <= lastCode; ++code) {
        if (metrics.widths[code] >= 0) ++count;
    }
    int angle = metrics.italicAngleTenths;
    fputs("StartFontMetrics 4.1\n", out);
    fprintf(out, "Comment Metrics of %s\n", metrics.source);
    WriteFontName(out, metrics);
    fprintf(out, "FullName %s\n", metrics.fullName);
    fprintf(out, "FamilyName %s\n", metrics.familyName);
    fprintf(out, "Weight %s\n", metrics.weight);
    fprintf(out, "ItalicAngle %s%d.%d\n", angle < 0 ? "-" : "", abs(angle) / 10, abs(angle) % 10);
    fprintf(out, "IsFixedPitch %s\n", metrics.fixedPitch ? "true" : "false");
    fprintf(out, "FontBBox %d %d %d %d\n", metrics.bbox[0], metrics.bbox[1], metrics.bbox[2],
            metrics.bbox[3]);
    fprintf(out, "UnderlinePosition %d\n", metrics.underlinePosition);
    fprintf(out, "UnderlineThickness %d\n", metrics.underlineThickness);
    fputs("EncodingScheme WinAnsiEncoding\n", out);
    if (metrics.capHeight != 0) fprintf(out, "CapHeight %d\n", metrics.capHeight);
    if (metrics.xHeight != 0) fprintf(out, "XHeight %d\n", metrics.xHeight);
    fprintf(out, "Ascender %d\n", metrics.ascender);
    fprintf(out, "Descender %d\n", metrics.descender);
    fprintf(out, "StartCharMetrics %d\n", count);
    for (int code = firstCode; code <= lastCode; ++code) {
        if (metrics.widths[code] >= 0) fprintf(out, "C %d ; WX %d ;\n", code, metrics.widths[code]);
    }
    fputs("EndCharMetrics\n", out);
    fputs("EndFontMetrics\n", out);
    return ferror(out) ? -1 : 0;
}

}  // namespace zel
