// Directories derived from the executable's path, the same on every system.
#include "base/process.h"

#include <cstring>

#include "base/fileops.h"
#include "base/text.h"

namespace vx {

namespace {
// Cuts trailing separators, so that callers can always add one of their own.
void StripTrailingSeparators(char* path) {
    size_t len = strlen(path);
    while (len > 0 && IsPathSeparator(path[len - 1])) path[--len] = '\0';
}
}  // namespace

int GetExecutableDirectory(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    if (GetExecutablePath(out, cap) != 0) {
        out[0] = '\0';
        return -1;
    }
    char* lastSeparator = nullptr;
    for (char* c = out; *c != '\0'; ++c) {
        if (IsPathSeparator(*c)) lastSeparator = c;
    }
    if (lastSeparator == nullptr) {
        out[0] = '\0';
        return -1;
    }
    *lastSeparator = '\0';
    return 0;
}

int GetBaseDirectory(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    if (GetEnvironmentText("VORLIX_HOME", out, cap) == 0 && out[0] != '\0') {
        StripTrailingSeparators(out);
        return 0;
    }
    return GetExecutableDirectory(out, cap);
}

}  // namespace vx
