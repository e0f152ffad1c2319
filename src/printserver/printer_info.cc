// The printers installed on the host, a printer's port, the mapping of the application server's
// tray numbers ("ZELID") to the printer's paper bins, and the device settings of a job.
#include <cstring>

#include "base/registry.h"
#include "printserver/zelprsrv.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "zelprsrv";
constexpr const char* kPortNotFound = "Not found";
constexpr size_t kPortSize = 101;  // ports are at most 100 characters
constexpr int kPortMissing = 9;
constexpr int kMaxCopies = 0x7FFF;  // the device settings keep the copy count in 16 bits

constexpr const char* kAlternativePrintersKey =
    "SYSTEM\\CurrentControlSet\\Control\\Print\\Printers\\";
constexpr const char* kClusterResourcesKey = "Cluster\\Resources\\";
constexpr const char* kDevicesKey = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Devices";

// Collects printer names into the installed printer list while the spooler enumerates.
struct PrinterListFill {
    InstalledPrinter* printers;
    int32_t capacity;
    int32_t filled;
};

int AddInstalledPrinter(void* context, const SpoolerPrinterInfo& printer) {
    auto* fill = static_cast<PrinterListFill*>(context);
    if (fill->filled >= fill->capacity) return 1;
    CopyText(fill->printers[fill->filled++].name, printer.name);
    return 0;
}

// A network printer's name without its leading "\\", as the tray settings are keyed.
const char* TraySettingsName(const char* printer) {
    return StartsWith(printer, "\\\\") ? printer + 2 : printer;
}

// The part of a printer name after its last backslash ("\\server\printer" gives "printer").
const char* ShortPrinterName(const char* printer) {
    const char* last = strrchr(printer, '\\');
    return last != nullptr ? last + 1 : printer;
}

}  // namespace

int Czelprsrv::GetInstalledPrinters() {
    LockHold hold(libraryLock_);
    ReleasePrinters();
    printersListed_ = true;
    int count = SpoolerEnumPrinters(nullptr, nullptr);
    if (count == kSpoolerNoMemory) {
        TraceError("GetInstalledPrinters: LocalAlloc failed\n");
        return -1;
    }
    if (count < 0) {
        TraceError("GetInstalledPrinters: EnumPrinters failed\n");
        return -1;
    }
    if (count == 0) return 0;
    auto* printers = static_cast<InstalledPrinter*>(
        TrackedAlloc(static_cast<size_t>(count) * sizeof(InstalledPrinter), kSourceFile, __LINE__,
                     "MyPrinters", 1));
    if (printers == nullptr) {
        TraceError("GetInstalledPrinters: LocalAlloc failed\n");
        return -1;
    }
    // Printers that appear between counting and listing wait for the next listing.
    PrinterListFill fill = {printers, count, 0};
    int rc = SpoolerEnumPrinters(AddInstalledPrinter, &fill);
    if (rc < 0) {
        TrackedFree(printers, kSourceFile, __LINE__, "MyPrinters", 1);
        TraceError(rc == kSpoolerNoMemory ? "GetInstalledPrinters: LocalAlloc failed\n"
                                          : "GetInstalledPrinters: EnumPrinters failed\n");
        return -1;
    }
    printers_ = printers;
    printerCount_ = fill.filled;
    return 0;
}

void Czelprsrv::ReleasePrinters() {
    LockHold hold(libraryLock_);
    for (int32_t i = 0; printers_ != nullptr && i < printerCount_; ++i) {
        if (printers_[i].trays == nullptr) continue;
        TrackedFree(printers_[i].trays, kSourceFile, __LINE__, "TrayInfo", 1);
        printers_[i].trays = nullptr;
    }
    if (printers_ != nullptr) TrackedFree(printers_, kSourceFile, __LINE__, "MyPrinters", 1);
    printers_ = nullptr;
    printerCount_ = 0;
}

void Czelprsrv::CachePort(const char* printer, const char* port) {
    StringCacheRemove(printer);
    StringCacheInsert(printer, port);
}

