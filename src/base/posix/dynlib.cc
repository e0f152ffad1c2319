// Libraries through dlopen. A library finds its own dependencies through its RUNPATH (built with
// "$ORIGIN" when they sit beside it), so the search directory of Windows has no counterpart here.
#include "base/dynlib.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// Debian's multiarch directory of the architecture the program is built for.
#if defined(__x86_64__)
constexpr const char* kSystemLibraryDirectory = "/usr/lib/x86_64-linux-gnu";
#elif defined(__aarch64__)
constexpr const char* kSystemLibraryDirectory = "/usr/lib/aarch64-linux-gnu";
#elif defined(__i386__)
constexpr const char* kSystemLibraryDirectory = "/usr/lib/i386-linux-gnu";
#else
constexpr const char* kSystemLibraryDirectory = "/usr/lib";
#endif

int CopyDirectory(const char* directory, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    return CopyText(out, cap, directory) == strlen(directory) ? 0 : -1;
}

}  // namespace

DynLibHandle DynLibLoad(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    errno = 0;
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    // dlopen reports a file that is not a library in its own text only; errno stays 0 then.
    if (handle == nullptr && errno == 0) errno = ENOEXEC;
    return handle;
}

void* DynLibSymbol(DynLibHandle library, const char* name) {
    if (library == nullptr || name == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    dlerror();
    void* symbol = dlsym(library, name);
    if (symbol == nullptr) errno = ENOSYS;
    return symbol;
}

int DynLibFree(DynLibHandle library) {
    if (library == nullptr) return -1;
    return dlclose(library) == 0 ? 0 : -1;
}

int DynLibSetSearchDirectory(const char*) {
    return 0;
}

int DynLibPathOf(const void* address, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    out[0] = '\0';
    Dl_info info = {};
    if (address == nullptr || dladdr(address, &info) == 0 || info.dli_fname == nullptr) return -1;
    // The loader names a library the way it was asked for it; the full path is what callers need.
    char resolved[PATH_MAX];
    const char* path = realpath(info.dli_fname, resolved) != nullptr ? resolved : info.dli_fname;
    return CopyText(out, cap, path) == strlen(path) ? 0 : -1;
}

int GetWindowsDirectoryPath(char* out, size_t cap) {
    if (out != nullptr && cap > 0) out[0] = '\0';
    return -1;
}

int GetSystemDirectoryPath(char* out, size_t cap) {
    return CopyDirectory(kSystemLibraryDirectory, out, cap);
}

int SharedObjectVersion(const char* path, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    out[0] = '\0';
    if (path == nullptr) return -1;
    // "libname.so" is usually a link to the file that carries the version in its name.
    char resolved[PATH_MAX];
    if (realpath(path, resolved) == nullptr) return -1;
    const char* name = strrchr(resolved, '/');
    name = name != nullptr ? name + 1 : resolved;
    const char* suffix = strstr(name, ".so.");
    if (suffix == nullptr) return -1;
    const char* version = suffix + 4;
    if (*version < '0' || *version > '9') return -1;
    CopyText(out, cap, version);
    return 0;
}

}  // namespace vx
