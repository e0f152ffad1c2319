// A job's device settings: the printer's DEVMODEW from DocumentPropertiesW, handed over in movable
// global memory as the printing calls take it.
#include <cstddef>
#include <cstring>

#include "spooler/spooler.h"
#include "spooler/win32/spooler_win32.h"

namespace vx {

namespace {

constexpr size_t kCopiesEnd = offsetof(DEVMODEW, dmCopies) + sizeof(short);

// The size DocumentPropertiesW asks for, for an open printer.
LONG SettingsSize(HANDLE printer, wchar_t* name) {
    return DocumentPropertiesW(nullptr, printer, name, nullptr, nullptr, 0);
}

}  // namespace

size_t SpoolerJobSettingsSize(const char* printer) {
    wchar_t name[kSpoolerNameSize];
    PrinterHandle handle;
    if (!WidePrinterName(printer, name, kSpoolerNameSize) || !handle.Open(printer)) return 0;
    LONG size = SettingsSize(handle.Get(), name);
    return size > 0 ? static_cast<size_t>(size) : 0;
}

int SpoolerReadJobSettings(const char* printer, void* block, size_t size) {
    wchar_t name[kSpoolerNameSize];
    PrinterHandle handle;
    if (block == nullptr || !WidePrinterName(printer, name, kSpoolerNameSize) ||
        !handle.Open(printer))
        return kSpoolerFailed;
    // The driver writes its whole record: the block must hold it.
    LONG needed = SettingsSize(handle.Get(), name);
    if (needed <= 0 || static_cast<size_t>(needed) > size) return kSpoolerFailed;
    LONG rc = DocumentPropertiesW(nullptr, handle.Get(), name, static_cast<DEVMODEW*>(block),
                                  nullptr, DM_OUT_BUFFER);
    return rc == IDOK ? kSpoolerOk : kSpoolerFailed;
}

int SpoolerSetJobCopies(void* block, size_t size, int copies) {
    if (block == nullptr || size < kCopiesEnd || copies < 1 || copies > 0x7FFF)
        return kSpoolerFailed;
    auto* mode = static_cast<DEVMODEW*>(block);
    mode->dmCopies = static_cast<short>(copies);
    mode->dmFields |= DM_COPIES;
    return kSpoolerOk;
}

int SpoolerJobCopies(const void* block, size_t size) {
    if (block == nullptr || size < kCopiesEnd) return -1;
    return static_cast<const DEVMODEW*>(block)->dmCopies;
}

JobSettingsHandle SpoolerPublishJobSettings(const void* block, size_t size) {
    if (block == nullptr || size == 0) return nullptr;
    HGLOBAL global = GlobalAlloc(GMEM_MOVEABLE, size);
    if (global == nullptr) return nullptr;
    void* target = GlobalLock(global);
    if (target == nullptr) {
        GlobalFree(global);
        return nullptr;
    }
    memcpy(target, block, size);
    GlobalUnlock(global);
    return global;
}

void SpoolerReleaseJobSettings(JobSettingsHandle handle) {
    if (handle != nullptr) GlobalFree(static_cast<HGLOBAL>(handle));
}

int SpoolerPublishedJobCopies(JobSettingsHandle handle) {
    if (handle == nullptr) return -1;
    auto global = static_cast<HGLOBAL>(handle);
    const void* block = GlobalLock(global);
    if (block == nullptr) return -1;
    int copies = SpoolerJobCopies(block, GlobalSize(global));
    GlobalUnlock(global);
    return copies;
}

}  // namespace vx
