// The fonts of a CUPS printer: the "*Font" lines of the PPD the CUPS server keeps for it, else
// the families of the host's font files.
#include <cups/cups.h>

#include <memory>
#include <string>

#include "base/fileops.h"
#include "base/text.h"
#include "spooler/font_files.h"
#include "spooler/posix/cups_printer.h"
#include "spooler/posix/font_directories.h"
#include "spooler/ppd_fonts.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

// The font list is asked for from the command line: a server that does not answer must not hold
// the run up for long.
constexpr int kConnectTimeoutMs = 5000;
constexpr double kReadTimeoutSeconds = 10.0;

// The printer's PPD as the CUPS server hands it out, in an unnamed temporary file read from its
// start; null when the printer has none (raw queues) or the server cannot be reached.
StreamPtr FetchPpd(const char* printer) {
    char resource[kSpoolerTextSize];
    if (FormatText(resource, sizeof resource, "/printers/%s.ppd", printer) + 1 >= sizeof resource)
        return nullptr;
    HttpPtr http = ConnectToCups(kConnectTimeoutMs);
    if (http == nullptr) return nullptr;
    // Without a time-out callback a read that waits longer than this gives up.
    httpSetTimeout(http.get(), kReadTimeoutSeconds, nullptr, nullptr);
    StreamPtr ppd(tmpfile());
    if (ppd == nullptr) return nullptr;
    if (cupsGetFd(http.get(), resource, fileno(ppd.get())) != HTTP_STATUS_OK) return nullptr;
    rewind(ppd.get());
    return ppd;
}

// Passes names on until the caller's visitor asks to stop, over several directories.
struct HostListing {
    SpoolerFontVisitor visit;
    void* context;
    bool stopped;
};

int VisitHostFont(void* context, const char* name) {
    auto* listing = static_cast<HostListing*>(context);
    if (listing->visit != nullptr && listing->visit(listing->context, name) != 0)
        listing->stopped = true;
    return listing->stopped ? 1 : 0;
}

int EnumHostFonts(SpoolerFontVisitor visit, void* context) {
    HostListing listing{visit, context, false};
    int visited = 0;
    for (const std::string& root : HostFontDirectories()) {
        visited += ListFontFamilies(root.c_str(), VisitHostFont, &listing);
        if (listing.stopped) break;
    }
    return visited;
}

}  // namespace

int SpoolerEnumPrinterFonts(const char* printer, SpoolerFontVisitor visit, void* context) {
    if (printer == nullptr || printer[0] == '\0') return kSpoolerFailed;
    if (!IsFilePrinter(printer)) {
        StreamPtr ppd = FetchPpd(printer);
        // A PPD that names no fonts leaves the rendering, and so the fonts, to the host.
        if (ppd != nullptr && ReadPpdFontNames(ppd.get(), nullptr, nullptr) > 0) {
            rewind(ppd.get());
            return ReadPpdFontNames(ppd.get(), visit, context);
        }
    }
    return EnumHostFonts(visit, context);
}

}  // namespace vx
