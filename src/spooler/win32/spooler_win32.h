// Helpers shared by the winspool implementation files: an owned printer handle and an owned
// zero-filled local memory block.
#pragma once

#include <windows.h>
#include <winspool.h>

#include <cstddef>

namespace vx {

// An open printer; closed on destruction.
class PrinterHandle {
  public:
    PrinterHandle() = default;
    ~PrinterHandle() {
        if (handle_ != nullptr) ClosePrinter(handle_);
    }
    PrinterHandle(const PrinterHandle&) = delete;
    PrinterHandle& operator=(const PrinterHandle&) = delete;

    bool Open(const char* printer) {
        if (printer == nullptr || printer[0] == '\0') return false;
        return OpenPrinterA(const_cast<char*>(printer), &handle_, nullptr) && handle_ != nullptr;
    }
    HANDLE Get() const { return handle_; }

  private:
    HANDLE handle_ = nullptr;
};

// A zero-filled block from LocalAlloc; freed on destruction.
class LocalBlock {
  public:
    explicit LocalBlock(size_t size) : block_(LocalAlloc(LPTR, size)) {}
    ~LocalBlock() {
        if (block_ != nullptr) LocalFree(block_);
    }
    LocalBlock(const LocalBlock&) = delete;
    LocalBlock& operator=(const LocalBlock&) = delete;

    bool Valid() const { return block_ != nullptr; }
    BYTE* Bytes() const { return static_cast<BYTE*>(block_); }
    char* Chars() const { return static_cast<char*>(block_); }

  private:
    HLOCAL block_;
};

// A printer name in UTF-16 for the wide calls; false when it does not fit.
bool WidePrinterName(const char* printer, wchar_t* out, int cap);

}  // namespace vx
