// The settings table: every setting the service knows by name, with its type, its built-in
// default, who applies a change while the service runs, and whether the command line may set it
// ("-oi", "-os", "-dk") and "-t" deletes it. The store's default lookup, the option globals, the
// command line's name checks and reset, and the environment report all take their facts from here.
//
// The rows stand in the order "-t" deletes them; the option globals carry the position in which
// start-up reads them. A name in code is checked against the table when the program is built
// (IntSettingName, BuiltInDefault, BuiltInText).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vx {

enum SettingType : uint8_t {
    kSettingInteger,
    kSettingText,
};

// Who applies a change of an option global while the service runs. The other settings say
// kChangeNever: which of them the option pipe hands to the print-server object or the security
// layer is that pipe's own chain.
enum OptionChange : uint8_t {
    kChangeNever = 0,       // read at start only
    kChangeGlobal = 1,      // the global changes
    kChangeAndForward = 2,  // the global changes and the print library is told
};

enum SettingFlags : uint8_t {
    kSettingKnown = 1,  // the command line may set and delete it
    kSettingReset = 2,  // "-t" deletes it
    // The default depends on the PDF print library found at start; the row's value is a stand-in.
    kSettingComputedDefault = 4,
    // The default lookup (and so the environment report) answers 0 for it, as it always has,
    // although its readers take the row's default.
    kSettingDefaultNotListed = 8,
};

struct Setting {
    const char* name;  // exact, case-sensitive
    SettingType type;
    int32_t defaultValue;     // integer settings; 0 for text settings
    const char* defaultText;  // text settings; "" for integer settings
    OptionChange change;      // option globals only; kChangeNever for the others
    uint8_t flags;            // SettingFlags
    uint8_t startOrder;       // option globals: 1.. in the order start-up reads them; others 0
};

constexpr uint8_t kSettingKnownAndReset = kSettingKnown | kSettingReset;
constexpr uint8_t kSettingResetOnly = kSettingReset;
constexpr uint8_t kSettingInNoList = 0;

// Row makers, so that each row of the table reads as one line.
constexpr Setting IntSetting(const char* name, int32_t value, uint8_t flags) {
    return {name, kSettingInteger, value, "", kChangeNever, flags, 0};
}
constexpr Setting TextSetting(const char* name, const char* value, uint8_t flags) {
    return {name, kSettingText, 0, value, kChangeNever, flags, 0};
}
constexpr Setting OptionGlobalSetting(const char* name, int32_t value, OptionChange change,
                                      uint8_t order, uint8_t flags) {
    return {name, kSettingInteger, value, "", change, flags, order};
}

