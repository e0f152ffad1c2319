// The host's print system: the Windows spooler (winspool) or CUPS on Linux, where CUPS
// destinations are the printers, the CUPS default is the default printer, the device URI is the
// port, printer-make-and-model names the driver, and the printer's IPP attributes answer what the
// Windows driver's device capabilities answer (media-source for the paper bins, media-ready,
// media-type, document-format, copies, sides, color).
//
// On Linux the print library's built-in file printer is always one of the printers, and it is the
// default printer when CUPS has none or cannot be reached.
//
// Texts are narrow strings in the system's code page (Windows) or UTF-8 (Linux), cut to their
// fields; an empty text means the system gave none. Every call returns 0 or one of the negative
// SpoolerResult codes unless it says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

constexpr size_t kSpoolerNameSize = 256;  // printer, port and driver names
constexpr size_t kSpoolerTextSize = 260;  // paths and descriptions
constexpr size_t kSpoolerItemSize = 65;   // one entry of a device list
constexpr size_t kBinNameLength = 24;     // paper bin names are cut to this many characters

enum SpoolerResult { kSpoolerOk = 0, kSpoolerFailed = -1, kSpoolerNoMemory = -2 };

// The built-in printer of the platform ("file" on Linux); null where there is none (Windows).
const char* BuiltInPrinterName();

// Printer conditions. The values are the Windows spooler's status bits; on Linux they are made
// from printer-state (stopped is paused) and printer-state-reasons.
constexpr uint32_t kPrinterPaused = 0x1;
constexpr uint32_t kPrinterError = 0x2;
constexpr uint32_t kPrinterPaperJam = 0x8;
constexpr uint32_t kPrinterPaperOut = 0x10;
constexpr uint32_t kPrinterPaperProblem = 0x40;
constexpr uint32_t kPrinterOffline = 0x80;
constexpr uint32_t kPrinterOutputBinFull = 0x800;
constexpr uint32_t kPrinterNotAvailable = 0x1000;
constexpr uint32_t kPrinterNoToner = 0x40000;
constexpr uint32_t kPrinterUserIntervention = 0x100000;
constexpr uint32_t kPrinterOutOfMemory = 0x200000;

struct SpoolerPrinterInfo {
    char name[kSpoolerNameSize];
    char port[kSpoolerNameSize];    // Linux: the device URI (or the printer URI of a remote queue)
    char driver[kSpoolerNameSize];  // Linux: printer-make-and-model
    char location[kSpoolerTextSize];
    char comment[kSpoolerTextSize];
    uint32_t status;  // kPrinter... status bits
};

// Called once per printer; a nonzero return ends the enumeration early.
using SpoolerPrinterVisitor = int (*)(void* context, const SpoolerPrinterInfo& printer);

// Enumerates the local and connected printers. Returns the number of printers visited,
// kSpoolerFailed when the system cannot enumerate, kSpoolerNoMemory when its answer cannot be
// held.
int SpoolerEnumPrinters(SpoolerPrinterVisitor visit, void* context);

// The default printer's name.
int SpoolerGetDefaultPrinter(char* out, size_t cap);

// True when the printer can be opened for use (opened and closed again at once).
bool SpoolerCanOpenPrinter(const char* printer);

// What the spooler knows of one printer (Windows: its PRINTER_INFO_2).
int SpoolerGetPrinter(const char* printer, SpoolerPrinterInfo* out);

// ---- the driver's device capabilities ----

// The lists a printer driver reports. Bins and media types come with an identifier: the driver's
// own on Windows; on Linux the Windows identifier of a well-known keyword (auto 7, manual 4, ...),
// else 256 + the keyword's position, as Windows drivers number their own bins and media.
enum SpoolerDeviceList {
    kDeviceBins,            // paper bins: name (cut to kBinNameLength) and bin identifier
    kDeviceMediaTypes,      // media types: name and identifier
    kDeviceMediaReady,      // the paper formats loaded now
    kDeviceDependentFiles,  // the driver's files
    kDeviceLanguages,       // the page description languages it accepts
};

