// The two settings caches: every value read (or its default when the value is missing) is kept,
// so the registry is asked once per name. Integer entries are keyed by value name, or by
// printer + "\" + value name; string entries by value name only. Names compare exactly.
#include <cstring>

#include "printserver/zelprsrv.h"

namespace vx {

namespace {

struct IntCacheEntry {
    char name[256];
    int32_t value;
};
static_assert(sizeof(IntCacheEntry) == 260);

struct StringCacheEntry {
    char name[256];
    char value[256];
};
static_assert(sizeof(StringCacheEntry) == 512);

// Both entry kinds begin with the name.
int CompareEntryName(const void* key, const void* element, int, void*) {
    return strncmp(static_cast<const char*>(key), static_cast<const char*>(element), 256);
}

// Copies the first entry with the name; its index, or -1.
int32_t FindEntry(const SettingsCaches& c, ListId list, const char* name, void* entry) {
    if (c.lists == nullptr || list == kInvalidListId) return -1;
    int32_t index = 0;
    if (c.lists->swlalFindElement(list, CompareEntryName, &index, name, entry, 1) != 0) return -1;
    return index;
}

void InsertEntry(const SettingsCaches& c, ListId list, int32_t* count, const void* entry) {
    if (c.lists == nullptr || list == kInvalidListId) return;
    if (c.lists->swlalInsertElementAtIndex(list, *count, entry, 1) == 0) ++*count;
}

void RemoveEntry(const SettingsCaches& c, ListId list, int32_t* count, const char* name,
                 void* scratch) {
    int32_t index = FindEntry(c, list, name, scratch);
    if (index >= 0 && c.lists->swlalDeleteElementAtIndex(list, index, 1) == 0) --*count;
}

}  // namespace

bool Czelprsrv::IntCacheLookup(const char* name, int32_t* value) {
    if (name == nullptr) {
        Trace(kTraceNotable, "Wrong key in integer cache\n");
        return false;
    }
    LockHold hold(*cacheLock_);
    IntCacheEntry entry;
    if (FindEntry(*caches_, caches_->intList, name, &entry) < 0) return false;
    *value = entry.value;
    return true;
}

void Czelprsrv::IntCacheInsert(const char* name, int32_t value) {
    if (name == nullptr) {
        Trace(kTraceNotable, "Cannot insert element in integer cache\n");
        return;
    }
    LockHold hold(*cacheLock_);
    EnsureCacheLists();
    IntCacheEntry entry = {};
    CopyText(entry.name, name);
    entry.value = value;
    InsertEntry(*caches_, caches_->intList, &caches_->intCount, &entry);
}

void Czelprsrv::IntCacheRemove(const char* name) {
    if (name == nullptr) {
        Trace(kTraceNotable, "Cannot delete element in integer cache\n");
        return;
    }
    LockHold hold(*cacheLock_);
    IntCacheEntry scratch;
    RemoveEntry(*caches_, caches_->intList, &caches_->intCount, name, &scratch);
}

bool Czelprsrv::StringCacheLookup(const char* name, char* value, size_t cap) {
    if (name == nullptr) {
        Trace(kTraceDetail, "Wrong key in string cache\n");
        return false;
    }
    LockHold hold(*cacheLock_);
    StringCacheEntry entry;
    if (FindEntry(*caches_, caches_->stringList, name, &entry) < 0) return false;
    CopyTextN(value, cap, entry.value, sizeof entry.value);
    return true;
}

void Czelprsrv::StringCacheInsert(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) {
        Trace(kTraceNotable, "Cannot insert element in string cache\n");
        return;
    }
    LockHold hold(*cacheLock_);
    EnsureCacheLists();
    StringCacheEntry entry = {};
    CopyText(entry.name, name);
    CopyText(entry.value, value);
    InsertEntry(*caches_, caches_->stringList, &caches_->stringCount, &entry);
}

void Czelprsrv::StringCacheRemove(const char* name) {
    if (name == nullptr) {
        Trace(kTraceNotable, "Cannot delete element in string cache\n");
        return;
    }
    LockHold hold(*cacheLock_);
    StringCacheEntry scratch;
    RemoveEntry(*caches_, caches_->stringList, &caches_->stringCount, name, &scratch);
}

}  // namespace vx
