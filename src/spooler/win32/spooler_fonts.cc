// The fonts of a Windows printer: the face names GDI enumerates on a device context of the
// printer, as its driver reports them.
#include <windows.h>

#include "spooler/spooler.h"

namespace vx {

namespace {

// A device context of a printer; deleted on destruction.
class PrinterDc {
  public:
    explicit PrinterDc(const char* printer)
        : dc_(CreateDCA("WINSPOOL", printer, nullptr, nullptr)) {}
    ~PrinterDc() {
        if (dc_ != nullptr) DeleteDC(dc_);
    }
    PrinterDc(const PrinterDc&) = delete;
    PrinterDc& operator=(const PrinterDc&) = delete;

    HDC Get() const { return dc_; }

  private:
    HDC dc_;
};

struct FaceListing {
    SpoolerFontVisitor visit;
    void* context;
    int visited;
};

int CALLBACK VisitFace(const LOGFONTA* font, const TEXTMETRICA*, DWORD, LPARAM param) {
    auto* listing = reinterpret_cast<FaceListing*>(param);
    const char* face = font->lfFaceName;
    // "@" faces are the vertical forms of the face of the same name, listed beside it.
    if (face[0] == '\0' || face[0] == '@') return 1;
    ++listing->visited;
    if (listing->visit == nullptr) return 1;
    return listing->visit(listing->context, face) == 0 ? 1 : 0;
}

}  // namespace

int SpoolerEnumPrinterFonts(const char* printer, SpoolerFontVisitor visit, void* context) {
    if (printer == nullptr || printer[0] == '\0') return kSpoolerFailed;
    PrinterDc dc(printer);
    if (dc.Get() == nullptr) return kSpoolerFailed;
    // No face name and the default character set: every face, once per character set.
    LOGFONTA wanted = {};
    wanted.lfCharSet = DEFAULT_CHARSET;
    FaceListing listing{visit, context, 0};
    EnumFontFamiliesExA(dc.Get(), &wanted, VisitFace, reinterpret_cast<LPARAM>(&listing), 0);
    return listing.visited;
}

}  // namespace vx
