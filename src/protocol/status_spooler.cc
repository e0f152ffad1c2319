#include "protocol/status_spooler.h"

#include <atomic>

namespace vx {

namespace {

const StatusSpooler kHostSpooler = {
    SpoolerOpenPrinter,      SpoolerClosePrinter,      SpoolerEnumJobs,
    SpoolerGetPrinterStatus, SpoolerGetDefaultPrinter, SpoolerEnumPrinters,
};

std::atomic<const StatusSpooler*> g_spooler{&kHostSpooler};

}  // namespace

const StatusSpooler& StatusSpoolerInUse() {
    return *g_spooler.load();
}

void SetStatusSpoolerForTest(const StatusSpooler* spooler) {
    g_spooler.store(spooler != nullptr ? spooler : &kHostSpooler);
}

}  // namespace vx
