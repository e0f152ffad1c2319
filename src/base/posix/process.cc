// Facts about the process and the host from /proc, uname and the environment.
#include "base/process.h"

#include <malloc.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/fileops.h"
#include "base/text.h"

namespace vx {

namespace {

// Allocation arenas the threads share; glibc's default is eight per core.
constexpr int kHeapArenas = 2;
// Blocks from this size on are mapped for themselves and unmapped when freed.
constexpr int kHeapMapThreshold = 128 * 1024;

// Reads up to three dot-separated numbers ("6.1.0-18-amd64" gives 6, 1, 0).
void ParseRelease(const char* release, uint32_t numbers[3]) {
    const char* cursor = release;
    for (int i = 0; i < 3; ++i) {
        numbers[i] = 0;
        if (*cursor < '0' || *cursor > '9') continue;
        char* end = nullptr;
        numbers[i] = static_cast<uint32_t>(strtoul(cursor, &end, 10));
        cursor = (*end == '.') ? end + 1 : end;
    }
}

// The number of a "/proc/self/status" line such as "VmRSS:     1234 kB", in bytes.
bool StatusValue(const char* line, const char* key, uint64_t* bytes) {
    size_t keyLen = strlen(key);
    if (strncmp(line, key, keyLen) != 0 || line[keyLen] != ':') return false;
    *bytes = strtoull(line + keyLen + 1, nullptr, 10) * 1024u;
    return true;
}

}  // namespace

int GetExecutablePath(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    char path[PATH_MAX];
    ssize_t len = readlink("/proc/self/exe", path, sizeof path - 1);
    if (len <= 0) {
        out[0] = '\0';
        return -1;
    }
    path[len] = '\0';
    // A cut path would name some other file.
    return CopyText(out, cap, path) == static_cast<size_t>(len) ? 0 : -1;
}

int GetEnvironmentText(const char* name, char* out, size_t cap) {
    if (out != nullptr && cap > 0) out[0] = '\0';
    const char* value = name != nullptr ? getenv(name) : nullptr;
    if (value == nullptr) return -1;
    CopyText(out, cap, value);
    return 0;
}

int SetEnvironmentText(const char* name, const char* value) {
    if (name == nullptr || name[0] == '\0') return -1;
    if (value == nullptr || value[0] == '\0') return unsetenv(name) == 0 ? 0 : -1;
    return setenv(name, value, 1) == 0 ? 0 : -1;
}

int GetOsInfo(OsInfo* out) {
    if (out == nullptr) return -1;
    *out = OsInfo{};
    utsname host{};
    if (uname(&host) != 0) return -1;
    uint32_t numbers[3];
    ParseRelease(host.release, numbers);
    out->major = numbers[0];
    out->minor = numbers[1];
    out->build = numbers[2];
    FormatText(out->text, sizeof out->text, "%s %s %s", host.sysname, host.release, host.version);
    return 0;
}

void LimitHeapGrowth() {
    mallopt(M_ARENA_MAX, kHeapArenas);
    // A fixed threshold also stops glibc from raising it after each large buffer is freed.
    mallopt(M_MMAP_THRESHOLD, kHeapMapThreshold);
    mallopt(M_TRIM_THRESHOLD, kHeapMapThreshold);
}

int GetProcessMemory(ProcessMemory* out) {
    if (out == nullptr) return -1;
    *out = ProcessMemory{};
    StreamPtr status(fopen("/proc/self/status", "r"));
    if (!status) return -1;
    bool haveRss = false;
    char line[256];
    while (fgets(line, sizeof line, status.get()) != nullptr) {
        StatusValue(line, "VmHWM", &out->peakWorkingSet);
        StatusValue(line, "VmData", &out->pagefileUsage);
        if (StatusValue(line, "VmRSS", &out->workingSet)) haveRss = true;
    }
    return haveRss ? 0 : -1;
}

}  // namespace vx
