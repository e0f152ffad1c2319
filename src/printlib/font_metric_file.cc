// WriteFontMetricFile: the metrics of an installed font, written as an AFM file
// "<font>[-Bold][-Italic].afm" into a directory. mode 1 covers the ASCII codes 32..126, mode 2
// all Windows-1252 codes 32..255; flag A asks for the bold, flag B for the italic variant.
#include <cstdio>
#include <memory>

#include "base/fileops.h"
#include "base/text.h"
#include "printlib/afm_file.h"
#include "printlib/file_printer.h"
#include "printlib/zelwin.h"
#include "spooler/font_metrics.h"

namespace {

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};

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
    if (vx::GetInstalledFontMetrics(fontName, flagA != 0, flagB != 0, metrics.get(), error,
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
