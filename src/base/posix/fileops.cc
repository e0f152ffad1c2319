// File-system operations over POSIX calls, with the Windows semantics the service relies on:
// a rename never replaces an existing file.
#include "base/fileops.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/text.h"

namespace vx {

namespace {

struct DirCloser {
    void operator()(DIR* dir) const {
        if (dir != nullptr) closedir(dir);
    }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

// The file system refuses RENAME_NOREPLACE (or the kernel lacks renameat2) with these.
bool NoReplaceUnsupported(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == ENOTSUP;
}

// The file system has no hard links (FAT, some network shares).
bool NoHardLinks(int error) {
    return error == EPERM || error == EOPNOTSUPP || error == ENOTSUP;
}

}  // namespace

bool FsExists(const char* path) {
    struct stat info {};
    return path != nullptr && stat(path, &info) == 0;
}

bool FsIsDirectory(const char* path) {
    struct stat info {};
    return path != nullptr && stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

bool FsIsDirectoryReadWrite(const char* path) {
    // Creating and deleting files in a directory needs search (x) permission besides write.
    return FsIsDirectory(path) && access(path, R_OK | W_OK | X_OK) == 0;
}

int FsMakeDirectory(const char* path) {
    if (path == nullptr) return -1;
    if (mkdir(path, 0755) == 0) return 0;
    if (errno == EEXIST && FsIsDirectory(path)) return 0;
    return -1;
}

int FsRename(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (!NoReplaceUnsupported(errno)) return -1;
    // A second name that cannot exist twice, then the old one removed: link() fails with
    // EEXIST when the target is there, which gives the same refusal without a race.
    if (link(from, to) != 0) {
        if (!NoHardLinks(errno)) return -1;
        // Neither way is atomic here: look, then rename. Only another writer racing for the
        // same new name could be overwritten, and the service names its files itself.
        struct stat target {};
        if (lstat(to, &target) == 0) {
            errno = EEXIST;
            return -1;
        }
        return rename(from, to) == 0 ? 0 : -1;
    }
    if (unlink(from) != 0) {
        int error = errno;
        unlink(to);
        errno = error;
        return -1;
    }
    return 0;
}

int FsReplace(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    return rename(from, to) == 0 ? 0 : -1;
}

int FsRemove(const char* path) {
    if (path == nullptr) return -1;
    return unlink(path) == 0 ? 0 : -1;
}

int FsAppendBytes(const char* path, const void* data, size_t size, bool durable) {
    if (path == nullptr || (data == nullptr && size > 0)) return -1;
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return -1;
    bool ok = true;
    const char* bytes = static_cast<const char*>(data);
    while (ok && size > 0) {
        ssize_t written = write(fd, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        ok = written > 0;
        if (ok) {
            bytes += written;
            size -= static_cast<size_t>(written);
        }
    }
    if (ok && durable) ok = fdatasync(fd) == 0;
    ok = close(fd) == 0 && ok;
    return ok ? 0 : -1;
}

int FsEmptyFile(const char* path) {
    if (path == nullptr) return -1;
    // Opened with O_TRUNC and closed at once rather than truncate(): ext4 marks a file cut to
    // nothing for a flush at its next close, and here that close is this one, not the close of
    // whatever is written into the file next.
    int fd = open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) return -1;
    return close(fd) == 0 ? 0 : -1;
}

int64_t FsSize(const char* path) {
    struct stat info {};
    if (path == nullptr || stat(path, &info) != 0) return -1;
    return static_cast<int64_t>(info.st_size);
}

int FsListDirectory(const char* dir, DirVisitor visit, void* context) {
    if (dir == nullptr || visit == nullptr) return -1;
    DirPtr handle(opendir(dir));
    if (!handle) return -1;
    while (dirent* entry = readdir(handle.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        if (visit(context, entry->d_name) != 0) break;
    }
    return 0;
}

FILE* FsOpenStream(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return nullptr;
    // glibc does not know the commit letter 'c'; the service flushes after every line anyway.
    char plainMode[16];
    size_t len = 0;
    for (const char* letter = mode; *letter != '\0' && len + 1 < sizeof plainMode; ++letter) {
        if (*letter != 'c') plainMode[len++] = *letter;
    }
    plainMode[len] = '\0';
    return fopen(path, plainMode);
}

FILE* FsCreateNewStream(const char* path, bool* exists) {
    if (exists != nullptr) *exists = false;
    if (path == nullptr) return nullptr;
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (exists != nullptr) *exists = errno == EEXIST || errno == EISDIR;
        return nullptr;
    }
    FILE* stream = fdopen(fd, "wb");
    if (stream == nullptr) close(fd);
    return stream;
}

int FsFlushToDisk(FILE* stream) {
    if (stream == nullptr || fflush(stream) != 0) return -1;
    return fsync(fileno(stream)) == 0 ? 0 : -1;
}

int FsSyncDirectory(const char* dir) {
    if (dir == nullptr) return -1;
    int fd = open(dir[0] != '\0' ? dir : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return -1;
    int rc = fsync(fd);
    close(fd);
    return rc == 0 ? 0 : -1;
}

}  // namespace vx
