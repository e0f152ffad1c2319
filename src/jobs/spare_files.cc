#include "jobs/spare_files.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "base/fileops.h"
#include "base/text.h"
#include "jobs/job_info.h"
#include "jobs/temp_names.h"

namespace vx {

namespace {

// Spares kept at most: the files of as many jobs as a long backlog holds. An empty file costs an
// inode and a directory entry, no data.
constexpr size_t kMaxSpares = 4096;

// The spares lie in one directory (the temporary directory of the received jobs) and are known by
// their numbers.
struct SparePool {
    std::mutex lock;
    char directory[kMaxPath] = {};
    std::vector<uint32_t> numbers;
};

SparePool& Pool() {
    static SparePool* pool = new SparePool;  // outlives the threads that print
    return *pool;
}

std::atomic<uint32_t> g_nextSpare{1};

size_t DirectoryLength(const char* path) {
    size_t length = 0;
    for (size_t i = 0; path[i] != '\0'; ++i)
        if (IsPathSeparator(path[i])) length = i + 1;
    return length;
}

bool InPoolDirectory(const SparePool& pool, const char* path) {
    size_t length = DirectoryLength(path);
    return strlen(pool.directory) == length && strncmp(pool.directory, path, length) == 0;
}

void SparePath(const char* directory, uint32_t number, char* out, size_t cap) {
    FormatText(out, cap, "%s%s%lu", directory, kSparePrefix, static_cast<unsigned long>(number));
}

// A spare of path's directory, taken out of the pool; false when there is none.
bool PopSpare(const char* path, char* spare, size_t cap, uint32_t* number) {
    SparePool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    if (pool.numbers.empty() || !InPoolDirectory(pool, path)) return false;
    *number = pool.numbers.back();
    pool.numbers.pop_back();
    SparePath(pool.directory, *number, spare, cap);
    return true;
}

// Puts a spare (named by SpareName) into the pool; false when the pool is full.
bool PushSpare(uint32_t number) {
    SparePool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    if (pool.numbers.size() >= kMaxSpares) return false;
    pool.numbers.push_back(number);
    return true;
}

// The name a file of path's directory takes as a spare; false when the pool keeps another
// directory's spares or is full.
bool SpareName(const char* path, char* spare, size_t cap, uint32_t* number) {
    SparePool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    if (pool.numbers.size() >= kMaxSpares) return false;
    if (pool.directory[0] == '\0' && pool.numbers.empty())
        CopyTextN(pool.directory, sizeof pool.directory, path, DirectoryLength(path));
    if (!InPoolDirectory(pool, path)) return false;
    *number = g_nextSpare.fetch_add(1);
    SparePath(pool.directory, *number, spare, cap);
    return true;
}

// A spare an earlier run left: kept while the pool has room and it is empty (a process that
// died while emptying one leaves it with data), removed otherwise.
int AdoptLeftSpare(void* context, const char* name) {
    size_t prefix = strlen(kSparePrefix);
    if (strncmp(name, kSparePrefix, prefix) != 0) return 0;
    char* end = nullptr;
    unsigned long number = strtoul(name + prefix, &end, 10);
    char path[kMaxPath];
    FormatText(path, sizeof path, "%s%s", static_cast<const char*>(context), name);
    bool named = number > 0 && number < UINT32_MAX && end != nullptr && *end == '\0';
    if (!named || FsSize(path) != 0 || !PushSpare(static_cast<uint32_t>(number))) {
        FsRemove(path);
        return 0;
    }
    // New spares are named beyond every one taken over.
    uint32_t next = static_cast<uint32_t>(number) + 1;
    uint32_t current = g_nextSpare.load();
    while (current < next && !g_nextSpare.compare_exchange_weak(current, next)) {
    }
    return 0;
}

// Renames a spare of path's directory to path. False when there is none or it cannot be used;
// *taken set when the name is in use (the rename never replaces a file: a name in use stays its
// owner's).
bool MoveSpareTo(const char* path, bool* taken) {
    *taken = false;
    char spare[kMaxPath];
    uint32_t number = 0;
    if (path == nullptr || !PopSpare(path, spare, sizeof spare, &number)) return false;
    if (FsRename(spare, path) == 0) return true;
    if (FsExists(path)) {
        *taken = true;
        if (!PushSpare(number)) FsRemove(spare);
    } else {
        FsRemove(spare);
    }
    return false;
}

}  // namespace

FILE* TakeSpareFile(const char* path, bool* taken) {
    bool inUse = false;
    bool moved = MoveSpareTo(path, &inUse);
    if (taken != nullptr) *taken = inUse;
    if (!moved) return nullptr;
    // Opened as it is (empty), not truncated: truncating would make the file system write the
    // new job's bytes out at its close instead of in its own time.
    FILE* file = FsOpenStream(path, "r+b");
    if (file == nullptr) FsRemove(path);
    return file;
}

FILE* NewJobFile(const char* path, bool* taken) {
    bool inUse = false;
    FILE* file = TakeSpareFile(path, &inUse);
    if (file == nullptr && !inUse) file = FsCreateNewStream(path, &inUse);
    if (taken != nullptr) *taken = inUse;
    return file;
}

int NewEmptyJobFile(const char* path, bool* taken) {
    bool inUse = false;
    bool made = MoveSpareTo(path, &inUse);
    if (!made && !inUse) made = StreamPtr(FsCreateNewStream(path, &inUse)) != nullptr;
    if (taken != nullptr) *taken = inUse;
    return made ? 0 : -1;
}

bool KeepAsSpare(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    char spare[kMaxPath];
    uint32_t number = 0;
    if (!SpareName(path, spare, sizeof spare, &number)) return false;
    // Out of its name first: a job whose file is gone is never printed again, whatever happens
    // next; then emptied, so that a spare holds nobody's data.
    if (FsRename(path, spare) != 0) return false;
    if (FsEmptyFile(spare) != 0 || !PushSpare(number)) FsRemove(spare);
    return true;
}

bool DisposeJobFile(const char* path) {
    return KeepAsSpare(path) || FsRemove(path) == 0;
}

void TakeOverSpareFiles() {
    const char* base = JobBaseDirectory();
    SparePool& pool = Pool();
    {
        std::lock_guard<std::mutex> hold(pool.lock);
        pool.numbers.clear();
        CopyText(pool.directory, base);
    }
    FsListDirectory(base[0] != '\0' ? base : ".", AdoptLeftSpare, const_cast<char*>(base));
}

}  // namespace vx