// The port from the registry. The key is opened on the first lookup and kept: later lookups,
// also for other printers, query that same key.
bool Czelprsrv::ReadRegistryPort(const char* printer, char* port, size_t size) {
    bool alternative = GetGlobalInt("UseAlternativPath", 0) != 0;
    char resource[kRegistryTextSize];
    GetGlobalString("ClusterResource", "No value", resource, sizeof resource);
    bool cluster = !alternative && strcmp(resource, "No value") != 0 && resource[0] != '\0';

    if (!portKey_.Valid()) {
        char path[kRegistryTextSize];
        RegHive hive = kHiveLocalMachine;
        if (alternative) {
            FormatText(path, sizeof path, "%s%s", kAlternativePrintersKey, printer);
        } else if (cluster) {
            FormatText(path, sizeof path, "%s%s\\Parameters\\Printers\\%s", kClusterResourcesKey,
                       resource, ShortPrinterName(printer));
            Trace(kTraceNotable, "RegistryPath = %s\n", path);
        } else {
            hive = kHiveCurrentUser;
            CopyText(path, kDevicesKey);
        }
        long rc = RegOpen(hive, path, portKey_.Receive());
        TraceApi("RegOpenKeyEx(%p, .., %p, ..) = %i for key %s\n", RegHiveHandle(hive),
                 portKey_.Get(), static_cast<int>(rc), path);
        if (rc != kRegOk) {
            portKey_.Close();
            return false;
        }
    }

    // The Devices key holds one value per printer: "driver,port".
    const char* valueName = alternative || cluster ? "Port" : printer;
    char text[kRegistryTextSize];
    uint32_t textSize = sizeof text;
    long rc = RegQueryText(portKey_.Get(), valueName, text, &textSize);
    TraceApi("RegQueryValueEx(%p, %s, ..) = %i\n", portKey_.Get(), valueName, static_cast<int>(rc));
    if (rc != kRegOk) return false;
    const char* found = text;
    if (!alternative && !cluster) {
        const char* comma = strchr(text, ',');
        if (comma == nullptr) return false;
        found = comma + 1;
    }
    if (found[0] == '\0') return false;
    CopyText(port, size, found);
    return true;
}

int Czelprsrv::DeterminePort(const char* printer, char* port, size_t size) {
    if (port == nullptr || size == 0) return kPortMissing;
    port[0] = '\0';
    if (printer == nullptr || printer[0] == '\0') return kPortMissing;
    const size_t cap = size < kPortSize ? size : kPortSize;

    char cached[256];
    if (StringCacheLookup(printer, cached, sizeof cached) && strcmp(cached, kPortNotFound) != 0) {
        CopyText(port, cap, cached);
        return 0;
    }

    LockHold hold(libraryLock_);
    Trace(kTraceNotable, "Determine port for printer %s\n", printer);
    char found[kPortSize] = "";
    bool known = false;
    auto* info = static_cast<SpoolerPrinterInfo*>(
        TrackedAlloc(sizeof(SpoolerPrinterInfo), kSourceFile, __LINE__, "PRINTER_INFO_2", 0));
    if (info != nullptr) {
        known = SpoolerGetPrinter(printer, info) == kSpoolerOk && info->port[0] != '\0';
        if (known) CopyText(found, info->port);
        TrackedFree(info, kSourceFile, __LINE__, "PRINTER_INFO_2", 0);
    }
    if (!known) known = ReadRegistryPort(printer, found, sizeof found);
    if (!known) {
        CachePort(printer, kPortNotFound);
        return kPortMissing;
    }
    CachePort(printer, found);
    Trace(kTraceNotable, "Port %s found for printer %s\n", found, printer);
    CopyText(port, cap, found);
    return 0;
}

// Reads one of the driver's lists into a tracked array; null (count 0) when the list is empty or
// cannot be read.
SpoolerDeviceItem* Czelprsrv::ReadDeviceList(const char* printer, const char* port,
                                             SpoolerDeviceList list, int* count) {
    *count = 0;
    int wanted = SpoolerGetDeviceList(printer, port, list, nullptr, 0);
    if (wanted <= 0) return nullptr;
    auto* items = static_cast<SpoolerDeviceItem*>(
        TrackedAlloc(static_cast<size_t>(wanted) * sizeof(SpoolerDeviceItem), kSourceFile, __LINE__,
                     "DeviceCapabilities", 0));
    if (items == nullptr) return nullptr;
    int filled = SpoolerGetDeviceList(printer, port, list, items, wanted);
    if (filled <= 0) {
        TrackedFree(items, kSourceFile, __LINE__, "DeviceCapabilities", 0);
        return nullptr;
    }
    *count = filled;
    return items;
}

