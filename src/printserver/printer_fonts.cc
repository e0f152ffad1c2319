// The font list of the default printer, shown by "-e" after the environment report.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "printserver/zelprsrv.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

struct FontName {
    char text[kSpoolerFontNameSize];
};

int CollectFont(void* context, const char* name) {
    if (name == nullptr || name[0] == '\0') return 0;
    FontName entry;
    CopyText(entry.text, name);
    static_cast<std::vector<FontName>*>(context)->push_back(entry);
    return 0;
}

char FoldCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Alphabetical without regard to case, then by byte: equal names end up side by side.
bool ComesBefore(const FontName& a, const FontName& b) {
    const char* x = a.text;
    const char* y = b.text;
    for (; *x != '\0' && FoldCase(*x) == FoldCase(*y); ++x, ++y) {
    }
    if (FoldCase(*x) != FoldCase(*y))
        return static_cast<unsigned char>(FoldCase(*x)) < static_cast<unsigned char>(FoldCase(*y));
    return strcmp(a.text, b.text) < 0;
}

bool SameName(const FontName& a, const FontName& b) {
    return strcmp(a.text, b.text) == 0;
}

}  // namespace

void Czelprsrv::ReportDefaultPrinterFonts() {
    // Every line goes to standard output and, at level 1, into the main log.
    auto report = [this](const char* fmt, const char* text) {
        ReportLine(0, kTraceNormal, fmt, text);
        ReportLine(1, kTraceNormal, fmt, text);
    };
    char printer[kSpoolerNameSize];
    if (SpoolerGetDefaultPrinter(printer, sizeof printer) != kSpoolerOk || printer[0] == '\0') {
        report("%s", "No default printer: no font list.\n");
        fflush(stdout);
        return;
    }
    std::vector<FontName> fonts;
    if (SpoolerEnumPrinterFonts(printer, CollectFont, &fonts) < 0) {
        printf("Fonts of the default printer %s cannot be read.\n", printer);
        fflush(stdout);
        TraceError("Fonts of the default printer %s cannot be read.\n", printer);
        return;
    }
    std::sort(fonts.begin(), fonts.end(), ComesBefore);
    fonts.erase(std::unique(fonts.begin(), fonts.end(), SameName), fonts.end());

    LockHold hold(traceLock_);
    if (fonts.empty()) {
        report("Fonts of the default printer %s: none\n", printer);
    } else {
        report("Fonts of the default printer %s:\n", printer);
        for (const FontName& font : fonts) report("  %s\n", font.text);
    }
    fflush(stdout);
}

}  // namespace vx
