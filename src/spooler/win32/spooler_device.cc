// A printer driver's device capabilities (DeviceCapabilitiesA) and its driver information
// (GetPrinterDriverA, level 6).
#include <cstring>

#include "base/text.h"
#include "spooler/spooler.h"
#include "spooler/win32/spooler_win32.h"

namespace vx {

namespace {

// How one list is asked for: the capability with the names, their width, and the capability
// with the identifiers and their width in bytes (0: no identifiers).
struct ListQuery {
    WORD namesCapability;
    size_t nameWidth;
    WORD idsCapability;
    size_t idWidth;
};

ListQuery QueryOf(SpoolerDeviceList list) {
    switch (list) {
        case kDeviceBins:
            return {DC_BINNAMES, kBinNameLength, DC_BINS, sizeof(WORD)};
        case kDeviceMediaTypes:
            return {DC_MEDIATYPENAMES, 64, DC_MEDIATYPES, sizeof(DWORD)};
        case kDeviceMediaReady:
            return {DC_MEDIAREADY, 64, 0, 0};
        case kDeviceDependentFiles:
            return {DC_FILEDEPENDENCIES, 64, 0, 0};
        case kDeviceLanguages:
            return {DC_PERSONALITY, 32, 0, 0};
    }
    return {0, 0, 0, 0};
}

int Capability(const char* printer, const char* port, WORD capability) {
    return DeviceCapabilitiesA(printer, port, capability, nullptr, nullptr);
}

// A value the driver does not report (-1) is 0.
int32_t Reported(int value) {
    return value < 0 ? 0 : value;
}

void CopyField(char* out, size_t cap, const char* text) {
    CopyText(out, cap, text != nullptr ? text : "");
}

// A list of texts, each ended by a zero and the list by a second one, joined with ", ".
void CopyTextList(char* out, size_t cap, const char* list) {
    out[0] = '\0';
    if (list == nullptr) return;
    for (const char* entry = list; *entry != '\0'; entry += strlen(entry) + 1) {
        if (out[0] != '\0') AppendText(out, cap, ", ");
        AppendText(out, cap, entry);
    }
}

}  // namespace

int SpoolerGetDeviceList(const char* printer, const char* port, SpoolerDeviceList list,
                         SpoolerDeviceItem* out, int capacity) {
    if (printer == nullptr) return kSpoolerFailed;
    ListQuery query = QueryOf(list);
    if (query.namesCapability == 0) return kSpoolerFailed;
    int count = Capability(printer, port, query.namesCapability);
    if (count < 0) return kSpoolerFailed;
    if (out == nullptr || capacity <= 0 || count == 0) return out == nullptr ? count : 0;

    // The driver writes all its entries: the buffers hold them all, the output takes what fits.
    LocalBlock names(static_cast<size_t>(count) * query.nameWidth + 1);
    LocalBlock ids(query.idWidth != 0 ? static_cast<size_t>(count) * query.idWidth : 1);
    if (!names.Valid() || !ids.Valid()) return kSpoolerNoMemory;
    if (DeviceCapabilitiesA(printer, port, query.namesCapability, names.Chars(), nullptr) < 0)
        return kSpoolerFailed;
    bool withIds = query.idWidth != 0 && DeviceCapabilitiesA(printer, port, query.idsCapability,
                                                             ids.Chars(), nullptr) >= 0;

    int filled = count < capacity ? count : capacity;
    for (int i = 0; i < filled; ++i) {
        SpoolerDeviceItem& item = out[i];
        item = SpoolerDeviceItem{};
        // A name that fills its width has no terminator.
        CopyTextN(item.name, sizeof item.name,
                  names.Chars() + static_cast<size_t>(i) * query.nameWidth, query.nameWidth);
        if (!withIds) continue;
        if (query.idWidth == sizeof(WORD))
            item.id = reinterpret_cast<const WORD*>(ids.Bytes())[i];
        else
            item.id = static_cast<int32_t>(reinterpret_cast<const DWORD*>(ids.Bytes())[i]);
    }
    return filled;
}

int SpoolerGetDeviceFacts(const char* printer, const char* port, SpoolerDeviceFacts* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerDeviceFacts{};
    if (printer == nullptr) return kSpoolerFailed;
    // Every driver reports the settings it supports: no answer means no driver for the printer.
    int fields = Capability(printer, port, DC_FIELDS);
    if (fields < 0) return kSpoolerFailed;
    out->fields = static_cast<uint32_t>(fields);
    out->color = Reported(Capability(printer, port, DC_COLORDEVICE));
    out->maxCopies = Reported(Capability(printer, port, DC_COPIES));
    out->driverVersion = Reported(Capability(printer, port, DC_DRIVER));
    out->specVersion = Reported(Capability(printer, port, DC_VERSION));
    out->duplex = Reported(Capability(printer, port, DC_DUPLEX));
    // The extents come as two 16-bit numbers in one result: width low, height high.
    int maxExtent = Capability(printer, port, DC_MAXEXTENT);
    if (maxExtent > 0) {
        out->maxPaperWidth = LOWORD(maxExtent);
        out->maxPaperHeight = HIWORD(maxExtent);
    }
    int minExtent = Capability(printer, port, DC_MINEXTENT);
    if (minExtent > 0) {
        out->minPaperWidth = LOWORD(minExtent);
        out->minPaperHeight = HIWORD(minExtent);
    }
    out->memory = Reported(Capability(printer, port, DC_PRINTERMEM));
    out->printRate = Reported(Capability(printer, port, DC_PRINTRATE));
    out->printRateUnit = Reported(Capability(printer, port, DC_PRINTRATEUNIT));
    out->pagesPerMinute = Reported(Capability(printer, port, DC_PRINTRATEPPM));
    return kSpoolerOk;
}

int SpoolerGetDriverInfo(const char* printer, SpoolerDriverInfo* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerDriverInfo{};
    PrinterHandle handle;
    if (!handle.Open(printer)) return kSpoolerFailed;
    DWORD needed = 0;
    if (!GetPrinterDriverA(handle.Get(), nullptr, 6, nullptr, 0, &needed) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return kSpoolerFailed;
    if (needed == 0) return kSpoolerFailed;
    LocalBlock buffer(needed);
    if (!buffer.Valid()) return kSpoolerNoMemory;
    if (!GetPrinterDriverA(handle.Get(), nullptr, 6, buffer.Bytes(), needed, &needed))
        return kSpoolerFailed;

    const auto& info = *reinterpret_cast<const DRIVER_INFO_6A*>(buffer.Bytes());
    CopyField(out->name, sizeof out->name, info.pName);
    CopyField(out->environment, sizeof out->environment, info.pEnvironment);
    CopyField(out->driverPath, sizeof out->driverPath, info.pDriverPath);
    CopyField(out->dataFile, sizeof out->dataFile, info.pDataFile);
    CopyField(out->configFile, sizeof out->configFile, info.pConfigFile);
    CopyField(out->helpFile, sizeof out->helpFile, info.pHelpFile);
    CopyTextList(out->dependentFiles, sizeof out->dependentFiles, info.pDependentFiles);
    CopyField(out->monitorName, sizeof out->monitorName, info.pMonitorName);
    CopyField(out->defaultDataType, sizeof out->defaultDataType, info.pDefaultDataType);
    CopyTextList(out->previousNames, sizeof out->previousNames, info.pszzPreviousNames);
    CopyField(out->oemUrl, sizeof out->oemUrl, info.pszOEMUrl);
    CopyField(out->provider, sizeof out->provider, info.pszProvider);
    CopyField(out->hardwareId, sizeof out->hardwareId, info.pszHardwareID);
    CopyField(out->manufacturer, sizeof out->manufacturer, info.pszMfgName);
    out->osVersion = info.cVersion;
    out->driverVersion = info.dwlDriverVersion;
    return kSpoolerOk;
}

}  // namespace vx