int Czelprsrv::FillTrays(InstalledPrinter& printer) {
    char port[kPortSize];
    DeterminePort(printer.name, port, sizeof port);
    int count = 0;
    SpoolerDeviceItem* bins = ReadDeviceList(printer.name, port, kDeviceBins, &count);
    if (bins == nullptr) {
        Trace(kTraceNotable, "No tray info configured for printer %s.\n", printer.name);
        return -1;
    }
    auto* trays = static_cast<TrayEntry*>(TrackedAlloc(
        static_cast<size_t>(count) * sizeof(TrayEntry), kSourceFile, __LINE__, "TrayInfo", 1));
    if (trays == nullptr) {
        TrackedFree(bins, kSourceFile, __LINE__, "DeviceCapabilities", 0);
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        TrayEntry& tray = trays[i];
        CopyText(tray.binName, bins[i].name);
        tray.binId = static_cast<uint16_t>(bins[i].id);
        // Each bin's settings live under <settings key>\<printer>\Trays\<bin name>.
        char bin[kRegistryTextSize];
        FormatText(bin, sizeof bin, "%s\\Trays\\%s", TraySettingsName(printer.name), tray.binName);
        tray.zelId = static_cast<uint16_t>(GetPrinterInt(bin, "ZELID", 0));
        tray.trayId =
            tray.zelId != 0 ? static_cast<uint16_t>(GetPrinterInt(bin, "TrayID", 0)) : tray.binId;
        tray.filled = 1;
    }
    TrackedFree(bins, kSourceFile, __LINE__, "DeviceCapabilities", 0);
    printer.trays = trays;
    printer.trayCount = count;
    return 0;
}

int Czelprsrv::GetTrayIndex(const char* printer) {
    if (printer == nullptr) return -1;
    LockHold hold(libraryLock_);
    if (!printersListed_) GetInstalledPrinters();
    int32_t index = -1;
    for (int32_t i = 0; i < printerCount_ && index < 0; ++i)
        if (strcmp(printers_[i].name, printer) == 0) index = i;
    if (index < 0) {
        Trace(kTraceNotable, "Printer %s not in configuration list.\n", printer);
        return -1;
    }
    InstalledPrinter& entry = printers_[index];
    if (entry.trays != nullptr) {
        Trace(kTraceNotable, "Found index %d for printer %s\n", index, printer);
        for (int32_t i = 0; i < entry.trayCount; ++i)
            Trace(kTraceNotable, "ZEL ID = %u  Tray ID = %u\n", entry.trays[i].zelId,
                  entry.trays[i].trayId);
        return index;
    }
    return FillTrays(entry) == 0 ? index : -1;
}

int Czelprsrv::FindConfiguredTray(const char* printer, int zelId) {
    LockHold hold(libraryLock_);
    int index = GetTrayIndex(printer);
    if (index >= 0) {
        const InstalledPrinter& entry = printers_[index];
        for (int32_t i = 0; i < entry.trayCount; ++i) {
            if (entry.trays[i].zelId != zelId) continue;
            Trace(kTraceNotable, "Found configured tray ID %d for printer %s\n",
                  entry.trays[i].trayId, printer);
            return entry.trays[i].trayId;
        }
    }
    Trace(kTraceNotable, "No configured tray ID found for printer %s\n",
          printer != nullptr ? printer : "");
    return -1;
}

int Czelprsrv::GetJobDeviceSettings(const char* printer, int copies, JobSettings* out) {
    if (out == nullptr) return -1;
    out->Reset();
    size_t size = SpoolerJobSettingsSize(printer);
    if (size == 0) {
        TraceError("Cannot read the device settings of printer %s\n",
                   printer != nullptr ? printer : "");
        return -1;
    }
    void* block = TrackedAlloc(size, kSourceFile, __LINE__, "LPDEVMODEW", 0);
    if (block == nullptr) return -1;
    if (copies < 1) copies = 1;
    if (copies > kMaxCopies) copies = kMaxCopies;
    int rc = -1;
    if (SpoolerReadJobSettings(printer, block, size) != kSpoolerOk) {
        TraceError("Cannot read the device settings of printer %s\n", printer);
    } else if (SpoolerSetJobCopies(block, size, copies) == kSpoolerOk) {
        out->Adopt(SpoolerPublishJobSettings(block, size));
        rc = out->Valid() ? 0 : -1;
    }
    TrackedFree(block, kSourceFile, __LINE__, "LPDEVMODEW", 0);
    return rc;
}

}  // namespace vx
