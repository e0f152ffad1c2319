// Diagnostic reports of a printer: what its driver says it can do, and the driver itself.
#include <cstdarg>
#include <cstring>

#include "printserver/zelprsrv.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "zelprsrv";
constexpr int kMaxReportLines = 500;
constexpr size_t kReportLineSize = 1024;

// The report's lines, collected before any is written; lines beyond the last are dropped.
struct ReportLines {
    char (*lines)[kReportLineSize];
    int count;
};

void AddLine(ReportLines* report, const char* fmt, ...) VX_PRINTF(2, 3);
void AddLine(ReportLines* report, const char* fmt, ...) {
    if (report->count >= kMaxReportLines) return;
    va_list args;
    va_start(args, fmt);
    FormatTextV(report->lines[report->count++], kReportLineSize, fmt, args);
    va_end(args);
}

const char* YesNo(int32_t flag) {
    return flag != 0 ? "YES" : "NO";
}

}  // namespace

void Czelprsrv::ReportPrinterSettings(const char* printer, int target) {
    if (printer == nullptr) return;
    ReportLines report = {};
    report.lines = static_cast<char(*)[kReportLineSize]>(
        TrackedAlloc(kMaxReportLines * kReportLineSize, kSourceFile, __LINE__, "ReportLines", 0));
    if (report.lines == nullptr) return;

    char port[kSpoolerNameSize];
    DeterminePort(printer, port, sizeof port);
    AddLine(&report, "Printer name: %s\n", printer);

    int count = 0;
    SpoolerDeviceItem* items = ReadDeviceList(printer, port, kDeviceBins, &count);
    for (int i = 0; i < count; ++i)
        AddLine(&report, "Tray name: %s  Internal tray ID: %i\n", items[i].name, items[i].id);
    if (items != nullptr) TrackedFree(items, kSourceFile, __LINE__, "DeviceCapabilities", 0);

    items = ReadDeviceList(printer, port, kDeviceMediaTypes, &count);
    for (int i = 0; i < count; ++i)
        AddLine(&report, "Media name: %s  Media ID: %i\n", items[i].name, items[i].id);
    if (items != nullptr) TrackedFree(items, kSourceFile, __LINE__, "DeviceCapabilities", 0);

    // Lists of names only, each under its heading.
    struct NameList {
        const char* heading;
        SpoolerDeviceList list;
    };
    const NameList nameLists[] = {
        {"Paper formats:\n", kDeviceMediaReady},
        {"Driver files:\n", kDeviceDependentFiles},
        {"PDLs:\n", kDeviceLanguages},
    };
    for (const NameList& nameList : nameLists) {
        AddLine(&report, "%s", nameList.heading);
        items = ReadDeviceList(printer, port, nameList.list, &count);
        for (int i = 0; i < count; ++i) AddLine(&report, "%s\n", items[i].name);
        if (items != nullptr) TrackedFree(items, kSourceFile, __LINE__, "DeviceCapabilities", 0);
    }

    SpoolerDeviceFacts facts;
    SpoolerGetDeviceFacts(printer, port, &facts);
    AddLine(&report, "Color Printer: %s\n", YesNo(facts.color));
    AddLine(&report, "Maximum number of copies: %d\n", facts.maxCopies);
    AddLine(&report, "Printer driver version: %d\n", facts.driverVersion);
    AddLine(&report, "Driver version specification number: %d\n", facts.specVersion);
    AddLine(&report, "Duplex: %s\n", YesNo(facts.duplex));
    AddLine(&report, "dmFields value: %d\n", static_cast<int>(facts.fields));
    AddLine(&report, "Maximum paper width: %i\n", facts.maxPaperWidth);
    AddLine(&report, "Maximum paper height: %i\n", facts.maxPaperHeight);
    AddLine(&report, "Minimum paper width: %i\n", facts.minPaperWidth);
    AddLine(&report, "Minimum paper height: %i\n", facts.minPaperHeight);
    AddLine(&report, "Available memory: %d\n", facts.memory);
    if (facts.printRateUnit == kRateCharactersPerSecond)
        AddLine(&report, "Print rate: %d characters per second\n", facts.printRate);
    else if (facts.printRateUnit == kRateInchesPerMinute)
        AddLine(&report, "Print rate: %d inches per minute\n", facts.printRate);
    else if (facts.printRateUnit == kRateLinesPerMinute)
        AddLine(&report, "Print rate: %d lines per minute\n", facts.printRate);
    AddLine(&report, "Print rate: %d pages per minute\n", facts.pagesPerMinute);

    {
        LockHold hold(traceLock_);
        ReportLine(target, kTraceNormal, "Printer settings for printer %s:\n", printer);
        for (int i = 0; i < report.count; ++i)
            ReportLine(target, kTraceNormal, "%s", report.lines[i]);
    }
    TrackedFree(report.lines, kSourceFile, __LINE__, "ReportLines", 0);
}