struct SpoolerDeviceItem {
    char name[kSpoolerItemSize];
    int32_t id;  // bins and media types; 0 otherwise
};

// With out null: the number of entries. Otherwise fills at most capacity entries and returns how
// many it filled. kSpoolerFailed when the driver cannot answer for the printer.
int SpoolerGetDeviceList(const char* printer, const char* port, SpoolerDeviceList list,
                         SpoolerDeviceItem* out, int capacity);

// How the driver gives the print rate.
enum SpoolerRateUnit {
    kRateUnknown = 0,
    kRatePagesPerMinute = 1,
    kRateCharactersPerSecond = 2,
    kRateLinesPerMinute = 3,
    kRateInchesPerMinute = 4,
};

// The driver's single-valued capabilities. A value the driver does not report is 0.
struct SpoolerDeviceFacts {
    int32_t color;  // 1 for a color device
    int32_t maxCopies;
    int32_t driverVersion;
    int32_t specVersion;    // the driver's version of the device settings record
    int32_t duplex;         // 1 when the device prints on both sides
    uint32_t fields;        // the device settings the driver supports, as Windows' DM_ bits
    int32_t maxPaperWidth;  // paper extents in tenths of a millimetre
    int32_t maxPaperHeight;
    int32_t minPaperWidth;
    int32_t minPaperHeight;
    int32_t memory;  // kilobytes
    int32_t printRate;
    int32_t printRateUnit;  // SpoolerRateUnit
    int32_t pagesPerMinute;
};

int SpoolerGetDeviceFacts(const char* printer, const char* port, SpoolerDeviceFacts* out);

// The printer's driver (Windows: its DRIVER_INFO_6). List-valued fields are joined with ", ".
struct SpoolerDriverInfo {
    char name[kSpoolerTextSize];
    char environment[kSpoolerTextSize];
    char driverPath[kSpoolerTextSize];
    char dataFile[kSpoolerTextSize];
    char configFile[kSpoolerTextSize];
    char helpFile[kSpoolerTextSize];
    char dependentFiles[kSpoolerTextSize];
    char monitorName[kSpoolerTextSize];
    char defaultDataType[kSpoolerTextSize];
    char previousNames[kSpoolerTextSize];
    char oemUrl[kSpoolerTextSize];
    char provider[kSpoolerTextSize];
    char hardwareId[kSpoolerTextSize];
    char manufacturer[kSpoolerTextSize];
    uint32_t osVersion;      // the driver's system version (Windows: 3 for user-mode drivers)
    uint64_t driverVersion;  // the driver's own version number
};

int SpoolerGetDriverInfo(const char* printer, SpoolerDriverInfo* out);

// ---- the fonts of a printer ----

// Longer font names are cut to this size.
constexpr size_t kSpoolerFontNameSize = 128;

// Called once per font name; a nonzero return ends the enumeration early.
using SpoolerFontVisitor = int (*)(void* context, const char* fontName);

// Visits the fonts the printer offers. Windows: the face names of a device context of the
// printer, in the driver's order, a face once per character set it has. Linux: the fonts the
// printer's PPD names; for a printer without a PPD, or whose PPD names none (raw queues, the
// built-in file printer, no CUPS at all), the host's fonts stand in: the families of its font
// files. Names may repeat. Returns the number of names visited, or kSpoolerFailed when the
// printer's fonts cannot be asked for.
int SpoolerEnumPrinterFonts(const char* printer, SpoolerFontVisitor visit, void* context);

// ---- device settings of a job ----
//
// A job's device settings are a block of bytes the print system understands: the printer's
// DEVMODEW on Windows; on Linux a small record of the settings CUPS takes with a job (copies).
// They are read into a block the caller provides, changed there, and then handed over in a
// movable global memory block (Windows; plain memory on Linux), which JobSettings owns.

