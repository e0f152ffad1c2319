// File-system operations. Paths are narrow strings in the system's code page (Windows) or UTF-8.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

namespace vx {

// The separator that the service puts between directory and file names.
#if defined(_WIN32)
constexpr char kPathSeparator = '\\';
#else
constexpr char kPathSeparator = '/';
#endif

// Maximum path length of the service's path buffers.
constexpr size_t kMaxPath = 260;

// True for a character that separates path levels (Windows also accepts '/').
constexpr bool IsPathSeparator(char c) {
#if defined(_WIN32)
    return c == '\\' || c == '/';
#else
    return c == '/';
#endif
}

bool FsExists(const char* path);
bool FsIsDirectory(const char* path);
// True when the directory exists and the process may read and write in it.
bool FsIsDirectoryReadWrite(const char* path);
// Creates one directory level; 0 also when it exists already.
int FsMakeDirectory(const char* path);
// Renames a file; fails (-1) when the target exists, as on Windows.
int FsRename(const char* from, const char* to);
// Renames a file over an existing target in one step (temporary file, then into place).
int FsReplace(const char* from, const char* to);
int FsRemove(const char* path);
// Size in bytes, or -1 when the file cannot be examined.
int64_t FsSize(const char* path);

// Calls visit(context, name) for every entry of a directory except "." and "..";
// stops early when visit returns nonzero. Returns 0, or -1 when the directory cannot be read.
using DirVisitor = int (*)(void* context, const char* name);
int FsListDirectory(const char* dir, DirVisitor visit, void* context);

// fopen with the mode letters of the service ("a", "w", "w+c", "a+c"); the "c" (commit on
// flush) is honoured where the system supports it and ignored elsewhere.
FILE* FsOpenStream(const char* path, const char* mode);

// Creates a new file for binary writing, failing when the name exists already (O_EXCL /
// CREATE_NEW): two writers can never end up in one file. Null on failure; *exists tells whether
// the name was taken (may be null).
FILE* FsCreateNewStream(const char* path, bool* exists);

// Appends size bytes to a file (made when missing) with one write and no stream, so that a
// process that dies meanwhile leaves the file as it was or with the whole piece; durable: on the
// disk before the call returns. 0 or -1.
int FsAppendBytes(const char* path, const void* data, size_t size, bool durable);

// Cuts an existing file to no bytes. 0, or -1 (also when there is no such file).
int FsEmptyFile(const char* path);

// Writes what the stream holds through to the disk (fflush, then fsync / FlushFileBuffers).
// 0 or -1.
int FsFlushToDisk(FILE* stream);

// Makes the directory's entries (files created, renamed or removed in it) durable. 0 or -1;
// a no-op where the system keeps directory entries with the files.
int FsSyncDirectory(const char* dir);

struct StreamCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};
using StreamPtr = std::unique_ptr<FILE, StreamCloser>;

// Appends the separator to a directory path unless it already ends in one (cut at cap).
// An empty path stays empty: it names no directory, and a lone separator would be the root.
void AppendSeparator(char* path, size_t cap);

}  // namespace vx
