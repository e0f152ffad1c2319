#include "config/option_table.h"

#include <cstring>

#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// Names the command line may set. Print-library options (fonts, colours, PDF, simulation) are
// stored and forwarded by name only.
// clang-format off
constexpr const char* kKnownOptions[] = {
    "barcode_yshift", "ColorBackground", "ColorMode", "compress1", "compress2", "conn_aa",
    "ConnectionMode", "crypt1", "DcMode", "DcAllFields", "enable_phys_margins", "ForceColor",
    "GraphRahmenMode", "IconMode", "IgnoreCollation", "IgnoreCopies", "IgnoreCopiesInPopup",
    "IgnoreDCError", "IgnorePartCheck", "KeepFile", "KeepJobSequence", "KeepRestoreFile",
    "ListColorGap", "LogLevel", "LogPath", "LogTimeCheck", "LPDPort", "MaxLogFileSize",
    "MemoryLog", "NiAcceptTimeout", "NiReadLoopBreak", "NiReadTimeout", "NiSpinReadTime",
    "NiTrace", "NiWriteTimeout", "no_empty_pages", "NoJobRestore", "NoLogFileSwitch",
    "NoPrinterLogging", "NoStatus", "NumAuth", "QuillonWaitTime", "OutputPath", "PDFasRAW",
    "PDFDelayTime", "PDFEmitPS", "PDFIgnoreTray", "PDFPacketSize", "PDFPaperHeight",
    "PDFPaperWidth", "PDFPaperSize", "PDFShrinkToFit", "PDFUseExternalPaperSize", "PortraitOnly",
    "PrinterFont1", "PrinterFont2", "PrinterFont3", "PrinterFont4", "PrinterFont5", "PrinterFont6",
    "PrinterFont7", "PrinterFont8", "print_spaces", "ProcessingMode", "report_unknown_status",
    "RestartAfterJobs", "ZELDings_charset", "ZELFont1", "ZELFont2", "ZELFont3", "ZELFont4",
    "ZELFont5", "ZELFont6", "ZELFont7", "ZELFont8", "ZELIcons_charset", "ZELUserAsOwner",
    "SaveAsFile", "send_with_null", "SimulationFile", "SimulationMode", "SimulationPrinter1",
    "SimulationPrinter2", "SimulationPrinter3", "SimulationPrinter4", "SimulationPrinter5",
    "snc_cmdmax", "snc_min_qop", "snc_mode", "space_comp", "SWBackground", "s_packet_size",
    "SwinDataType", "TestMode", "transparent_bitmaps", "use_charwidth", "use_copies",
    "UseAlternativPath", "UseEnhancedSW", "UseOldTitle", "UseQuillon", "use_old_fontsize",
    "WinAPILog", "WinCharSet",
};
// clang-format on
static_assert(sizeof kKnownOptions / sizeof kKnownOptions[0] == 104);

// Names "-t" deletes: the known names and three that the command line cannot set. Kept apart from
// the known list on purpose: the two differ and must stay so.
// clang-format off
constexpr const char* kResetOptions[] = {
    "AbortAfterErrors", "barcode_yshift", "ColorBackground", "ClusterResource", "ColorMode",
    "compress1", "compress2", "conn_aa", "ConnectionMode", "crypt1", "DcMode", "DcAllFields",
    "enable_phys_margins", "ForceChanges", "ForceColor", "GraphRahmenMode", "IconMode",
    "IgnoreCollation", "IgnoreCopies", "IgnoreCopiesInPopup", "IgnoreDCError", "IgnorePartCheck",
    "KeepFile", "KeepJobSequence", "KeepRestoreFile", "ListColorGap", "LogLevel", "LogPath",
    "LogTimeCheck", "LPDPort", "MaxLogFileSize", "MemoryLog", "NiAcceptTimeout", "NiReadLoopBreak",
    "NiReadTimeout", "NiSpinReadTime", "NiTrace", "NiWriteTimeout", "no_empty_pages",
    "NoJobRestore", "NoLogFileSwitch", "NoPrinterLogging", "NoStatus", "NumAuth", "OutputPath",
    "PDFasRAW", "PDFDelayTime", "PDFEmitPS", "PDFIgnoreTray", "PDFPacketSize", "PDFPaperHeight",
    "PDFPaperWidth", "PDFPaperSize", "PDFShrinkToFit", "PDFUseExternalPaperSize", "PortraitOnly",
    "print_spaces", "PrinterFont1", "PrinterFont2", "PrinterFont3", "PrinterFont4", "PrinterFont5",
    "PrinterFont6", "PrinterFont7", "PrinterFont8", "ProcessingMode", "report_unknown_status",
    "RestartAfterJobs", "ZELDings_charset", "ZELFont1", "ZELFont2", "ZELFont3", "ZELFont4",
    "ZELFont5", "ZELFont6", "ZELFont7", "ZELFont8", "ZELIcons_charset", "ZELUserAsOwner",
    "SaveAsFile", "send_with_null", "SimulationFile", "SimulationMode", "SimulationPrinter1",
    "SimulationPrinter2", "SimulationPrinter3", "SimulationPrinter4", "SimulationPrinter5",
    "snc_cmdmax", "snc_min_qop", "snc_mode", "space_comp", "SWBackground", "s_packet_size",
    "SwinDataType", "TestMode", "transparent_bitmaps", "UseAlternativPath", "UseEnhancedSW",
    "UseOldTitle", "UseQuillon", "QuillonWaitTime", "use_charwidth", "use_copies",
    "use_old_fontsize", "WinAPILog", "WinCharSet",
};
// clang-format on
static_assert(sizeof kResetOptions / sizeof kResetOptions[0] == 107);

}  // namespace

bool IsKnownOption(const char* name) {
    if (name == nullptr) return false;
    if (strncmp(name, "Auth", 4) == 0) return true;
    if (strstr(name, "COL") != nullptr) return true;
    for (const char* known : kKnownOptions) {
        if (strcmp(known, name) == 0) return true;
    }
    return false;
}

void ResetOptions(Czelprsrv& settings) {
    for (const char* name : kResetOptions) settings.DeleteGlobalValue(name);
}

const char* const* KnownOptionNames(int* count) {
    *count = static_cast<int>(sizeof kKnownOptions / sizeof kKnownOptions[0]);
    return kKnownOptions;
}

const char* const* ResetOptionNames(int* count) {
    *count = static_cast<int>(sizeof kResetOptions / sizeof kResetOptions[0]);
    return kResetOptions;
}

}  // namespace vx
