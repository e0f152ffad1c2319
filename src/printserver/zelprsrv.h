// Czelprsrv: the print-server object. The service makes exactly one, reached through g_prsrv by
// every thread. It carries the trace logs ("vorlix.dbg", "vorlixwinapi.dbg") with their levels and
// switching, the tracked allocator, and the settings store: registry values under the settings key,
// per-printer overrides, two caches and the built-in defaults.
//
// Tracing rule: the shared line buffer and the log files are guarded by the trace lock. Trace(),
// TraceError() and TraceApi() test the level, take the lock, format into the buffer and write, so a
// caller cannot forget either. WriteTrace()/WriteApiTrace() are for callers that already hold the
// lock (through TraceHold) and formatted into LineBuffer() themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "base/dynlib.h"
#include "base/fileops.h"
#include "base/registry.h"
#include "base/sync.h"
#include "base/text.h"
#include "lists/list_hooks.h"
#include "lists/swlistman.h"
#include "printlib/zelwin.h"
#include "printserver/print_environment.h"
#include "printserver/settings_table.h"
#include "printserver/trace.h"
#include "spooler/spooler.h"

namespace vx {

enum RunMode {
    kRunModeTool = 1,
    kRunModeService = 2,
    kRunModeTessel = 3,
    kRunModeConsole = 4,
    kRunModeManager = 6,
};

constexpr size_t kRegistryTextSize = 1024;

constexpr const char* kDefaultSettingsKey = "Software\\Zel\\Zellpd\\ZELLPD";
constexpr const char* kTesselSettingsKey = "Software\\Zel\\Nimbra Manager for Tessel";
constexpr const char* kManagerSettingsKey = "Software\\Zel\\Nimbra Manager";
constexpr const char* kPdfProductKey = "Software\\Zel\\Tolmapdf";

// What the creator decides about the object.
struct PrsrvConfig {
    int runMode = kRunModeService;
    RegHive hive = kHiveLocalMachine;
    const char* settingsKey = nullptr;   // null: the default key of the run mode
    const char* logDirectory = nullptr;  // null: "LogPath", else <base>/Logs/
    const char* logBaseName = "vorlix";
    const char* apiLogBaseName = "vorlixwinapi";
    const char* suffix = nullptr;
    const char* extension = ".dbg";
    class Czelprsrv* parent = nullptr;  // share the parent's caches and list manager
    // Bind the optional libraries and list the printers at the end of construction.
    bool loadLibraries = false;
    // Where the library search begins; null: the executable's directory.
    const char* libraryDirectory = nullptr;
};

// Settings caches: an integer and a string list in a list manager, with their entry counts.
struct SettingsCaches {
    ClistMan* lists = nullptr;
    ListId intList = kInvalidListId;
    ListId stringList = kInvalidListId;
    int32_t intCount = 0;
    int32_t stringCount = 0;
};

class Czelprsrv {
  public:
    explicit Czelprsrv(const PrsrvConfig& config);
    ~Czelprsrv();
    Czelprsrv(const Czelprsrv&) = delete;
    Czelprsrv& operator=(const Czelprsrv&) = delete;

    // ---- trace log ----
    bool TraceOn(int level) const { return Abs(level) <= logLevel_; }
    void Trace(int level, const char* fmt, ...) VX_PRINTF(3, 4);
    void TraceV(int level, const char* fmt, va_list args);
    // "Error: " followed by the text, at level -1 (formatted in the error buffer).
    void TraceError(const char* fmt, ...) VX_PRINTF(2, 3);
    void TraceErrorV(const char* fmt, va_list args);
    void TraceApi(const char* fmt, ...) VX_PRINTF(2, 3);

    RecursiveLock& TraceLock() { return traceLock_; }
    char* LineBuffer() { return line_; }
    void WriteTrace(int level, const char* text);
    void WriteApiTrace(const char* text);

    // Name of the system call that failed; eventType 1 error, 2 warning.
    void ReportLastError(const char* function, int eventType);
    void* TrackedAlloc(size_t size, const char* file, int line, const char* tag, int always);
    void TrackedFree(void* block, const char* file, int line, const char* tag, int always);
    void ReportMemoryUsage(int jobCount, uint32_t listBytes);
    // target 1: into the main log; 0: standard output.
    void WriteEnvironmentReport(int target);
    void ChangeTraceOption(const char* name, const char* value);
    void RenameWithTimeStamp(const char* path);
    // Prepares the network layer's trace ("vorlix.nit"): 1, or 0 when the file cannot be opened.
    int OpenNiTrace();
    void SwitchLogFile();