void Czelprsrv::ReportDriverInfo(const SpoolerDriverInfo& info, int target) {
    // Each field with its value, or its "missing" line when the driver left it empty.
    struct Field {
        const char* value;
        const char* present;
        const char* missing;
    };
    const Field fields[] = {
        {info.name, "Name: %s\n", "Name (pName) missing\n"},
        {info.environment, "Environment: %s\n", "Environment (pEnvironment) missing\n"},
        {info.driverPath, "Path: %s\n", "Path (pDriverPath) missing\n"},
        {info.dataFile, "Data file: %s\n", "Data file (pDataFile) missing\n"},
        {info.configFile, "Config file: %s\n", "Config file (pConfigFile) missing\n"},
        {info.helpFile, "Help file: %s\n", "Help file (pHelpFile) missing\n"},
        {info.dependentFiles, "Dependent files: %s\n",
         "Dependent files (pDependentFiles) missing\n"},
        {info.monitorName, "Monitor name: %s\n", "Monitor name (pMonitorName) missing\n"},
        {info.defaultDataType, "Default data type: %s\n",
         "Default data type (pDefaultDataType) missing\n"},
        {info.previousNames, "Previous names: %s\n",
         "Previous names (pszzPreviousNames) missing\n"},
        {info.oemUrl, "URL: %s\n", "URL (pszOEMUrl) missing\n"},
        {info.provider, "Provider: %s\n", "Provider (pszProvider) missing\n"},
        {info.hardwareId, "Hardware ID: %s\n", "Hardware ID (pszHardwareID) missing\n"},
        {info.manufacturer, "Manufacturer name: %s\n", "Manufacturer name (pszMfgName) missing\n"},
    };
    LockHold hold(traceLock_);
    for (const Field& field : fields) {
        if (field.value[0] != '\0')
            ReportLine(target, kTraceNormal, field.present, field.value);
        else
            ReportLine(target, kTraceNormal, "%s", field.missing);
    }
    // The driver's version is a 64-bit number; the report has always shown its low 32 bits.
    ReportLine(target, kTraceNormal, "Driver version: %d\n",
               static_cast<int>(info.driverVersion & 0xFFFFFFFFu));
    ReportLine(target, kTraceNormal, "OS version: %d\n", static_cast<int>(info.osVersion));
    ReportLine(target, kTraceNormal, "****************************************************\n");
}

int Czelprsrv::ReportPrinterDriver(const char* printer, int target) {
    auto* info = static_cast<SpoolerDriverInfo*>(
        TrackedAlloc(sizeof(SpoolerDriverInfo), kSourceFile, __LINE__, "DRIVER_INFO_6", 0));
    if (info == nullptr) return -1;
    int rc = SpoolerGetDriverInfo(printer, info) == kSpoolerOk ? 0 : -1;
    if (rc == 0)
        ReportDriverInfo(*info, target);
    else
        TraceError("GetPrinterDriver failed for printer %s\n", printer != nullptr ? printer : "");
    TrackedFree(info, kSourceFile, __LINE__, "DRIVER_INFO_6", 0);
    return rc;
}

}  // namespace vx