// Size in bytes of the printer's device settings; 0 when the printer or its driver cannot say.
size_t SpoolerJobSettingsSize(const char* printer);
// The printer's current settings, read without a dialogue into block (size bytes).
int SpoolerReadJobSettings(const char* printer, void* block, size_t size);
// Sets the copy count of a settings block.
int SpoolerSetJobCopies(void* block, size_t size, int copies);
// The copy count a settings block holds, or -1.
int SpoolerJobCopies(const void* block, size_t size);

using JobSettingsHandle = void*;  // HGLOBAL on Windows

JobSettingsHandle SpoolerPublishJobSettings(const void* block, size_t size);
void SpoolerReleaseJobSettings(JobSettingsHandle handle);
// The copy count held by a handed-over block, or -1.
int SpoolerPublishedJobCopies(JobSettingsHandle handle);

// Owns handed-over device settings; releases them on destruction.
class JobSettings {
  public:
    JobSettings() = default;
    ~JobSettings() { Reset(); }
    JobSettings(const JobSettings&) = delete;
    JobSettings& operator=(const JobSettings&) = delete;

    JobSettingsHandle Get() const { return handle_; }
    bool Valid() const { return handle_ != nullptr; }
    int Copies() const { return handle_ != nullptr ? SpoolerPublishedJobCopies(handle_) : -1; }
    void Adopt(JobSettingsHandle handle) {
        Reset();
        handle_ = handle;
    }
    // Gives the block up to a caller that releases it itself.
    JobSettingsHandle Release() {
        JobSettingsHandle held = handle_;
        handle_ = nullptr;
        return held;
    }
    void Reset() {
        if (handle_ != nullptr) SpoolerReleaseJobSettings(handle_);
        handle_ = nullptr;
    }

  private:
    JobSettingsHandle handle_ = nullptr;
};

// ---- an open printer and its spooler jobs ----

// Job conditions. The values are the Windows spooler's job status bits; on Linux they are made
// from the CUPS job-state and job-state-reasons.
constexpr uint32_t kSpoolJobPaused = 0x1;
constexpr uint32_t kSpoolJobError = 0x2;
constexpr uint32_t kSpoolJobPrinting = 0x10;
constexpr uint32_t kSpoolJobOffline = 0x20;
constexpr uint32_t kSpoolJobPaperOut = 0x40;
constexpr uint32_t kSpoolJobPrinted = 0x80;
constexpr uint32_t kSpoolJobBlockedQueue = 0x200;
constexpr uint32_t kSpoolJobUserIntervention = 0x400;

// The most jobs one enumeration reports (jobs 0 to 999 of the queue).
constexpr int kSpoolerMaxJobs = 1000;

// One job of a printer's spooler queue (Windows: its JOB_INFO_1).
struct SpoolerJobInfo {
    uint32_t id;
    char user[kSpoolerNameSize];
    char document[kSpoolerTextSize];
    char statusText[kSpoolerTextSize];  // the spooler's own words for the job's state, or ""
    uint32_t status;                    // kSpoolJob... bits
};

// A printer opened through the spooler (Windows: a printer handle).
struct SpoolerPrinter;

// Opens the printer; null when the spooler does not know it.
SpoolerPrinter* SpoolerOpenPrinter(const char* printer);

// Closes the printer and releases it, also when the spooler reports a failure (kSpoolerFailed).
int SpoolerClosePrinter(SpoolerPrinter* printer);

// The printer's jobs in queue order, the active job first. Fills at most capacity entries (out may
// be null with capacity 0) and returns how many jobs the queue holds, which may be more than were
// filled; kSpoolerFailed when the spooler cannot enumerate.
int SpoolerEnumJobs(SpoolerPrinter* printer, SpoolerJobInfo* out, int capacity);

// The printer's kPrinter... status bits.
int SpoolerGetPrinterStatus(SpoolerPrinter* printer, uint32_t* status);

}  // namespace vx
