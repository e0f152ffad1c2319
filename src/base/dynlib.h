// Libraries loaded at run time: LoadLibraryEx on Windows, dlopen on Linux.
//
// On Linux a library's version is the one its file name carries ("libname.so.3.6.14085.0",
// usually behind a "libname.so" link), the shared-object convention; Windows libraries carry
// theirs in the version resource.
#pragma once

#include <cstddef>

namespace vx {

// A loaded library. Opaque: HMODULE on Windows, the dlopen handle on Linux.
using DynLibHandle = void*;

// True where libraries are shared objects named "libname.so" (Linux); false where they are
// DLLs named as their makers name them (Windows).
#if defined(_WIN32)
constexpr bool kSharedObjectNames = false;
#else
constexpr bool kSharedObjectNames = true;
#endif

// Loads the library at a full path, resolving all its symbols at once and searching the
// library's own directory for the libraries it depends on. Null on failure, with the last system
// error set.
DynLibHandle DynLibLoad(const char* path);
// The address of an exported symbol; null when the library has none (last system error set).
void* DynLibSymbol(DynLibHandle library, const char* name);
// Releases a library; 0 or -1.
int DynLibFree(DynLibHandle library);

// Adds a directory to the places where libraries loaded later look for their dependencies; a
// null or empty directory restores the default search. 0 or -1. Linux resolves dependencies
// through the loader's own paths: a no-op there.
int DynLibSetSearchDirectory(const char* directory);

// The full path of the loaded library (or executable) that holds an address; -1 when none does.
int DynLibPathOf(const void* address, char* out, size_t cap);

// Where system-wide libraries live, without a trailing separator. The Windows directory: -1 on
// Linux, which has none. The system directory: on Linux the multiarch library directory (for
// example "/usr/lib/x86_64-linux-gnu").
int GetWindowsDirectoryPath(char* out, size_t cap);
int GetSystemDirectoryPath(char* out, size_t cap);

// The version a shared object's file name carries: "libname.so.1.2.3", or the file a
// "libname.so" link leads to. -1 when the name carries none, and always on Windows.
int SharedObjectVersion(const char* path, char* out, size_t cap);

// Owns one loaded library; releases it on destruction.
class DynLibrary {
  public:
    DynLibrary() = default;
    ~DynLibrary() { Free(); }
    DynLibrary(const DynLibrary&) = delete;
    DynLibrary& operator=(const DynLibrary&) = delete;

    DynLibHandle Get() const { return handle_; }
    bool Loaded() const { return handle_ != nullptr; }
    // Takes over a handle (releasing the one held before).
    void Adopt(DynLibHandle handle) {
        Free();
        handle_ = handle;
    }
    void* Symbol(const char* name) const {
        return handle_ != nullptr ? DynLibSymbol(handle_, name) : nullptr;
    }
    // Releases the library; returns the handle that was held (null when none), for the trace.
    DynLibHandle Free() {
        DynLibHandle held = handle_;
        if (handle_ != nullptr) DynLibFree(handle_);
        handle_ = nullptr;
        return held;
    }

  private:
    DynLibHandle handle_ = nullptr;
};

}  // namespace vx
