// File-system operations over the Win32 narrow ("A") calls.
#include "base/fileops.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// Closes a FindFirstFile search on every way out.
class FindHandle {
  public:
    explicit FindHandle(HANDLE handle) : handle_(handle) {}
    ~FindHandle() {
        if (handle_ != INVALID_HANDLE_VALUE) FindClose(handle_);
    }
    FindHandle(const FindHandle&) = delete;
    FindHandle& operator=(const FindHandle&) = delete;
    HANDLE Get() const { return handle_; }
    bool Valid() const { return handle_ != INVALID_HANDLE_VALUE; }

  private:
    HANDLE handle_;
};

// dir + separator + "*": the pattern that lists a whole directory. -1 when it does not fit,
// since a cut pattern would list some other directory.
int DirectoryPattern(const char* dir, char* out, size_t cap) {
    if (CopyText(out, cap, dir) + 1 >= cap) return -1;
    AppendSeparator(out, cap);
    return AppendText(out, cap, "*") + 1 < cap ? 0 : -1;
}

// Creates and at once deletes a file in the directory: the only reliable test that the
// process may write there (the read-only attribute means nothing on a directory).
bool CanCreateFileIn(const char* dir) {
    char probe[kMaxPath + 32];
    CopyText(probe, dir);
    AppendSeparator(probe, sizeof probe);
    size_t len = AppendFormat(probe, sizeof probe, "vx%lu_%lu.probe", GetCurrentProcessId(),
                              GetCurrentThreadId());
    if (len + 1 >= sizeof probe) return false;
    HANDLE file = CreateFileA(probe, GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    CloseHandle(file);
    return true;
}

}  // namespace

bool FsExists(const char* path) {
    return path != nullptr && GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool FsIsDirectory(const char* path) {
    if (path == nullptr) return false;
    DWORD attributes = GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool FsIsDirectoryReadWrite(const char* path) {
    if (!FsIsDirectory(path)) return false;
    char pattern[kMaxPath + 2];
    if (DirectoryPattern(path, pattern, sizeof pattern) != 0) return false;
    WIN32_FIND_DATAA found{};
    FindHandle search(FindFirstFileA(pattern, &found));
    return search.Valid() && CanCreateFileIn(path);
}

int FsMakeDirectory(const char* path) {
    if (path == nullptr) return -1;
    if (CreateDirectoryA(path, nullptr)) return 0;
    if (GetLastError() == ERROR_ALREADY_EXISTS && FsIsDirectory(path)) return 0;
    return -1;
}

int FsRename(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    return MoveFileA(from, to) ? 0 : -1;
}

int FsReplace(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ? 0 : -1;
}

int FsRemove(const char* path) {
    if (path == nullptr) return -1;
    return DeleteFileA(path) ? 0 : -1;
}

int64_t FsSize(const char* path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (path == nullptr || !GetFileAttributesExA(path, GetFileExInfoStandard, &data)) return -1;
    return static_cast<int64_t>((static_cast<uint64_t>(data.nFileSizeHigh) << 32) |
                                data.nFileSizeLow);
}

int FsListDirectory(const char* dir, DirVisitor visit, void* context) {
    if (dir == nullptr || visit == nullptr) return -1;
    char pattern[kMaxPath + 2];
    if (DirectoryPattern(dir, pattern, sizeof pattern) != 0) return -1;
    WIN32_FIND_DATAA found{};
    FindHandle search(FindFirstFileA(pattern, &found));
    if (!search.Valid()) return -1;
    do {
        if (strcmp(found.cFileName, ".") == 0 || strcmp(found.cFileName, "..") == 0) continue;
        if (visit(context, found.cFileName) != 0) break;
    } while (FindNextFileA(search.Get(), &found));
    return 0;
}

FILE* FsOpenStream(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return nullptr;
    // The C runtime honours 'c': a flush commits the file to disk.
    return fopen(path, mode);
}

FILE* FsCreateNewStream(const char* path, bool* exists) {
    if (exists != nullptr) *exists = false;
    if (path == nullptr) return nullptr;
    HANDLE file = CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                              CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DWORD error = GetLastError();
        if (exists != nullptr)
            *exists = error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
        return nullptr;
    }
    // From here on the C runtime owns the handle: closing the stream closes it.
    int fd = _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_BINARY | _O_WRONLY);
    if (fd < 0) {
        CloseHandle(file);
        return nullptr;
    }
    FILE* stream = _fdopen(fd, "wb");
    if (stream == nullptr) _close(fd);
    return stream;
}

// Readers, writers and a rename or removal may come to a job file while it is open here.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

int FsAppendBytes(const char* path, const void* data, size_t size, bool durable) {
    if (path == nullptr || (data == nullptr && size > 0) || size > MAXDWORD) return -1;
    // FILE_APPEND_DATA alone: every write lands at the end, as O_APPEND has it.
    HANDLE file = CreateFileA(path, FILE_APPEND_DATA, kShareAll, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return -1;
    DWORD written = 0;
    bool ok = size == 0 || (WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr) &&
                            written == size);
    if (ok && durable) ok = FlushFileBuffers(file) != 0;
    ok = CloseHandle(file) != 0 && ok;
    return ok ? 0 : -1;
}

int FsEmptyFile(const char* path) {
    if (path == nullptr) return -1;
    HANDLE file = CreateFileA(path, GENERIC_WRITE, kShareAll, nullptr, TRUNCATE_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return -1;
    return CloseHandle(file) ? 0 : -1;
}

int FsFlushToDisk(FILE* stream) {
    if (stream == nullptr || fflush(stream) != 0) return -1;
    auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    if (handle == INVALID_HANDLE_VALUE) return -1;
    return FlushFileBuffers(handle) ? 0 : -1;
}

int FsSyncDirectory(const char*) {
    // NTFS commits directory entries with the metadata of the files flushed through them.
    return 0;
}

}  // namespace vx
