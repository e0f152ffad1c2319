// Libraries through LoadLibraryEx, with the altered search path so that a library's own
// directory is searched for its dependencies.
#include "base/dynlib.h"

#include <windows.h>

#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// The system's directory calls return the length, or the size needed when the buffer is small.
int CopyDirectoryResult(UINT length, char* out, size_t cap) {
    if (length == 0 || length >= cap) {
        out[0] = '\0';
        return -1;
    }
    return 0;
}

}  // namespace

DynLibHandle DynLibLoad(const char* path) {
    if (path == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

void* DynLibSymbol(DynLibHandle library, const char* name) {
    if (library == nullptr || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

int DynLibFree(DynLibHandle library) {
    if (library == nullptr) return -1;
    return FreeLibrary(static_cast<HMODULE>(library)) ? 0 : -1;
}

int DynLibSetSearchDirectory(const char* directory) {
    if (directory != nullptr && directory[0] == '\0') directory = nullptr;
    return SetDllDirectoryA(directory) ? 0 : -1;
}

int DynLibPathOf(const void* address, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    out[0] = '\0';
    HMODULE module = nullptr;
    if (address == nullptr || !GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                                      GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                                  static_cast<LPCSTR>(address), &module))
        return -1;
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(module, path, sizeof path);
    if (length == 0 || length >= sizeof path) return -1;
    return CopyText(out, cap, path) == length ? 0 : -1;
}

int GetWindowsDirectoryPath(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    return CopyDirectoryResult(GetWindowsDirectoryA(out, static_cast<UINT>(cap)), out, cap);
}

int GetSystemDirectoryPath(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    return CopyDirectoryResult(GetSystemDirectoryA(out, static_cast<UINT>(cap)), out, cap);
}

int SharedObjectVersion(const char*, char* out, size_t cap) {
    if (out != nullptr && cap > 0) out[0] = '\0';
    return -1;
}

}  // namespace vx