inline constexpr Setting kSettings[] = {
    // Known to the command line and reset by "-t" (except the three reset-only names), in the
    // order "-t" deletes them. Print-library options (fonts, colours, PDF, simulation) are only
    // stored, reset and forwarded by the service.
    IntSetting("AbortAfterErrors", 0, kSettingResetOnly),
    IntSetting("barcode_yshift", 50, kSettingKnownAndReset),
    IntSetting("ColorBackground", 1, kSettingKnownAndReset),
    TextSetting("ClusterResource", "No value", kSettingResetOnly),
    IntSetting("ColorMode", 1, kSettingKnownAndReset),
    IntSetting("compress1", 1, kSettingKnownAndReset),
    IntSetting("compress2", 1, kSettingKnownAndReset),
    IntSetting("conn_aa", 0, kSettingKnownAndReset),
    OptionGlobalSetting("ConnectionMode", 1, kChangeGlobal, 4, kSettingKnownAndReset),
    IntSetting("crypt1", 1, kSettingKnownAndReset),
    IntSetting("DcMode", 0, kSettingKnownAndReset),
    IntSetting("DcAllFields", 1, kSettingKnownAndReset),
    IntSetting("enable_phys_margins", 1, kSettingKnownAndReset),
    IntSetting("ForceChanges", 0, kSettingResetOnly),
    IntSetting("ForceColor", 0, kSettingKnownAndReset),
    IntSetting("GraphRahmenMode", 0, kSettingKnownAndReset),
    IntSetting("IconMode", 0, kSettingKnownAndReset),
    IntSetting("IgnoreCollation", 0, kSettingKnownAndReset),
    IntSetting("IgnoreCopies", 0, kSettingKnownAndReset),
    IntSetting("IgnoreCopiesInPopup", 0, kSettingKnownAndReset),
    OptionGlobalSetting("IgnoreDCError", 0, kChangeAndForward, 10, kSettingKnownAndReset),
    IntSetting("IgnorePartCheck", 0, kSettingKnownAndReset),
    IntSetting("KeepFile", 0, kSettingKnownAndReset),
    OptionGlobalSetting("KeepJobSequence", 0, kChangeGlobal, 13, kSettingKnownAndReset),
    IntSetting("KeepRestoreFile", 0, kSettingKnownAndReset),
    IntSetting("ListColorGap", 0, kSettingKnownAndReset),
    IntSetting("LogLevel", 1, kSettingKnownAndReset),
    TextSetting("LogPath", "No value", kSettingKnownAndReset),
    OptionGlobalSetting("LogTimeCheck", 0, kChangeAndForward, 14, kSettingKnownAndReset),
    IntSetting("LPDPort", 515, kSettingKnownAndReset),
    IntSetting("MaxLogFileSize", 10000000, kSettingKnownAndReset),
    IntSetting("MemoryLog", 0, kSettingKnownAndReset),
    IntSetting("NiAcceptTimeout", 5000, kSettingKnownAndReset),
    IntSetting("NiReadLoopBreak", -1, kSettingKnownAndReset),
    IntSetting("NiReadTimeout", -1, kSettingKnownAndReset),
    IntSetting("NiSpinReadTime", 100, kSettingKnownAndReset),
    IntSetting("NiTrace", 0, kSettingKnownAndReset),
    IntSetting("NiWriteTimeout", -1, kSettingKnownAndReset),
    IntSetting("no_empty_pages", 1, kSettingKnownAndReset),
    OptionGlobalSetting("NoJobRestore", 0, kChangeAndForward, 8, kSettingKnownAndReset),
    OptionGlobalSetting("NoLogFileSwitch", 0, kChangeNever, 9, kSettingKnownAndReset),
    IntSetting("NoPrinterLogging", 0, kSettingKnownAndReset),
    OptionGlobalSetting("NoStatus", 0, kChangeAndForward, 7, kSettingKnownAndReset),
    IntSetting("NumAuth", 0, kSettingKnownAndReset),
    TextSetting("OutputPath", "No value", kSettingKnownAndReset),
    IntSetting("PDFasRAW", 0, kSettingKnownAndReset | kSettingComputedDefault),
    IntSetting("PDFDelayTime", 0, kSettingKnownAndReset),
    IntSetting("PDFEmitPS", 0, kSettingKnownAndReset),
    IntSetting("PDFIgnoreTray", 0, kSettingKnownAndReset),
    IntSetting("PDFPacketSize", 100, kSettingKnownAndReset),
    IntSetting("PDFPaperHeight", 842, kSettingKnownAndReset),
    IntSetting("PDFPaperWidth", 595, kSettingKnownAndReset),
    IntSetting("PDFPaperSize", 9, kSettingKnownAndReset),
    IntSetting("PDFShrinkToFit", 1, kSettingKnownAndReset),
    IntSetting("PDFUseExternalPaperSize", 0, kSettingKnownAndReset),
    IntSetting("PortraitOnly", 0, kSettingKnownAndReset),
    IntSetting("print_spaces", 0, kSettingKnownAndReset),
    TextSetting("PrinterFont1", "", kSettingKnownAndReset),
    TextSetting("PrinterFont2", "", kSettingKnownAndReset),
    TextSetting("PrinterFont3", "", kSettingKnownAndReset),
    TextSetting("PrinterFont4", "", kSettingKnownAndReset),
    TextSetting("PrinterFont5", "", kSettingKnownAndReset),
    TextSetting("PrinterFont6", "", kSettingKnownAndReset),
    TextSetting("PrinterFont7", "", kSettingKnownAndReset),
    TextSetting("PrinterFont8", "", kSettingKnownAndReset),
    OptionGlobalSetting("ProcessingMode", 1, kChangeAndForward, 3, kSettingKnownAndReset),
    IntSetting("report_unknown_status", 1, kSettingKnownAndReset),
    OptionGlobalSetting("RestartAfterJobs", 0, kChangeAndForward, 6, kSettingKnownAndReset),
    IntSetting("ZELDings_charset", 0, kSettingKnownAndReset),
    TextSetting("ZELFont1", "", kSettingKnownAndReset),
    TextSetting("ZELFont2", "", kSettingKnownAndReset),
    TextSetting("ZELFont3", "", kSettingKnownAndReset),
    TextSetting("ZELFont4", "", kSettingKnownAndReset),
    TextSetting("ZELFont5", "", kSettingKnownAndReset),
    TextSetting("ZELFont6", "", kSettingKnownAndReset),
    TextSetting("ZELFont7", "", kSettingKnownAndReset),
    TextSetting("ZELFont8", "", kSettingKnownAndReset),
    IntSetting("ZELIcons_charset", 0, kSettingKnownAndReset),
    OptionGlobalSetting("ZELUserAsOwner", 0, kChangeGlobal, 1, kSettingKnownAndReset),
    IntSetting("SaveAsFile", 0, kSettingKnownAndReset),
    IntSetting("send_with_null", 1, kSettingKnownAndReset),
    TextSetting("SimulationFile", "", kSettingKnownAndReset),
    IntSetting("SimulationMode", 0, kSettingKnownAndReset),
    TextSetting("SimulationPrinter1", "", kSettingKnownAndReset),
    TextSetting("SimulationPrinter2", "", kSettingKnownAndReset),
    TextSetting("SimulationPrinter3", "", kSettingKnownAndReset),
    TextSetting("SimulationPrinter4", "", kSettingKnownAndReset),
    TextSetting("SimulationPrinter5", "", kSettingKnownAndReset),
    IntSetting("snc_cmdmax", 10, kSettingKnownAndReset),
    IntSetting("snc_min_qop", 3, kSettingKnownAndReset),
    IntSetting("snc_mode", 0, kSettingKnownAndReset),
    IntSetting("space_comp", 0, kSettingKnownAndReset),
    IntSetting("SWBackground", 1, kSettingKnownAndReset),
    IntSetting("s_packet_size", 15000, kSettingKnownAndReset),
    TextSetting("SwinDataType", "", kSettingKnownAndReset),
    OptionGlobalSetting("TestMode", 0, kChangeNever, 5, kSettingKnownAndReset),
    IntSetting("transparent_bitmaps", 1, kSettingKnownAndReset),
    IntSetting("UseAlternativPath", 0, kSettingKnownAndReset),
    OptionGlobalSetting("UseEnhancedSW", 0, kChangeNever, 11, kSettingKnownAndReset),
    OptionGlobalSetting("UseOldTitle", 1, kChangeAndForward, 2, kSettingKnownAndReset),
    IntSetting("UseQuillon", 0, kSettingKnownAndReset),
    IntSetting("QuillonWaitTime", 0, kSettingKnownAndReset),
    IntSetting("use_charwidth", 0, kSettingKnownAndReset),
    IntSetting("use_copies", 0, kSettingKnownAndReset),
    IntSetting("use_old_fontsize", 0, kSettingKnownAndReset),
    IntSetting("WinAPILog", 0, kSettingKnownAndReset),
    IntSetting("WinCharSet", 0, kSettingKnownAndReset),

    // Read or reported by the service, but neither set by the command line nor reset by "-t".
    IntSetting("PropertyChangeAllowed", 1, kSettingInNoList),
    IntSetting("EnableCancelButton", 1, kSettingInNoList),
    IntSetting("EnableEUDC", 0, kSettingInNoList),
    OptionGlobalSetting("UseNonASCII", 1, kChangeNever, 12, kSettingDefaultNotListed),
    IntSetting("SyncJobFiles", 0, kSettingInNoList),
    // Trace logs moved aside that are kept (0 or less: all), and the most copies a received job
    // prints (0 or less: no limit).
    IntSetting("MaxLogFiles", 10, kSettingInNoList),
    IntSetting("MaxCopies", 999, kSettingInNoList),
};

