// The built-in default of every integer setting: what a missing registry value means.
#include <cstring>

#include "printserver/zelprsrv.h"

namespace vx {

namespace {

struct DefaultEntry {
    const char* name;
    int32_t value;
};

// Names not listed default to 0; the zero defaults are listed too, so that the table is the one
// place that names every integer setting the service knows.
constexpr DefaultEntry kDefaults[] = {
    {"PropertyChangeAllowed", 1},
    {"LogLevel", 1},
    {"UseOldTitle", 1},
    {"ProcessingMode", 1},
    {"ConnectionMode", 1},
    {"enable_phys_margins", 1},
    {"no_empty_pages", 1},
    {"SWBackground", 1},
    {"ColorBackground", 1},
    {"ColorMode", 1},
    {"report_unknown_status", 1},
    {"send_with_null", 1},
    {"transparent_bitmaps", 1},
    {"compress1", 1},
    {"compress2", 1},
    {"crypt1", 1},
    {"DcAllFields", 1},
    {"PDFShrinkToFit", 1},

    {"KeepFile", 0},
    {"KeepRestoreFile", 0},
    {"NoPrinterLogging", 0},
    {"RestartAfterJobs", 0},
    {"NoJobRestore", 0},
    {"IgnoreDCError", 0},
    {"ZELUserAsOwner", 0},
    {"KeepJobSequence", 0},
    {"snc_mode", 0},
    {"NumAuth", 0},
    {"conn_aa", 0},
    {"IconMode", 0},
    {"GraphRahmenMode", 0},
    {"WinCharSet", 0},
    {"PortraitOnly", 0},
    {"print_spaces", 0},
    {"NoStatus", 0},
    {"SaveAsFile", 0},
    {"use_copies", 0},
    {"space_comp", 0},
    {"use_old_fontsize", 0},
    {"MemoryLog", 0},
    {"NiTrace", 0},
    {"WinAPILog", 0},
    {"ForceColor", 0},
    {"IgnoreCollation", 0},
    {"ListColorGap", 0},
    {"PDFDelayTime", 0},
    {"PDFEmitPS", 0},
    {"PDFIgnoreTray", 0},
    {"LogTimeCheck", 0},
    {"NoLogFileSwitch", 0},
    {"PDFUseExternalPaperSize", 0},

    {"NiReadTimeout", -1},
    {"NiReadLoopBreak", -1},
    {"NiWriteTimeout", -1},
    {"snc_min_qop", 3},
    {"PDFPaperSize", 9},
    {"snc_cmdmax", 10},
    {"barcode_yshift", 50},
    {"NiSpinReadTime", 100},
    {"PDFPacketSize", 100},
    {"LPDPort", 515},
    {"PDFPaperWidth", 595},
    {"PDFPaperHeight", 842},
    {"NiAcceptTimeout", 5000},
    {"s_packet_size", 15000},
    {"MaxLogFileSize", 10000000},
};

}  // namespace

int32_t Czelprsrv::GetDefaultValue(const char* name) const {
    if (name == nullptr) return 0;
    // Whether PDF can go to the printer unchanged depends on the PDF print library found.
    if (strcmp(name, "PDFasRAW") == 0) return pdfLibraryCompatible_;
    for (const DefaultEntry& entry : kDefaults) {
        if (strcmp(entry.name, name) == 0) return entry.value;
    }
    return 0;
}

}  // namespace vx
