// Reading and writing the service's settings: text values under the settings key, per-printer
// overrides in a subkey named after the printer, integers as decimal or "0x" hexadecimal text.
// Reading never fails toward the caller: a missing key or value yields the default. Every
// registry call is echoed to the API log.
#include <cstring>
#include <mutex>

#include "base/eventlog.h"
#include "base/syserror.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// Guards the first opening of the read and write handles: threads that read or write a setting
// for the first time at once must not each open the key, nor use a handle that another one is
// just storing. Once stored, a handle stays until the object goes. The API trace is written after
// the lock is released, so that it is never held together with the trace lock. Never destroyed.
std::mutex& KeyOpenLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}

}  // namespace

bool Czelprsrv::OpenReadHandle() {
    long rc = kRegOk;
    RegHandle opened = nullptr;
    {
        std::lock_guard<std::mutex> hold(KeyOpenLock());
        if (readKey_.Valid()) return true;
        rc = RegOpen(hive_, settingsKey_, readKey_.Receive());
        opened = readKey_.Get();
        if (rc != kRegOk) readKey_.Close();
    }
    TraceApi("RegOpenKeyEx(%p, .., %p, ..) = %i for key %s\n", RegHiveHandle(hive_), opened,
             static_cast<int>(rc), settingsKey_);
    return rc == kRegOk;
}

bool Czelprsrv::OpenWriteHandle() {
    long rc = kRegOk;
    RegHandle opened = nullptr;
    {
        std::lock_guard<std::mutex> hold(KeyOpenLock());
        if (writeKey_.Valid()) return true;
        rc = RegCreate(hive_, settingsKey_, writeKey_.Receive());
        opened = writeKey_.Get();
        if (rc != kRegOk) writeKey_.Close();
    }
    TraceApi("RegCreateKeyEx(%p, .., %p, ..) = %i\n", RegHiveHandle(hive_), opened,
             static_cast<int>(rc));
    if (rc != kRegOk) {
        SetLastSystemError(static_cast<uint32_t>(rc));
        ReportLastError("RegCreateKeyEx", kEventWarning);
        return false;
    }
    return true;
}

int32_t Czelprsrv::GetGlobalInt(const char* name, int32_t def) {
    int32_t value = def;
    if (IntCacheLookup(name, &value)) return value;
    if (!OpenReadHandle()) return def;  // not cached: the key may appear later
    char text[kRegistryTextSize];
    uint32_t size = sizeof text;
    long rc = RegQueryText(readKey_.Get(), name, text, &size);
    TraceApi("RegQueryValueEx(%p, %s, ..) = %i\n", readKey_.Get(), name, static_cast<int>(rc));
    value = rc == kRegOk ? ParseSettingInt(text) : def;
    IntCacheInsert(name, value);
    return value;
}

int32_t Czelprsrv::GetPrinterInt(const char* printer, const char* name, int32_t def) {
    char cacheKey[256];
    FormatText(cacheKey, sizeof cacheKey, "%s\\%s", printer != nullptr ? printer : "",
               name != nullptr ? name : "");
    int32_t value = def;
    if (IntCacheLookup(cacheKey, &value)) return value;

    char subkey[kMaxPath];
    FormatText(subkey, sizeof subkey, "%s\\%s", settingsKey_, printer != nullptr ? printer : "");
    RegKey key;
    long rc = RegOpen(hive_, subkey, key.Receive());
    TraceApi("RegOpenKeyEx(%p, .., %p, ..) = %i for key %s\n", RegHiveHandle(hive_), key.Get(),
             static_cast<int>(rc), subkey);
    value = def;
    if (rc == kRegOk) {
        char text[kRegistryTextSize];
        uint32_t size = sizeof text;
        rc = RegQueryText(key.Get(), name, text, &size);
        TraceApi("RegQueryValueEx(%p, %s, ..) = %i for key %s\n", key.Get(), name,
                 static_cast<int>(rc), subkey);
        if (rc == kRegOk) value = ParseSettingInt(text);
        TraceApi("RegCloseKey(%p)\n", key.Get());
        key.Close();
    }
    IntCacheInsert(cacheKey, value);
    return value;
}

int32_t Czelprsrv::GetOptionValue(const char* printer, const char* name, int32_t def) {
    // "PDFEmitPS" is a per-printer switch only: its global value is never consulted.
    if (name != nullptr && strcmp(name, "PDFEmitPS") == 0) {
        if (printer == nullptr) return def;
        int32_t local = GetPrinterInt(printer, name, 0);
        return local > def ? local : def;
    }
    int32_t global = GetGlobalInt(name, def);
    Trace(kTraceDetail, "Global value for %s = %u.\n", name, static_cast<unsigned>(global));
    if (printer == nullptr) return global;
    int32_t local = GetPrinterInt(printer, name, global);
    Trace(kTraceDetail, "Local value for %s for printer %s = %u.\n", name, printer,
          static_cast<unsigned>(local));
    return local;
}