    // ---- settings store ----
    int32_t GetGlobalInt(const char* name, int32_t def);
    int32_t GetPrinterInt(const char* printer, const char* name, int32_t def);
    int32_t GetOptionValue(const char* printer, const char* name, int32_t def);
    void GetGlobalString(const char* name, const char* def, char* buffer, size_t size);
    void GetPrinterString(const char* printer, const char* name, const char* def, char* buffer,
                          uint32_t* size);
    void SetGlobalInt(const char* name, int32_t value);
    void SetGlobalString(const char* name, const char* text);
    int DeleteGlobalValue(const char* name);
    int SetUserModeMark(int flag, const char* keyPath);
    // The built-in default of the settings table (0 for names it does not know).
    int32_t GetDefaultValue(const char* name) const;
    // GetGlobalInt with the setting's built-in default.
    int32_t GetSetting(IntSettingName setting);

    // ---- what the object resolved ----
    int GetRunMode() const { return runMode_; }
    RegHive Hive() const { return hive_; }
    const char* SettingsKey() const { return settingsKey_; }
    const char* LogDirectory() const { return logDir_; }
    const char* TempDirectory() const { return tempDir_; }
    const char* OutputDirectory() const { return outputDir_; }
    const char* MainLogPath() const { return mainLogPath_; }
    const char* ApiLogPath() const { return apiLogPath_; }
    bool MainLogOpen() const { return mainLog_ != nullptr; }
    bool ApiLogOpen() const { return apiLog_ != nullptr; }
    uint32_t LinesWritten() const { return linesWritten_; }

    int32_t LogLevel() const { return logLevel_; }
    int32_t EnableEudc() const { return enableEudc_; }
    int32_t WinApiLog() const { return winApiLog_; }
    int32_t MemoryLog() const { return memoryLog_; }
    int32_t NoLogFileSwitch() const { return noLogFileSwitch_; }
    int32_t MaxLogFileSize() const { return maxLogFileSize_; }
    int32_t MaxLogFiles() const { return maxLogFiles_; }
    int32_t NoPrinterLogging() const { return noPrinterLogging_; }
    int32_t PdfPacketSize() const { return pdfPacketSize_; }
    int32_t PdfAsRaw() const { return pdfAsRaw_; }
    bool DeleteLogsAtEnd() const { return deleteLogsAtEnd_; }
    // The service keeps its trace logs at the end, whatever KeepFile says.
    void KeepLogsAtEnd() { deleteLogsAtEnd_ = false; }

    // Settings and trace as the print library sees them.
    const ZelHost* Host() const { return &host_; }

    // The version texts shown in the banner ("" when the library is not installed).
    void SetLibraryVersions(const char* zelwin, const char* tolmapdf);

    // ---- printer information and library binding ----
    // Library files are named by their Windows names; the platform layer maps them.
    bool FindLibraryFile(const char* fileName, char* path, size_t size);
    // The loaded library, or null.
    DynLibHandle LoadOptionalLibrary(const char* fileName, bool reportFailure);
    void LoadLibraries();
    // "FileVersion" and "ProductVersion" of a file, cut to their buffers; 0, or -1 for none.
    int ReadFileVersion(const char* path, char* fileVersion, size_t fileCap, char* productVersion,
                        size_t productCap);
    int GetInstalledPrinters();
    // 0 with the port (at most 100 characters), or 9 when none is found.
    int DeterminePort(const char* printer, char* port, size_t size);
    int GetTrayIndex(const char* printer);
    int FindConfiguredTray(const char* printer, int zelId);
    // target 1: into the main log; 0: standard output.
    void ReportPrinterSettings(const char* printer, int target);
    void ReportDriverInfo(const SpoolerDriverInfo& info, int target);
    int ReportPrinterDriver(const char* printer, int target);
    // The default printer's fonts, sorted and each once, on standard output and in the main log.
    void ReportDefaultPrinterFonts();
    // The printer's current device settings with the copy count set, handed over in *out.
    int GetJobDeviceSettings(const char* printer, int copies, JobSettings* out);

    const char* PrintLibraryPath() const { return printLibraryPath_; }
    const char* ExecutablePath() const { return executablePath_; }
    const char* PdfProductDirectory() const { return pdfProductDir_; }
    int32_t PdfLibraryCompatible() const { return pdfLibraryCompatible_; }
    const OptionalLibraries& Libraries() const { return libs_; }
    int32_t InstalledPrinterCount() const { return printerCount_; }
    const InstalledPrinter* InstalledPrinters() const { return printers_; }

  private:
    static int32_t Abs(int32_t v) { return v < 0 ? -v : v; }

    void ResolveSettingsKey(const PrsrvConfig& config);
    void ResolveDirectories(const PrsrvConfig& config);
    void ResolveDirectory(const char* given, const char* setting, const char* fallbackName,
                          char* out);
    void ReadTraceOptions();
    void OpenLogFile(const char* baseName, const char* suffix, const char* extension, char* path,
                     FILE** stream, bool switchAtOpen);
    void EchoToConsole(const char* prefix, const char* text);
    void CloseRegistryHandle(RegKey& key);
    void WriteBanner(int target);
    void ReportLine(int target, int level, const char* fmt, ...) VX_PRINTF(4, 5);

