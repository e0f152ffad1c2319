// ClistMan: the list store as an object, for the settings caches and the library binding of the
// print-server object. Same design as the job side's store (jobs/zlplist.h) over a table of its
// own with 1024 slots; every list starts with 50 nodes and may grow through at most 20 data
// blocks; failed lookups are reported to the trace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lists/list_hooks.h"
#include "lists/zlplist.h"

namespace vx {

struct ListTable;

constexpr int kClistManSlots = 1024;
constexpr int kClistManMaxDataBlocks = 20;
constexpr int32_t kClistManInitialCount = 50;

class ClistMan {
  public:
    // defaultElementSize: the element size used when a list is created with size 0.
    ClistMan(size_t defaultElementSize, const ListHooks* hooks);
    ~ClistMan();
    ClistMan(const ClistMan&) = delete;
    ClistMan& operator=(const ClistMan&) = delete;

    int swlalInitList(size_t elementSize, ListId* out);
    int swlalExitList(ListId id);
    int swlalLockList(ListId id);
    int swlalUnlockList(ListId id);
    int swlalGetElementByIndex(ListId id, int32_t index, void** data, int lock);
    int swlalGetFirstElement(ListId id, void** data, int lock);
    int swlalGetNextElement(ListId id, void** data, int lock);
    int swlalInsertElementAtIndex(ListId id, int32_t index, const void* data, int lock);
    int swlalAppendElement(ListId id, const void* data, int lock);
    int swlalDeleteElementAtIndex(ListId id, int32_t index, int lock);
    int swlalDeleteFirstElement(ListId id, int lock);
    int swlalDeleteElement(ListId id, ListCompareFunction compare, const void* key, int lock);
    int swlalReplaceElementAtIndex(ListId id, int32_t index, const void* data, int lock);
    int swlalReplaceElement(ListId id, ListCompareFunction compare, const void* key,
                            const void* data, int lock);
    int swlalFindElement(ListId id, ListCompareFunction compare, int32_t* index, const void* key,
                         void* copy, int lock);
    int swlalCountElements(ListId id, ListCompareFunction compare, int32_t* count, int32_t start,
                           const void* key, int lock);
    int swlalGetNumberOfElements(ListId id, int32_t* count, int lock);
    int swlalGetNumberOfFreeElements(ListId id, int32_t* count, int lock);
    int swlalClearList(ListId id, int lock);
    int swlalSortList(ListId id, int mode, ListCompareFunction compare, int lock);

  private:
    ListTable* table_;
    size_t defaultElementSize_;
};

}  // namespace vx
