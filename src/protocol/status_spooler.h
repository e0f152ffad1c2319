// What the status answers ask the host's spooler: printers, their jobs and states, the default
// printer. One table, so that tests can put fake printers and jobs behind the answers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "spooler/spooler.h"

namespace vx {

struct StatusSpooler {
    SpoolerPrinter* (*OpenPrinter)(const char* printer);
    int (*ClosePrinter)(SpoolerPrinter* printer);
    int (*EnumJobs)(SpoolerPrinter* printer, SpoolerJobInfo* out, int capacity);
    int (*GetPrinterStatus)(SpoolerPrinter* printer, uint32_t* status);
    int (*GetDefaultPrinter)(char* out, size_t cap);
    int (*EnumPrinters)(SpoolerPrinterVisitor visit, void* context);
};

// The spooler in use: the host's unless a test set another.
const StatusSpooler& StatusSpoolerInUse();

// Replaces the spooler (null: back to the host's). For tests.
void SetStatusSpoolerForTest(const StatusSpooler* spooler);

// An opened printer, closed at the end of its scope unless Close() was called.
class OpenedPrinter {
  public:
    explicit OpenedPrinter(const char* printer)
        : printer_(StatusSpoolerInUse().OpenPrinter(printer)) {}
    ~OpenedPrinter() { Close(); }
    OpenedPrinter(const OpenedPrinter&) = delete;
    OpenedPrinter& operator=(const OpenedPrinter&) = delete;

    SpoolerPrinter* Get() const { return printer_; }
    // 0, or -1 when the spooler reported a failure.
    int Close() {
        if (printer_ == nullptr) return 0;
        int rc = StatusSpoolerInUse().ClosePrinter(printer_);
        printer_ = nullptr;
        return rc == kSpoolerOk ? 0 : -1;
    }

  private:
    SpoolerPrinter* printer_;
};

}  // namespace vx
