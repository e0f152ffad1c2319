// Settings hives on Linux: one ".reg" text file per hive (see reg_file.h for the format).
//
// Every call looks at the file again, so a change made by another process is seen at once; a
// file that has not changed since it was last read is not read and parsed again.
// Readers hold a shared flock and writers an exclusive one on "<hive>.lock" beside the file (a
// separate file, because the hive itself is replaced by rename on every write); a writer writes
// "<hive>.tmp.<pid>", syncs it and renames it over the hive, so that a reader never sees half a
// file. flock belongs to an open file description, so a process-wide lock also keeps the
// threads of this process apart. A RegHandle is a small heap record: hive and key path.
#include "base/registry.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_set>

#include "base/posix/reg_file.h"
#include "base/reg_text.h"
#include "base/text.h"

namespace vx {

namespace {

// Larger hive files are refused rather than read: they are not settings.
constexpr off_t kMaxHiveBytes = 16 * 1024 * 1024;

struct KeyRecord {
    RegHive hive;
    std::string path;  // normalized, below the hive root
    bool writable;     // created (query, set-value, create-subkey) rather than opened (query)
};

KeyRecord g_hiveRoots[2] = {{kHiveLocalMachine, "", true}, {kHiveCurrentUser, "", true}};

std::mutex& HandlesMutex() {
    static std::mutex m;
    return m;
}
std::unordered_set<KeyRecord*>& LiveHandles() {
    static std::unordered_set<KeyRecord*> handles;
    return handles;
}
std::shared_mutex& HiveMutex() {
    static std::shared_mutex m;
    return m;
}

bool ValidHive(RegHive hive) {
    return hive == kHiveLocalMachine || hive == kHiveCurrentUser;
}

// A copy of what a handle stands for, so that a close on another thread cannot pull the record
// away during the call. False for a handle that is not open.
bool ResolveHandle(RegHandle handle, KeyRecord* out) {
    for (KeyRecord& root : g_hiveRoots) {
        if (handle == &root) {
            *out = root;
            return true;
        }
    }
    std::lock_guard<std::mutex> hold(HandlesMutex());
    auto* record = static_cast<KeyRecord*>(handle);
    if (LiveHandles().count(record) == 0) return false;
    *out = *record;
    return true;
}

RegHandle NewHandle(RegHive hive, const std::string& path, bool writable) {
    auto* record = new KeyRecord{hive, path, writable};
    std::lock_guard<std::mutex> hold(HandlesMutex());
    LiveHandles().insert(record);
    return record;
}

// --- Where the hives live ---------------------------------------------------------------------

std::string EnvText(const char* name) {
    const char* v = getenv(name);
    return v == nullptr ? "" : v;
}

std::string HomeDirectory() {
    std::string home = EnvText("HOME");
    if (!home.empty()) return home;
    struct passwd pw;
    struct passwd* found = nullptr;
    char buf[4096];
    if (getpwuid_r(getuid(), &pw, buf, sizeof buf, &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr)
        return found->pw_dir;
    return "";
}

// The directory of a hive's file; "" when it cannot be told (no home directory).
std::string HiveDirectory(RegHive hive) {
    std::string dir = EnvText("VORLIX_REGISTRY_DIR");
    if (!dir.empty()) return dir;
    if (hive == kHiveLocalMachine) return "/etc/vorlix";
    std::string config = EnvText("XDG_CONFIG_HOME");
    if (config.empty() || config[0] != '/') {
        std::string home = HomeDirectory();
        if (home.empty()) return "";
        config = home + "/.config";
    }
    return config + "/vorlix";
}

std::string HiveFileName(RegHive hive) {
    return hive == kHiveLocalMachine ? "HKLM.reg" : "HKCU.reg";
}

// --- Files ------------------------------------------------------------------------------------

// Owns a file descriptor.
class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { Close(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    void Reset(int fd) {
        Close();
        fd_ = fd;
    }
    // Closes now; false when the close reported an error (a write that did not make it).
    bool Close() {
        int rc = fd_ >= 0 ? close(fd_) : 0;
        fd_ = -1;
        return rc == 0;
    }

  private:
    int fd_;
};

int OpenFile(const std::string& path, int flags, mode_t mode = 0) {
    int fd;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Creates a directory and its missing parents (mode 0755). 0, or -1.
int MakeDirectories(const std::string& dir) {
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos < dir.size() && dir[pos] != '/') continue;
        std::string part = dir.substr(0, pos);
        if (mkdir(part.c_str(), 0755) == 0)
            chmod(part.c_str(), 0755);  // the mode asked for, whatever the umask
        else if (errno != EEXIST)
            return -1;
    }
    struct stat st;
    return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? 0 : -1;
}

// The lock beside a hive. A reader that cannot open or create the lock file (a hive it may
// read but not write) reads without it: the file is only ever replaced whole, so that is safe.
long TakeFileLock(const std::string& hive, bool exclusive, Fd* lock) {
    std::string path = hive + ".lock";
    int fd = OpenFile(path, O_RDWR | O_CREAT, 0644);
    if (fd < 0 && !exclusive) fd = OpenFile(path, O_RDONLY);
    if (fd < 0) return exclusive ? kRegAccessDenied : kRegOk;
    lock->Reset(fd);
    int rc;
    do {
        rc = flock(lock->Get(), exclusive ? LOCK_EX : LOCK_SH);
    } while (rc != 0 && errno == EINTR);
    return rc != 0 && exclusive ? kRegAccessDenied : kRegOk;
}

// The whole file; a missing file reads as empty.
long ReadHiveFile(const std::string& path, std::string* content) {
    content->clear();
    Fd fd(OpenFile(path, O_RDONLY));
    if (!fd.Valid()) return errno == ENOENT ? kRegOk : kRegAccessDenied;
    struct stat st;
    if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxHiveBytes)
        return kRegAccessDenied;
    char chunk[8192];
    while (true) {
        ssize_t n = read(fd.Get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return kRegAccessDenied;
        if (n == 0) return kRegOk;
        content->append(chunk, static_cast<size_t>(n));
        if (content->size() > static_cast<size_t>(kMaxHiveBytes)) return kRegAccessDenied;
    }
}

bool WriteAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Replaces the hive in one step: temporary file, sync, rename over. Keeps the mode of the
// hive it replaces (0644 for a new one).
long ReplaceHiveFile(const std::string& dir, const std::string& path, const std::string& data) {
    mode_t mode = 0644;
    struct stat st;
    if (stat(path.c_str(), &st) == 0) mode = st.st_mode & 07777;
    std::string temp = path + ".tmp." + std::to_string(getpid());
    Fd fd(OpenFile(temp, O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (!fd.Valid()) return kRegAccessDenied;
    bool ok = fchmod(fd.Get(), mode) == 0 && WriteAll(fd.Get(), data) && fsync(fd.Get()) == 0;
    ok = fd.Close() && ok;
    if (!ok || rename(temp.c_str(), path.c_str()) != 0) {
        unlink(temp.c_str());
        return kRegAccessDenied;
    }
    // The rename itself reaches the disk with the directory.
    Fd dirFd(OpenFile(dir, O_RDONLY | O_DIRECTORY));
    if (dirFd.Valid()) fsync(dirFd.Get());
    return kRegOk;
}

// --- Reading and editing a hive ---------------------------------------------------------------

// --- The last read of each hive ----------------------------------------------------------------

// A file changed less than this long ago is read on every call. File times move in clock ticks,
// so a change right after a read could leave them as they were; a file that has been still for
// longer gets a later time from any change.
constexpr time_t kSettleSeconds = 2;

struct CachedHive {
    bool valid = false;
    std::string path;
    struct stat identity {};
    regfile::Document doc;
};

std::mutex& CacheMutex() {
    static std::mutex m;
    return m;
}
CachedHive& CacheOf(RegHive hive) {
    static CachedHive cached[2];
    return cached[hive == kHiveCurrentUser ? 1 : 0];
}

bool SameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           SameTime(a.st_mtim, b.st_mtim) && SameTime(a.st_ctim, b.st_ctim);
}

int64_t Nanoseconds(const timespec& t) {
    return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

bool Settled(const struct stat& st) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t settle = static_cast<int64_t>(kSettleSeconds) * 1000000000;
    return Nanoseconds(now) - Nanoseconds(st.st_mtim) > settle &&
           Nanoseconds(now) - Nanoseconds(st.st_ctim) > settle;
}

// Reads and parses a hive under the shared locks, or takes the last read of a file that has not
// changed since. The file is looked at before it is read: if it changes in between, the next
// call sees a file unlike the one remembered and reads it again.
long LoadHive(RegHive hive, regfile::Document* doc) {
    std::string dir = HiveDirectory(hive);
    if (dir.empty()) return kRegNotFound;
    std::string path = dir + "/" + HiveFileName(hive);
    struct stat seen {};
    const bool settled = stat(path.c_str(), &seen) == 0 && S_ISREG(seen.st_mode) && Settled(seen);
    if (settled) {
        std::lock_guard<std::mutex> hold(CacheMutex());
        const CachedHive& cached = CacheOf(hive);
        if (cached.valid && cached.path == path && SameFile(cached.identity, seen)) {
            *doc = cached.doc;
            return kRegOk;
        }
    }
    std::shared_lock<std::shared_mutex> hold(HiveMutex());
    Fd lock;
    long rc = TakeFileLock(path, false, &lock);
    std::string content;
    if (rc == kRegOk) rc = ReadHiveFile(path, &content);
    if (rc != kRegOk) return rc;
    regfile::Parse(content, RegHiveName(hive), doc);
    if (settled) {
        std::lock_guard<std::mutex> cacheHold(CacheMutex());
        CachedHive& cached = CacheOf(hive);
        cached.path = path;
        cached.identity = seen;
        cached.doc = *doc;
        cached.valid = true;
    }
    return kRegOk;
}

// Runs edit(doc, &changed) on the hive under the exclusive locks and writes the file back when
// the edit changed something. A file that cannot be read is never written over.
template <typename Edit>
long EditHive(RegHive hive, Edit edit) {
    std::string dir = HiveDirectory(hive);
    if (dir.empty()) return kRegAccessDenied;
    std::string path = dir + "/" + HiveFileName(hive);
    std::unique_lock<std::shared_mutex> hold(HiveMutex());
    if (MakeDirectories(dir) != 0) return kRegAccessDenied;
    Fd lock;
    long rc = TakeFileLock(path, true, &lock);
    std::string content;
    if (rc == kRegOk) rc = ReadHiveFile(path, &content);
    if (rc != kRegOk) return rc;
    regfile::Document doc;
    regfile::Parse(content, RegHiveName(hive), &doc);
    bool changed = false;
    rc = edit(doc, &changed);
    // The new file is a new inode with a fresh time: the remembered read no longer matches it.
    if (rc == kRegOk && changed) rc = ReplaceHiveFile(dir, path, regfile::Serialize(doc));
    return rc;
}

}  // namespace

// --- The registry calls -----------------------------------------------------------------------

RegHandle RegHiveHandle(RegHive hive) {
    return &g_hiveRoots[hive == kHiveCurrentUser ? 1 : 0];
}

long RegOpen(RegHive hive, const char* path, RegHandle* out) {
    if (out == nullptr) return kRegBadParameter;
    *out = nullptr;
    if (!ValidHive(hive)) return kRegBadParameter;
    std::string key = regfile::NormalizeKeyPath(path);
    regfile::Document doc;
    long rc = LoadHive(hive, &doc);
    if (rc != kRegOk) return rc;
    if (!regfile::KeyExists(doc, key)) return kRegNotFound;
    *out = NewHandle(hive, key, false);
    return kRegOk;
}

long RegCreate(RegHive hive, const char* path, RegHandle* out) {
    if (out == nullptr) return kRegBadParameter;
    *out = nullptr;
    if (!ValidHive(hive)) return kRegBadParameter;
    std::string key = regfile::NormalizeKeyPath(path);
    long rc = EditHive(hive, [&](regfile::Document& doc, bool* changed) {
        if (!regfile::KeyExists(doc, key)) {
            regfile::AddSection(&doc, key, RegHiveName(hive));
            *changed = true;
        }
        return kRegOk;
    });
    if (rc == kRegOk) *out = NewHandle(hive, key, true);
    return rc;
}

long RegClose(RegHandle key) {
    for (KeyRecord& root : g_hiveRoots)
        if (key == &root) return kRegOk;
    auto* record = static_cast<KeyRecord*>(key);
    {
        std::lock_guard<std::mutex> hold(HandlesMutex());
        if (LiveHandles().erase(record) == 0) return kRegInvalidHandle;
    }
    delete record;
    return kRegOk;
}

long RegQueryText(RegHandle key, const char* name, char* buf, uint32_t* size) {
    if (size == nullptr) return kRegBadParameter;
    if (buf != nullptr && *size > 0) buf[0] = '\0';
    KeyRecord record;
    if (!ResolveHandle(key, &record)) return kRegInvalidHandle;
    regfile::Document doc;
    long rc = LoadHive(record.hive, &doc);
    if (rc != kRegOk) return rc;
    const regfile::Section* section = regfile::FindSection(doc, record.path);
    const regfile::Value* value = section ? regfile::FindValue(*section, name) : nullptr;
    if (value == nullptr) return kRegNotFound;
    std::string text = regfile::ValueText(*value);
    return RegDeliverText(text.data(), text.size(), buf, size);
}

long RegSetText(RegHandle key, const char* name, const char* text, uint32_t len) {
    KeyRecord record;
    if (!ResolveHandle(key, &record)) return kRegInvalidHandle;
    if (!record.writable) return kRegAccessDenied;
    if (text == nullptr && len > 0) return kRegBadParameter;
    // A name must stay on its line of the file.
    if (name != nullptr && strpbrk(name, "\r\n") != nullptr) return kRegBadParameter;
    // The stored text ends at the length given or at a terminator within it.
    std::string value = len == 0 ? "" : std::string(text, strnlen(text, len));
    return EditHive(record.hive, [&](regfile::Document& doc, bool* changed) {
        regfile::Section* section = regfile::FindSection(&doc, record.path);
        // A key removed from the file meanwhile is listed again.
        if (section == nullptr)
            section = regfile::AddSection(&doc, record.path, RegHiveName(record.hive));
        regfile::SetText(section, name, value);
        *changed = true;
        return kRegOk;
    });
}

long RegRemoveValue(RegHandle key, const char* name) {
    KeyRecord record;
    if (!ResolveHandle(key, &record)) return kRegInvalidHandle;
    if (!record.writable) return kRegAccessDenied;
    return EditHive(record.hive, [&](regfile::Document& doc, bool* changed) {
        regfile::Section* section = regfile::FindSection(&doc, record.path);
        if (section == nullptr || !regfile::RemoveValue(section, name)) return kRegNotFound;
        *changed = true;
        return kRegOk;
    });
}

long RegEnumText(RegHandle key, uint32_t index, char* name, size_t nameCap, char* data,
                 size_t dataCap) {
    if (name != nullptr && nameCap > 0) name[0] = '\0';
    if (data != nullptr && dataCap > 0) data[0] = '\0';
    KeyRecord record;
    if (!ResolveHandle(key, &record)) return kRegInvalidHandle;
    regfile::Document doc;
    long rc = LoadHive(record.hive, &doc);
    if (rc != kRegOk) return rc;
    const regfile::Section* section = regfile::FindSection(doc, record.path);
    const regfile::Value* value = section ? regfile::ValueAt(*section, index) : nullptr;
    if (value == nullptr) return kRegNoMoreItems;
    CopyTextN(name, nameCap, value->name.c_str(), value->name.size());
    std::string text = regfile::ValueText(*value);
    CopyTextN(data, dataCap, text.c_str(), text.size());
    return kRegOk;
}

}  // namespace vx