void Czelprsrv::GetGlobalString(const char* name, const char* def, char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) return;
    if (StringCacheLookup(name, buffer, size)) return;
    if (!OpenReadHandle()) {
        CopyText(buffer, size, def);
        return;
    }
    char text[kRegistryTextSize];
    uint32_t textSize = sizeof text;
    long rc = RegQueryText(readKey_.Get(), name, text, &textSize);
    TraceApi("RegQueryValueEx(%p, %s, ..) = %i\n", readKey_.Get(), name, static_cast<int>(rc));
    if (rc == kRegOk) {
        CopyTextN(buffer, size, text, strlen(text) + 1);
        StringCacheInsert(name, text);
    } else {
        StringCacheInsert(name, def);
        CopyText(buffer, size, def);
    }
}

void Czelprsrv::GetPrinterString(const char* printer, const char* name, const char* def,
                                 char* buffer, uint32_t* size) {
    if (buffer == nullptr || size == nullptr || *size == 0) return;
    const uint32_t capacity = *size;
    GetGlobalString(name, def, buffer, capacity);
    if (printer == nullptr) return;

    char subkey[kMaxPath];
    FormatText(subkey, sizeof subkey, "%s\\%s", settingsKey_, printer);
    RegKey key;
    long rc = RegOpen(hive_, subkey, key.Receive());
    TraceApi("RegOpenKeyEx(%p, .., %p, ..) = %i for key %s\n", RegHiveHandle(hive_), key.Get(),
             static_cast<int>(rc), subkey);
    if (rc != kRegOk) return;
    // The printer's value is read with the caller's size, at most 1025 characters.
    char text[1025];
    uint32_t textSize = capacity < sizeof text ? capacity : sizeof text;
    rc = RegQueryText(key.Get(), name, text, &textSize);
    TraceApi("RegQueryValueEx(%p, %s, ..) = %i for key %s\n", key.Get(), name, static_cast<int>(rc),
             subkey);
    if (rc == kRegOk) {
        *size = textSize;
        CopyTextN(buffer, capacity, text, textSize);
    }
    TraceApi("RegCloseKey(%p)\n", key.Get());
}

// Writes a text value through the write handle; false when it could not be written.
bool Czelprsrv::WriteGlobalText(const char* name, const char* text) {
    if (!OpenWriteHandle()) return false;
    // The data length leaves out the terminator; readers must not rely on a stored one.
    long rc = RegSetText(writeKey_.Get(), name, text, static_cast<uint32_t>(strlen(text)));
    TraceApi("RegSetValueEx(%p, %s, ..) = %i\n", writeKey_.Get(), name, static_cast<int>(rc));
    if (rc != kRegOk) {
        SetLastSystemError(static_cast<uint32_t>(rc));
        ReportLastError("RegSetValueEx", kEventWarning);
    }
    return true;
}

void Czelprsrv::SetGlobalInt(const char* name, int32_t value) {
    char text[16];
    FormatText(text, sizeof text, "%d", value);
    if (!WriteGlobalText(name, text)) return;
    // The running service sees the new value even when the registry refused it.
    IntCacheRemove(name);
    IntCacheInsert(name, value);
}

void Czelprsrv::SetGlobalString(const char* name, const char* text) {
    if (text == nullptr) text = "";
    if (!WriteGlobalText(name, text)) return;
    StringCacheRemove(name);
    StringCacheInsert(name, text);
}

int Czelprsrv::DeleteGlobalValue(const char* name) {
    // Deletes go through the write handle, which only a write opens: an object that has written
    // nothing yet deletes nothing. Administrators rely on "-dk" behaving exactly so.
    RegHandle key = nullptr;
    {
        std::lock_guard<std::mutex> hold(KeyOpenLock());
        key = writeKey_.Get();
    }
    if (key == nullptr) return -1;
    long rc = RegRemoveValue(key, name);
    TraceApi("RegDeleteValue(%p, %s) = %i\n", key, name, static_cast<int>(rc));
    // The caches keep the old value: the running service goes on with what it has read.
    return rc == kRegOk ? 0 : -1;
}

int Czelprsrv::SetUserModeMark(int flag, const char* keyPath) {
    RegKey key;
    long rc = RegCreate(kHiveCurrentUser, keyPath, key.Receive());
    TraceApi("RegCreateKeyEx(HKEY_CURRENT_USER, .., %p, ..) = %i\n", key.Get(),
             static_cast<int>(rc));
    if (rc != kRegOk) return 0;
    int result = 1;
    if (flag != 0) {
        char text[16];
        FormatText(text, sizeof text, "%d", flag);
        rc = RegSetText(key.Get(), "UserMode", text, static_cast<uint32_t>(strlen(text)));
        TraceApi("RegSetValueEx(%p, UserMode, ..) = %i\n", key.Get(), static_cast<int>(rc));
        if (rc != kRegOk) result = 0;
    } else {
        RegRemoveValue(key.Get(), "UserMode");
        TraceApi("RegDeleteValue(%p, UserMode)\n", key.Get());
    }
    TraceApi("RegCloseKey(%p)\n", key.Get());
    return result;
}

}  // namespace vx
