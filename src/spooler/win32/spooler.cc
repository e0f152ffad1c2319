// Printers of the Windows spooler: enumeration, the default printer, one printer's information.
#include "spooler/spooler.h"

#include "base/text.h"
#include "spooler/win32/spooler_win32.h"

namespace vx {

namespace {

void CopyField(char* out, size_t cap, const char* text) {
    CopyText(out, cap, text != nullptr ? text : "");
}

void FillPrinterInfo(const PRINTER_INFO_2A& source, SpoolerPrinterInfo* out) {
    *out = SpoolerPrinterInfo{};
    CopyField(out->name, sizeof out->name, source.pPrinterName);
    CopyField(out->port, sizeof out->port, source.pPortName);
    CopyField(out->driver, sizeof out->driver, source.pDriverName);
    CopyField(out->location, sizeof out->location, source.pLocation);
    CopyField(out->comment, sizeof out->comment, source.pComment);
    out->status = source.Status;
}

}  // namespace

bool WidePrinterName(const char* printer, wchar_t* out, int cap) {
    if (printer == nullptr || out == nullptr || cap <= 0) return false;
    return MultiByteToWideChar(CP_ACP, 0, printer, -1, out, cap) > 0;
}

const char* BuiltInPrinterName() {
    return nullptr;
}

int SpoolerEnumPrinters(SpoolerPrinterVisitor visit, void* context) {
    const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
    DWORD needed = 0;
    DWORD returned = 0;
    if (!EnumPrintersA(flags, nullptr, 2, nullptr, 0, &needed, &returned) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return kSpoolerFailed;
    if (needed == 0) return 0;
    // A little more than asked for: the list may grow between the two calls.
    LocalBlock buffer(needed + 4);
    if (!buffer.Valid()) return kSpoolerNoMemory;
    if (!EnumPrintersA(flags, nullptr, 2, buffer.Bytes(), needed + 4, &needed, &returned))
        return kSpoolerFailed;

    const auto* printers = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.Bytes());
    SpoolerPrinterInfo info;
    int visited = 0;
    for (DWORD i = 0; i < returned; ++i) {
        FillPrinterInfo(printers[i], &info);
        ++visited;
        if (visit != nullptr && visit(context, info) != 0) break;
    }
    return visited;
}

int SpoolerGetDefaultPrinter(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return kSpoolerFailed;
    out[0] = '\0';
    char name[1024];
    DWORD size = sizeof name;
    if (!GetDefaultPrinterA(name, &size)) return kSpoolerFailed;
    CopyText(out, cap, name);
    return kSpoolerOk;
}

bool SpoolerCanOpenPrinter(const char* printer) {
    PrinterHandle handle;
    return handle.Open(printer);
}

int SpoolerGetPrinter(const char* printer, SpoolerPrinterInfo* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerPrinterInfo{};
    PrinterHandle handle;
    if (!handle.Open(printer)) return kSpoolerFailed;
    DWORD needed = 0;
    if (!GetPrinterA(handle.Get(), 2, nullptr, 0, &needed) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return kSpoolerFailed;
    if (needed == 0) return kSpoolerFailed;
    LocalBlock buffer(needed);
    if (!buffer.Valid()) return kSpoolerNoMemory;
    if (!GetPrinterA(handle.Get(), 2, buffer.Bytes(), needed, &needed)) return kSpoolerFailed;
    FillPrinterInfo(*reinterpret_cast<const PRINTER_INFO_2A*>(buffer.Bytes()), out);
    return kSpoolerOk;
}

}  // namespace vx
