#include "protocol/output_file.h"

#include <cstdio>
#include <cstring>

#include "base/fileops.h"
#include "base/text.h"
#include "jobs/job_journal.h"
#include "jobs/temp_names.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr int kMaxNumber = 9999;
constexpr size_t kCopyChunk = 65536;

// dir + name, or dir + base + "_<n>" + extension for n above 0.
void NumberedPath(const char* dir, const char* name, int n, char* out, size_t cap) {
    if (n == 0) {
        FormatText(out, cap, "%s%s", dir, name);
        return;
    }
    const char* dot = strrchr(name, '.');
    if (dot == nullptr || dot == name) dot = name + strlen(name);
    FormatText(out, cap, "%s%.*s_%d%s", dir, static_cast<int>(dot - name), name, n, dot);
}

// Creates the first free name. Null when none could be created.
FILE* CreateFreeName(const char* dir, const char* name, char* path, size_t cap) {
    for (int n = 0; n <= kMaxNumber; ++n) {
        NumberedPath(dir, name, n, path, cap);
        bool exists = false;
        FILE* file = FsCreateNewStream(path, &exists);
        if (file != nullptr || !exists) return file;
    }
    return nullptr;
}

bool CopyStream(FILE* from, FILE* to) {
    char chunk[kCopyChunk];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, from)) > 0)
        if (fwrite(chunk, 1, got, to) != got) return false;
    return ferror(from) == 0;
}

}  // namespace

int WriteJobToOutputFile(const char* dataFile, const char* name, char* written, size_t cap) {
    written[0] = '\0';
    const char* dir = "";
    if (g_prsrv != nullptr)
        dir = g_prsrv->OutputDirectory()[0] != '\0' ? g_prsrv->OutputDirectory()
                                                    : g_prsrv->TempDirectory();
    char safe[kMaxPath];
    SafeTempName(name, safe, sizeof safe);
    if (safe[0] == '\0') CopyText(safe, "job");
    FsMakeDirectory(dir);

    StreamPtr from(FsOpenStream(dataFile, "rb"));
    char path[kMaxPath];
    StreamPtr to(from != nullptr ? CreateFreeName(dir, safe, path, sizeof path) : nullptr);
    if (to == nullptr) {
        TraceError("Option FILE: cannot create a file for %s in %s\n", safe, dir);
        return -1;
    }
    bool ok = CopyStream(from.get(), to.get());
    if (ok && SyncJobFiles()) ok = FsFlushToDisk(to.get()) == 0;
    if (fclose(to.release()) != 0) ok = false;
    if (!ok) {
        TraceError("Option FILE: the file %s could not be written\n", path);
        FsRemove(path);
        return -1;
    }
    CopyText(written, cap, path);
    return 0;
}

}  // namespace vx
