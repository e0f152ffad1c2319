// WriteFontMetricFile: the metrics of an installed font, written as an AFM file
// "<font>[-Bold][-Italic].afm" into a directory. mode 1 covers the ASCII codes 32..126, mode 2
// all Windows-1252 codes 32..255; flag A asks for the bold, flag B for the italic variant.
#include <cstdio>
#include <memory>

#include "base/fileops.h"
#include "base/text.h"
#include "printlib/afm_file.h"
#include "printlib/file_printer.h"
#include "printlib/truetype_metrics.h"
#include "printlib/zelwin.h"
#include "spooler/font_metrics.h"

namespace {

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};

// The metrics of an installed font: from the system's font service where there is one, else
// read from the font's file.
int InstalledFontMetrics(const char* fontName, bool bold, bool italic, vx::FontMetrics* out,
                         char* error, size_t errorSize) {
    int rc = vx::GetSystemFontMetrics(fontName, bold, italic, out, error, errorSize);
    if (rc != vx::kNoFontService) return rc;
    char path[vx::kMaxPath];
    if (vx::FindInstalledFontFile(fontName, bold, italic, path, sizeof path, error, errorSize) != 0)
        return -1;
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (file == nullptr) {
        vx::FormatText(error, errorSize, "font file %s cannot be opened", path);
        return -1;
    }
    char reason[256];
    if (vx::ReadTrueTypeMetrics(file.get(), out, reason, sizeof reason) != 0) {
        vx::FormatText(error, errorSize, "font file %s: %s", path, reason);
        return -1;
    }
    vx::CopyText(out->source, sizeof out->source, path);
    return 0;
}

}  // namespace

extern "C" {

ZELWIN_API int WriteFontMetricFile(const char* fontName, const char* directory, int mode, int flagA,
                                   int flagB, int, void*) {
    if (fontName == nullptr || fontName[0] == '\0' || directory == nullptr ||
        (mode != 1 && mode != 2)) {
        return ZEL_RC_BAD_ARGUMENT;
    }
    auto metrics = std::make_unique<vx::FontMetrics>();
    char error[512];
    if (InstalledFontMetrics(fontName, flagA != 0, flagB != 0, metrics.get(), error,
                             sizeof error) != 0) {
        return ZEL_RC_FAILED;
    }
    char stem[160];
    zel::SafeFileName(fontName, stem, sizeof stem);
    char path[vx::kMaxPath * 2];
    vx::CopyText(path, directory);
    vx::AppendSeparator(path, sizeof path);
    vx::AppendFormat(path, sizeof path, "%s%s%s.afm", stem, flagA != 0 ? "-Bold" : "",
                     flagB != 0 ? "-Italic" : "");
    std::unique_ptr<FILE, FileCloser> out(fopen(path, "wb"));
    if (out == nullptr) return ZEL_RC_FAILED;
    int rc = zel::WriteAfm(out.get(), *metrics, 32, mode == 1 ? 126 : 255);
    if (fclose(out.release()) != 0) rc = -1;
    return rc == 0 ? ZEL_RC_OK : ZEL_RC_FAILED;
}
}
