// Settings hives: the registry on Windows; on Linux one ".reg" text file per hive
// (HKLM: /etc/vorlix/HKLM.reg, HKCU: $XDG_CONFIG_HOME/vorlix/HKCU.reg, both in
// $VORLIX_REGISTRY_DIR when set), safe against several processes reading and writing at once.
//
// Every call returns a Windows system error code: 0 success, 2 not found, 234 more data,
// 5 access denied, 6 invalid handle, 87 bad parameter. Key paths use backslashes on both targets;
// key and value names compare without regard to case and keep the case they were created with.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

enum RegHive { kHiveLocalMachine = 0, kHiveCurrentUser = 1 };

constexpr long kRegOk = 0;
constexpr long kRegNotFound = 2;
constexpr long kRegAccessDenied = 5;
constexpr long kRegInvalidHandle = 6;
constexpr long kRegBadParameter = 87;
constexpr long kRegMoreData = 234;
constexpr long kRegNoMoreItems = 259;

// An open key. Opaque: HKEY on Windows.
using RegHandle = void*;

// The handle value that stands for a hive itself (as shown in the API trace); it can be used as
// an open key for the hive's root and closing it does nothing.
RegHandle RegHiveHandle(RegHive hive);
const char* RegHiveName(RegHive hive);  // "HKEY_LOCAL_MACHINE" / "HKEY_CURRENT_USER"

// Opens an existing key for query access.
long RegOpen(RegHive hive, const char* path, RegHandle* out);
// Creates the key (and its parents) when missing and opens it for query, set and create access.
long RegCreate(RegHive hive, const char* path, RegHandle* out);
long RegClose(RegHandle key);

// Reads a text value. size: in, the buffer's size; out, the bytes the value holds (terminator
// included). The buffer is always terminated, also when the stored text has no terminator.
// kRegMoreData when the buffer is too small, also when the text alone fills it and leaves no room
// for the terminator (the buffer then holds the cut text). A null buf only reports the size.
long RegQueryText(RegHandle key, const char* name, char* buf, uint32_t* size);
// Writes a text value; len is the data length given to the system (the service passes the text
// length without the terminator).
long RegSetText(RegHandle key, const char* name, const char* text, uint32_t len);
long RegRemoveValue(RegHandle key, const char* name);
// Enumerates values by index: name and data as text, each cut to its buffer ("" names the
// unnamed value). kRegNoMoreItems past the last value. Non-text values are shown as their
// decimal or hex text. The order is the system's: sorted by name under Wine, the order of the
// lines in the hive file on Linux; callers must not rely on either.
long RegEnumText(RegHandle key, uint32_t index, char* name, size_t nameCap, char* data,
                 size_t dataCap);

// Owns one open key and closes it on destruction.
class RegKey {
  public:
    RegKey() = default;
    ~RegKey() { Close(); }
    RegKey(const RegKey&) = delete;
    RegKey& operator=(const RegKey&) = delete;

    RegHandle Get() const { return handle_; }
    RegHandle* Receive() {
        Close();
        return &handle_;
    }
    bool Valid() const { return handle_ != nullptr; }
    // Closes the key; returns the system's result (0 when nothing was open).
    long Close() {
        long rc = 0;
        if (handle_ != nullptr) rc = RegClose(handle_);
        handle_ = nullptr;
        return rc;
    }

  private:
    RegHandle handle_ = nullptr;
};

}  // namespace vx
