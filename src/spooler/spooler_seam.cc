#include "spooler/spooler_seam.h"

#include <atomic>

namespace vx {

namespace {

const SpoolerCalls kHostSpooler = {
    SpoolerEnumPrinters,    SpoolerGetDefaultPrinter, SpoolerCanOpenPrinter,
    SpoolerGetPrinter,      SpoolerGetDeviceList,     SpoolerGetDeviceFacts,
    SpoolerGetDriverInfo,   SpoolerEnumPrinterFonts,  SpoolerJobSettingsSize,
    SpoolerReadJobSettings, SpoolerOpenPrinter,       SpoolerClosePrinter,
    SpoolerEnumJobs,        SpoolerGetPrinterStatus,  SpooledJobFateOf,
};

std::atomic<const SpoolerCalls*> g_spooler{&kHostSpooler};

}  // namespace

const SpoolerCalls& Spooler() {
    return *g_spooler.load();
}

void SetSpoolerForTest(const SpoolerCalls* calls) {
    g_spooler.store(calls != nullptr ? calls : &kHostSpooler);
}

}  // namespace vx
