// Facts about the running process and the host.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// Full path of the running executable; -1 when it cannot be found.
int GetExecutablePath(char* out, size_t cap);

// The executable's directory without a trailing separator.
int GetExecutableDirectory(char* out, size_t cap);

// The directory where the service keeps Logs, Output and its restart files: VORLIX_HOME when
// that is set, otherwise the executable's directory. No trailing separator.
int GetBaseDirectory(char* out, size_t cap);

// Reads an environment variable into out; -1 when it is not set.
int GetEnvironmentText(const char* name, char* out, size_t cap);

// Sets an environment variable of this process; a null or empty value removes it. 0 or -1.
int SetEnvironmentText(const char* name, const char* value);

struct OsInfo {
    uint32_t major;
    uint32_t minor;
    uint32_t build;  // the high 16 bits and the low 16 bits are shown separately
    char text[128];  // service-pack text, or the kernel's description
};
int GetOsInfo(OsInfo* out);

// The process's memory counters in bytes.
struct ProcessMemory {
    uint64_t peakWorkingSet;
    uint64_t workingSet;
    uint64_t pagefileUsage;
};
int GetProcessMemory(ProcessMemory* out);

// Keeps the heap of a long-running process small: few allocation arenas for its many short-lived
// connection threads, and large buffers (a data file's read buffer) handed back to the system
// when freed instead of staying resident. Called once, before the first thread starts.
void LimitHeapGrowth();

}  // namespace vx
