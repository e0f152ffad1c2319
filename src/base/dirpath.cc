#include "base/dirpath.h"

#include "base/fileops.h"
#include "base/text.h"

namespace vx {

static bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

int MakeDirectoryPath(const char* path) {
    if (path == nullptr || path[0] == '\0') return -1;
    if (FsIsDirectory(path)) return 0;
    char partial[kMaxPath];
    if (CopyText(partial, path) >= sizeof partial - 1 && FsIsDirectory(path)) return 0;
    // Create each level in turn; a level that exists already is fine.
    for (size_t i = 1; partial[i] != '\0'; ++i) {
        if (!IsSeparator(partial[i]) || IsSeparator(partial[i - 1]) || partial[i - 1] == ':')
            continue;
        char saved = partial[i];
        partial[i] = '\0';
        if (!FsIsDirectory(partial)) FsMakeDirectory(partial);
        partial[i] = saved;
    }
    if (!FsIsDirectory(partial)) FsMakeDirectory(partial);
    return FsIsDirectory(partial) ? 0 : -1;
}

bool UsableDirectory(const char* path) {
    if (FsIsDirectoryReadWrite(path)) return true;
    return MakeDirectoryPath(path) == 0 && FsIsDirectoryReadWrite(path);
}

}  // namespace vx
