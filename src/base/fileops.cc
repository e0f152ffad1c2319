// File-system helpers that are the same on every system.
#include "base/fileops.h"

#include <cstring>

#include "base/text.h"

namespace vx {

void AppendSeparator(char* path, size_t cap) {
    if (path == nullptr || cap == 0 || path[0] == '\0') return;
    size_t len = strnlen(path, cap);
    if (len >= cap || IsPathSeparator(path[len - 1])) return;
    const char separator[2] = {kPathSeparator, '\0'};
    AppendText(path, cap, separator);
}

}  // namespace vx