// The row of a name (exact match), or null.
constexpr const Setting* FindSetting(const char* name) {
    if (name == nullptr) return nullptr;
    std::string_view wanted(name);
    for (const Setting& setting : kSettings) {
        if (wanted == setting.name) return &setting;
    }
    return nullptr;
}

// Called only when a name given to the checks below is not in the table (or not of the type
// asked for): a call from a consteval function makes the build fail there.
inline void NameIsNotInTheSettingsTable() {}

// The position of a name's row, or -1. The checks below compare positions, not pointers: GCC
// cannot compare a pointer into the table with null at compile time in a sanitizer build.
constexpr int SettingIndex(const char* name) {
    std::string_view wanted(name);
    for (size_t i = 0; i < sizeof kSettings / sizeof kSettings[0]; ++i) {
        if (wanted == kSettings[i].name) return static_cast<int>(i);
    }
    return -1;
}

consteval const Setting* RequireSetting(const char* name) {
    int index = SettingIndex(name);
    if (index < 0) NameIsNotInTheSettingsTable();
    return &kSettings[index];
}

// The default of an integer setting named in code.
consteval int32_t BuiltInDefault(const char* name) {
    const Setting* setting = RequireSetting(name);
    if (setting->type != kSettingInteger) NameIsNotInTheSettingsTable();
    return setting->defaultValue;
}

// The default of a text setting named in code.
consteval const char* BuiltInText(const char* name) {
    const Setting* setting = RequireSetting(name);
    if (setting->type != kSettingText) NameIsNotInTheSettingsTable();
    return setting->defaultText;
}

// An integer setting named in code, for the store's readers: GetSetting("LogLevel"). Implicit
// on purpose, so that a name in quotes is checked where it is written.
struct IntSettingName {
    consteval IntSettingName(const char* name) : setting(RequireSetting(name)) {
        if (setting->type != kSettingInteger) NameIsNotInTheSettingsTable();
    }
    const Setting* setting;
};

}  // namespace vx
