// LogPrintEnvironment: a report of the host's printers for diagnosis, written as
// "zelwin_environment.txt" into a directory: the library's version, the default printer and
// every printer with its port, driver and state.
#include <cstdio>
#include <memory>

#include "base/fileops.h"
#include "base/text.h"
#include "printlib/zelwin.h"
#include "spooler/spooler.h"
#include "vorlix_version.h"

namespace {

constexpr char kReportName[] = "zelwin_environment.txt";

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};

// The printer's condition in words, most telling first.
void StateText(uint32_t status, char* out, size_t size) {
    static const struct {
        uint32_t bit;
        const char* word;
    } kWords[] = {
        {vx::kPrinterPaused, "paused"},
        {vx::kPrinterError, "error"},
        {vx::kPrinterOffline, "offline"},
        {vx::kPrinterNotAvailable, "not available"},
        {vx::kPrinterPaperJam, "paper jam"},
        {vx::kPrinterPaperOut, "out of paper"},
        {vx::kPrinterPaperProblem, "paper problem"},
        {vx::kPrinterNoToner, "no toner"},
        {vx::kPrinterOutputBinFull, "output bin full"},
        {vx::kPrinterOutOfMemory, "out of memory"},
        {vx::kPrinterUserIntervention, "user intervention required"},
    };
    out[0] = '\0';
    for (const auto& entry : kWords) {
        if ((status & entry.bit) == 0) continue;
        if (out[0] != '\0') vx::AppendText(out, size, ", ");
        vx::AppendText(out, size, entry.word);
    }
    if (out[0] == '\0') vx::CopyText(out, size, "ready");
}

int WritePrinter(void* context, const vx::SpoolerPrinterInfo& printer) {
    FILE* out = static_cast<FILE*>(context);
    char state[256];
    StateText(printer.status, state, sizeof state);
    fprintf(out, "\nPrinter: %s\n", printer.name);
    fprintf(out, "  Port:     %s\n", printer.port);
    fprintf(out, "  Driver:   %s\n", printer.driver);
    fprintf(out, "  State:    %s (0x%08x)\n", state, static_cast<unsigned>(printer.status));
    if (printer.location[0] != '\0') fprintf(out, "  Location: %s\n", printer.location);
    if (printer.comment[0] != '\0') fprintf(out, "  Comment:  %s\n", printer.comment);
    return 0;
}

}  // namespace

extern "C" {

ZELWIN_API int LogPrintEnvironment(const char* directory, int mode, int registryRoot) {
    if (directory == nullptr) return ZEL_RC_BAD_ARGUMENT;
    char path[vx::kMaxPath * 2];
    vx::CopyText(path, directory);
    vx::AppendSeparator(path, sizeof path);
    vx::AppendText(path, kReportName);
    std::unique_ptr<FILE, FileCloser> out(fopen(path, "w"));
    if (out == nullptr) return ZEL_RC_FAILED;

    fprintf(out.get(), "Print environment reported by the print library, version %s\n",
            VORLIX_FILE_VERSION);
    fprintf(out.get(), "Mode: %d, settings hive: %s\n", mode,
            registryRoot == ZEL_ROOT_CURRENT_USER ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE");
    const char* builtIn = vx::BuiltInPrinterName();
    if (builtIn != nullptr) {
        fprintf(out.get(), "Built-in printer: %s (writes jobs into the output directory)\n",
                builtIn);
    }
    char defaultPrinter[vx::kSpoolerNameSize] = {};
    if (vx::SpoolerGetDefaultPrinter(defaultPrinter, sizeof defaultPrinter) == vx::kSpoolerOk) {
        fprintf(out.get(), "Default printer: %s\n", defaultPrinter);
    } else {
        fputs("Default printer: none\n", out.get());
    }
    int count = vx::SpoolerEnumPrinters(WritePrinter, out.get());
    if (count < 0) {
        fputs("\nThe printers cannot be enumerated.\n", out.get());
    } else {
        fprintf(out.get(), "\nPrinters: %d\n", count);
    }
    if (fclose(out.release()) != 0) return ZEL_RC_FAILED;
    return count < 0 ? ZEL_RC_FAILED : ZEL_RC_OK;
}
}