    // settings caches
    bool IntCacheLookup(const char* name, int32_t* value);
    void IntCacheInsert(const char* name, int32_t value);
    void IntCacheRemove(const char* name);
    bool StringCacheLookup(const char* name, char* value, size_t cap);
    void StringCacheInsert(const char* name, const char* value);
    void StringCacheRemove(const char* name);
    void EnsureCacheLists();
    bool OpenReadHandle();
    bool OpenWriteHandle();
    bool WriteGlobalText(const char* name, const char* text);

    // printer information and library binding
    void ResolvePrintEnvironment(const PrsrvConfig& config);
    void ResolvePdfProduct(char* version, size_t cap);
    void ReportPdfLibraryCheck();
    bool FindInDirectory(const char* directory, const char* fileName, char* path, size_t size);
    void LoadPdfLibrary();
    void LoadOcrLibrary();
    void LoadBarcodeLibrary();
    void LoadIconLibrary();
    void ReleaseLibraries();
    void ReleasePrinters();
    bool ReadRegistryPort(const char* printer, char* port, size_t size);
    void CachePort(const char* printer, const char* port);
    int FillTrays(InstalledPrinter& printer);
    SpoolerDeviceItem* ReadDeviceList(const char* printer, const char* port, SpoolerDeviceList list,
                                      int* count);

    static void* HookAlloc(void* context, size_t size, const char* file, int line,
                           const char* label);
    static void HookRelease(void* context, void* block, const char* file, int line,
                            const char* label);
    static void HookError(void* context, const char* text);
    static void ApiSink(void* context, const char* line);

    // trace
    RecursiveLock traceLock_;
    RecursiveLock libraryLock_;
    FILE* mainLog_ = nullptr;
    FILE* apiLog_ = nullptr;
    char mainLogPath_[kMaxPath] = {};
    char switchTarget_[kMaxPath] = {};
    char apiLogPath_[kMaxPath] = {};
    char error_[1044] = {};
    char line_[kTraceLineSize] = {};
    uint32_t linesWritten_ = 0;
    bool switching_ = false;
    int32_t maxLogFileSize_ = BuiltInDefault("MaxLogFileSize");
    int32_t maxLogFiles_ = BuiltInDefault("MaxLogFiles");
    int32_t logLevel_ = BuiltInDefault("LogLevel");
    int32_t enableEudc_ = BuiltInDefault("EnableEUDC");
    int32_t winApiLog_ = BuiltInDefault("WinAPILog");
    int32_t memoryLog_ = BuiltInDefault("MemoryLog");
    int32_t noLogFileSwitch_ = BuiltInDefault("NoLogFileSwitch");
    bool deleteLogsAtEnd_ = true;
    int32_t noPrinterLogging_ = BuiltInDefault("NoPrinterLogging");
    int32_t pdfPacketSize_ = BuiltInDefault("PDFPacketSize");
    int32_t pdfAsRaw_ = 0;
    int32_t pdfLibraryCompatible_ = 0;  // the PDF print library check: the default of "PDFasRAW"
    int runMode_ = kRunModeService;
    ListHooks hooks_ = {};
    ZelHost host_ = {};
    char zelwinVersion_[64] = {};
    char tolmapdfVersion_[64] = {};

    // settings
    Czelprsrv* parent_ = nullptr;
    SettingsCaches ownCaches_;
    SettingsCaches* caches_ = &ownCaches_;
    // The caches are used under the trace lock of their owner, so that the lock order is always
    // trace lock, then list lock (a list that grows traces its allocation).
    RecursiveLock* cacheLock_ = &traceLock_;
    RegHive hive_ = kHiveLocalMachine;
    RegKey readKey_;
    RegKey writeKey_;
    RegKey portKey_;
    RegKey pdfKey_;
    char settingsKey_[kMaxPath] = {};
    char logDir_[kMaxPath] = {};
    char tempDir_[kMaxPath] = {};
    char outputDir_[kMaxPath] = {};

    // printer information and library binding
    char printLibraryPath_[kMaxPath] = {};
    char executablePath_[kMaxPath] = {};
    char libraryDir_[kMaxPath] = {};  // where the library search begins
    char pdfProductDir_[kMaxPath] = {};
    char pdfRefusedVersion_[64] = {};
    bool pdfVersionRefused_ = false;
    bool pdfSearchDirectorySet_ = false;
    OptionalLibraries libs_;
    int32_t printerCount_ = 0;
    InstalledPrinter* printers_ = nullptr;
    bool printersListed_ = false;
};

// The one print-server object of the process (null before InitVorlix and after ExitVorlix).
extern Czelprsrv* g_prsrv;

}  // namespace vx
