// The event source's registration in the registry and the message table it points at.
#include <windows.h>

#include <cstring>

#include "base/eventlog.h"
#include "base/fileops.h"
#include "base/registry.h"
#include "base/text.h"

namespace vx {

namespace {

// A file mapped as data only (its code is never run), unmapped on every way out.
class DataModule {
  public:
    explicit DataModule(const char* path)
        : module_(LoadLibraryExA(path, nullptr, LOAD_LIBRARY_AS_DATAFILE)) {}
    ~DataModule() {
        if (module_ != nullptr) FreeLibrary(module_);
    }
    DataModule(const DataModule&) = delete;
    DataModule& operator=(const DataModule&) = delete;
    HMODULE Get() const { return module_; }

  private:
    HMODULE module_;
};

// A text the system allocated for us (FORMAT_MESSAGE_ALLOCATE_BUFFER).
class SystemText {
  public:
    SystemText() = default;
    ~SystemText() {
        if (text_ != nullptr) LocalFree(text_);
    }
    SystemText(const SystemText&) = delete;
    SystemText& operator=(const SystemText&) = delete;
    char** Receive() { return &text_; }
    const char* Get() const { return text_; }

  private:
    char* text_ = nullptr;
};

long SetExpandText(HKEY key, const char* name, const char* text) {
    // The stored length includes the terminating zero.
    DWORD len = static_cast<DWORD>(strlen(text) + 1);
    return RegSetValueExA(key, name, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(text), len);
}

long SetDword(HKEY key, const char* name, DWORD value) {
    return RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                          sizeof value);
}

}  // namespace

int RegisterEventSourceEntry(const char* logName, const char* source, const char* messageFile,
                             uint32_t categoryCount) {
    if (logName == nullptr || source == nullptr || messageFile == nullptr) return 1;
    // One more than the longest key path allowed, so that a cut shows as too long.
    char keyPath[kMaxPath + 2];
    size_t len =
        FormatText(keyPath, sizeof keyPath, "SYSTEM\\CurrentControlSet\\Services\\EventLog\\%s\\%s",
                   logName, source);
    if (len > kMaxPath) return 1;  // a cut path would name some other key

    RegKey holder;
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &key, nullptr) != ERROR_SUCCESS)
        return 1;
    *holder.Receive() = key;

    // Error, warning and information events.
    const DWORD typesSupported =
        EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    if (SetExpandText(key, "EventMessageFile", messageFile) != ERROR_SUCCESS) return 1;
    if (SetDword(key, "TypesSupported", typesSupported) != ERROR_SUCCESS) return 1;
    if (SetExpandText(key, "CategoryMessageFile", messageFile) != ERROR_SUCCESS) return 1;
    if (SetDword(key, "CategoryCount", categoryCount) != ERROR_SUCCESS) return 1;
    return 0;
}

int FormatMessageFileText(const char* messageFile, uint32_t messageId, const char* insert1,
                          const char* insert2, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    out[0] = '\0';
    if (messageFile == nullptr) return -1;
    DataModule module(messageFile);
    if (module.Get() == nullptr) return -1;
    DWORD_PTR inserts[2] = {reinterpret_cast<DWORD_PTR>(insert1 != nullptr ? insert1 : ""),
                            reinterpret_cast<DWORD_PTR>(insert2 != nullptr ? insert2 : "")};
    SystemText text;
    DWORD len = FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY |
                                   FORMAT_MESSAGE_ALLOCATE_BUFFER,
                               module.Get(), messageId, 0, reinterpret_cast<char*>(text.Receive()),
                               0, reinterpret_cast<va_list*>(inserts));
    if (len == 0 || text.Get() == nullptr) return -1;
    CopyTextN(out, cap, text.Get(), len);
    return 0;
}

}  // namespace vx
