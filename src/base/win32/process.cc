// Facts about the process and the host from the Win32 API.
#include <windows.h>
// psapi.h needs the types of windows.h first.
#include <psapi.h>

#include <cstdlib>
#include <string>

#include "base/codepage.h"
#include "base/process.h"
#include "base/text.h"

namespace vx {

namespace {
// RtlGetVersion tells the true version; GetVersionEx answers what the manifest allows.
using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);

DWORD CapAsDword(size_t cap) {
    return cap > MAXDWORD ? MAXDWORD : static_cast<DWORD>(cap);
}
}  // namespace

int GetExecutablePath(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    DWORD len = GetModuleFileNameA(nullptr, out, CapAsDword(cap));
    if (len == 0 || len >= cap) {
        // Nothing, or a cut path that would name some other file.
        out[len == 0 ? 0 : cap - 1] = '\0';
        return -1;
    }
    return 0;
}

int GetEnvironmentText(const char* name, char* out, size_t cap) {
    if (out != nullptr && cap > 0) out[0] = '\0';
    if (name == nullptr || out == nullptr || cap == 0) return -1;
    SetLastError(ERROR_SUCCESS);
    DWORD len = GetEnvironmentVariableA(name, out, CapAsDword(cap));
    if (len == 0) return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? -1 : 0;
    if (len < cap) return 0;
    // Too long for the buffer: len is the size needed; read it whole, then cut.
    std::string whole(len, '\0');
    DWORD got = GetEnvironmentVariableA(name, whole.data(), len);
    if (got == 0 || got >= len) return -1;
    CopyText(out, cap, whole.c_str());
    return 0;
}

int SetEnvironmentText(const char* name, const char* value) {
    if (name == nullptr || name[0] == '\0') return -1;
    const char* stored = (value != nullptr && value[0] != '\0') ? value : nullptr;
    // Both the process environment and the C runtime's copy, so getenv agrees.
    if (!SetEnvironmentVariableA(name, stored)) return -1;
    return _putenv_s(name, stored != nullptr ? stored : "") == 0 ? 0 : -1;
}

int GetOsInfo(OsInfo* out) {
    if (out == nullptr) return -1;
    *out = OsInfo{};
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    FARPROC proc = ntdll != nullptr ? GetProcAddress(ntdll, "RtlGetVersion") : nullptr;
    if (proc == nullptr) return -1;
    auto rtlGetVersion = reinterpret_cast<RtlGetVersionFn>(reinterpret_cast<void (*)()>(proc));
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (rtlGetVersion(&version) != 0) return -1;
    out->major = version.dwMajorVersion;
    out->minor = version.dwMinorVersion;
    out->build = version.dwBuildNumber;
    Utf16ToCodePage(reinterpret_cast<const char16_t*>(version.szCSDVersion), SIZE_MAX, 0, out->text,
                    sizeof out->text);
    return 0;
}

// The Windows heap gives large blocks back by itself.
void LimitHeapGrowth() {}

int GetProcessMemory(ProcessMemory* out) {
    if (out == nullptr) return -1;
    *out = ProcessMemory{};
    PROCESS_MEMORY_COUNTERS counters{};
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return -1;
    out->peakWorkingSet = counters.PeakWorkingSetSize;
    out->workingSet = counters.WorkingSetSize;
    out->pagefileUsage = counters.PagefileUsage;
    return 0;
}

}  // namespace vx
