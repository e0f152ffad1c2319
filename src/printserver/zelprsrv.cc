// Construction and destruction of the print-server object: settings key, directories, trace
// options, log files, locks, list manager and caches, in that order; torn down in reverse.
#include "printserver/zelprsrv.h"

#include <cstdlib>
#include <cstring>

#include "base/api_trace.h"
#include "base/dirpath.h"
#include "base/process.h"
#include "lists/zlplist.h"
#include "printserver/zel_host.h"

namespace vx {

Czelprsrv* g_prsrv = nullptr;

namespace {
constexpr size_t kIntCacheElement = 260;     // name (256) + value (4)
constexpr size_t kStringCacheElement = 512;  // name (256) + value (256)
}  // namespace

Czelprsrv::Czelprsrv(const PrsrvConfig& config) : runMode_(config.runMode), hive_(config.hive) {
    hooks_ = {this, HookAlloc, HookRelease, HookError};
    FillZelHost(&host_, this);
    parent_ = config.parent;
    if (parent_ != nullptr) {
        caches_ = parent_->caches_;
        cacheLock_ = parent_->cacheLock_;
    } else {
        // The list manager is needed by the first settings read, which the directory rules make;
        // its creation is traced once the API log is open.
        ownCaches_.lists = new ClistMan(kIntCacheElement, &hooks_);
        SetListStoreHooks(&hooks_);
    }

    ResolveSettingsKey(config);
    ResolveDirectories(config);
    ReadTraceOptions();
    // The banner at the head of the log shows the library versions and the environment report
    // the default of "PDFasRAW": both must be known before the first log opens.
    ResolvePrintEnvironment(config);

    const char* extension = config.extension != nullptr ? config.extension : "";
    bool mainLogWanted = logLevel_ > 0;
    if (config.suffix == nullptr && strcmp(extension, ".dbg") != 0) mainLogWanted = false;
    if (mainLogWanted) {
        bool switchAtOpen = runMode_ != kRunModeTool;
        OpenLogFile(config.logBaseName, config.suffix, extension, mainLogPath_, &mainLog_,
                    switchAtOpen);
        if (!switchAtOpen && mainLog_ != nullptr) WriteEnvironmentReport(1);
    }
    if (winApiLog_ > 0)
        OpenLogFile(config.apiLogBaseName, config.suffix, extension, apiLogPath_, &apiLog_, false);
    SetApiTraceSink(ApiSink, this);

    TraceApi("InitializeCriticalSection(%p)\n", static_cast<void*>(&traceLock_));
    TraceApi("InitializeCriticalSection(%p)\n", static_cast<void*>(&libraryLock_));
    if (parent_ == nullptr) {
        TraceApi("new listManager(..) = %p\n", static_cast<void*>(ownCaches_.lists));
        EnsureCacheLists();
    }
    ReportPdfLibraryCheck();
    if (config.loadLibraries) {
        LoadLibraries();
        GetInstalledPrinters();
    }
}

Czelprsrv::~Czelprsrv() {
    CloseRegistryHandle(readKey_);
    CloseRegistryHandle(writeKey_);
    CloseRegistryHandle(portKey_);
    CloseRegistryHandle(pdfKey_);

    if (parent_ == nullptr && ownCaches_.lists != nullptr) {
        // The cache lock before the list lock, as every cache operation takes them: ending a
        // list traces its memory, which takes the cache lock (it is the trace lock) again.
        LockHold hold(*cacheLock_);
        if (ownCaches_.intList != kInvalidListId)
            ownCaches_.lists->swlalExitList(ownCaches_.intList);
        if (ownCaches_.stringList != kInvalidListId)
            ownCaches_.lists->swlalExitList(ownCaches_.stringList);
        TraceApi("delete listManager(%p)\n", static_cast<void*>(ownCaches_.lists));
        delete ownCaches_.lists;
        ownCaches_ = SettingsCaches{};
        SetListStoreHooks(nullptr);
    }
    ReleasePrinters();
    ReleaseLibraries();

    TraceApi("DeleteCriticalSection(%p)\n", static_cast<void*>(&libraryLock_));
    TraceApi("DeleteCriticalSection(%p)\n", static_cast<void*>(&traceLock_));
    SetApiTraceSink(nullptr, nullptr);

    LockHold hold(traceLock_);
    if (mainLog_ != nullptr) fclose(mainLog_);
    if (apiLog_ != nullptr) fclose(apiLog_);
    mainLog_ = nullptr;
    apiLog_ = nullptr;
    if (deleteLogsAtEnd_) {
        if (mainLogPath_[0] != '\0') FsRemove(mainLogPath_);
        if (apiLogPath_[0] != '\0') FsRemove(apiLogPath_);
    }
}

void Czelprsrv::CloseRegistryHandle(RegKey& key) {
    if (!key.Valid()) return;
    RegHandle handle = key.Get();
    long rc = key.Close();
    TraceApi("RegCloseKey(%p) = %i\n", handle, static_cast<int>(rc));
}

void Czelprsrv::ResolveSettingsKey(const PrsrvConfig& config) {
    const char* key = config.settingsKey;
    if (key == nullptr) {
        if (runMode_ == kRunModeTessel)
            key = kTesselSettingsKey;
        else if (runMode_ == kRunModeManager)
            key = kManagerSettingsKey;
        else
            key = kDefaultSettingsKey;
    }
    CopyText(settingsKey_, key);
    // The PDF product's key is opened once for the library binding; absent is normal.
    RegOpen(kHiveLocalMachine, kPdfProductKey, pdfKey_.Receive());
}

// A directory from the creator, else from a string setting when it is usable, else
// <base directory>/<fallbackName>/ created when missing. Always ends in a separator.
void Czelprsrv::ResolveDirectory(const char* given, const char* setting, const char* fallbackName,
                                 char* out) {
    if (given != nullptr) {
        CopyText(out, kMaxPath, given);
        return;
    }
    // The setting's built-in default ("No value") means it is not set.
    const Setting* row = FindSetting(setting);
    const char* unset = row != nullptr ? row->defaultText : "";
    char value[kRegistryTextSize];
    GetGlobalString(setting, unset, value, sizeof value);
    if (strcmp(value, unset) != 0 && value[0] != '\0') {
        AppendSeparator(value, sizeof value);
        if (UsableDirectory(value)) {
            CopyText(out, kMaxPath, value);
            return;
        }
    }
    char base[kMaxPath];
    if (GetBaseDirectory(base, sizeof base) != 0) CopyText(base, ".");
    FormatText(out, kMaxPath, "%s%c%s%c", base, kPathSeparator, fallbackName, kPathSeparator);
    MakeDirectoryPath(out);
}

void Czelprsrv::ResolveDirectories(const PrsrvConfig& config) {
    ResolveDirectory(config.logDirectory, "LogPath", "Logs", logDir_);
    ResolveDirectory(config.logDirectory, "LogPath", "Logs", tempDir_);
    // Printed output is a machine-wide matter: a user-mode run keeps no output directory.
    if (hive_ != kHiveCurrentUser) ResolveDirectory(nullptr, "OutputPath", "Output", outputDir_);
}

void Czelprsrv::ReadTraceOptions() {
    logLevel_ = GetSetting("LogLevel");
    enableEudc_ = GetSetting("EnableEUDC");
    winApiLog_ = GetSetting("WinAPILog");
    memoryLog_ = GetSetting("MemoryLog");
    deleteLogsAtEnd_ = GetSetting("KeepFile") == 0;
    pdfPacketSize_ = GetSetting("PDFPacketSize");
    noLogFileSwitch_ = GetSetting("NoLogFileSwitch");
    maxLogFileSize_ = GetSetting("MaxLogFileSize");
    maxLogFiles_ = GetSetting("MaxLogFiles");
}

void Czelprsrv::EnsureCacheLists() {
    SettingsCaches& c = *caches_;
    if (c.lists == nullptr) return;
    if (c.intList == kInvalidListId && c.lists->swlalInitList(kIntCacheElement, &c.intList) != 0) {
        c.intList = kInvalidListId;
        TraceError("Init integer cache list failed\n");
    }
    if (c.stringList == kInvalidListId &&
        c.lists->swlalInitList(kStringCacheElement, &c.stringList) != 0) {
        c.stringList = kInvalidListId;
        TraceError("Init string cache list failed\n");
    }
}

void Czelprsrv::SetLibraryVersions(const char* zelwin, const char* tolmapdf) {
    CopyText(zelwinVersion_, zelwin);
    CopyText(tolmapdfVersion_, tolmapdf);
}

void* Czelprsrv::HookAlloc(void* context, size_t size, const char* file, int line,
                           const char* label) {
    return static_cast<Czelprsrv*>(context)->TrackedAlloc(size, file, line, label, 0);
}

void Czelprsrv::HookRelease(void* context, void* block, const char* file, int line,
                            const char* label) {
    static_cast<Czelprsrv*>(context)->TrackedFree(block, file, line, label, 0);
}

void Czelprsrv::HookError(void* context, const char* text) {
    static_cast<Czelprsrv*>(context)->TraceError("%s", text);
}

void Czelprsrv::ApiSink(void* context, const char* line) {
    static_cast<Czelprsrv*>(context)->TraceApi("%s", line);
}

}  // namespace vx
