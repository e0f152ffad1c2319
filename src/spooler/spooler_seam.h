// The print system as the service asks it: printers, their jobs and states, the default printer,
// what a printer's driver reports, and the fate of a job handed over before a restart. One table,
// so that tests can put a fake print system behind queues, status answers and printer
// information alike. The print library prints through spooler.h itself and is not behind it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "spooler/spool_job.h"
#include "spooler/spooler.h"

namespace vx {

// The calls of spooler.h and spool_job.h of the same names.
struct SpoolerCalls {
    int (*EnumPrinters)(SpoolerPrinterVisitor visit, void* context);
    int (*GetDefaultPrinter)(char* out, size_t cap);
    bool (*CanOpenPrinter)(const char* printer);
    int (*GetPrinter)(const char* printer, SpoolerPrinterInfo* out);
    int (*GetDeviceList)(const char* printer, const char* port, SpoolerDeviceList list,
                         SpoolerDeviceItem* out, int capacity);
    int (*GetDeviceFacts)(const char* printer, const char* port, SpoolerDeviceFacts* out);
    int (*GetDriverInfo)(const char* printer, SpoolerDriverInfo* out);
    int (*EnumPrinterFonts)(const char* printer, SpoolerFontVisitor visit, void* context);
    size_t (*JobSettingsSize)(const char* printer);
    int (*ReadJobSettings)(const char* printer, void* block, size_t size);
    SpoolerPrinter* (*OpenPrinter)(const char* printer);
    int (*ClosePrinter)(SpoolerPrinter* printer);
    int (*EnumJobs)(SpoolerPrinter* printer, SpoolerJobInfo* out, int capacity);
    int (*GetPrinterStatus)(SpoolerPrinter* printer, uint32_t* status);
    SpooledJobFate (*SpooledJobFateOf)(const char* printer, int number);
};

// The print system in use: the host's unless a test set another.
const SpoolerCalls& Spooler();

// Replaces the print system (null: back to the host's). For tests.
void SetSpoolerForTest(const SpoolerCalls* calls);

// A printer opened through Spooler(), closed at the end of its scope unless Close() was called.
class OpenedPrinter {
  public:
    explicit OpenedPrinter(const char* printer) : printer_(Spooler().OpenPrinter(printer)) {}
    ~OpenedPrinter() { Close(); }
    OpenedPrinter(const OpenedPrinter&) = delete;
    OpenedPrinter& operator=(const OpenedPrinter&) = delete;

    SpoolerPrinter* Get() const { return printer_; }
    // 0, or -1 when the print system reported a failure.
    int Close() {
        if (printer_ == nullptr) return 0;
        int rc = Spooler().ClosePrinter(printer_);
        printer_ = nullptr;
        return rc == kSpoolerOk ? 0 : -1;
    }

  private:
    SpoolerPrinter* printer_;
};

}  // namespace vx
