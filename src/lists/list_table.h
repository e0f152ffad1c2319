// The list engine under both list stores: a table of list slots, each slot holding one indexed,
// doubly linked list of fixed-size elements in pre-allocated blocks. The job side's store
// (zlplist.cc, one global table) and ClistMan (swlistman.cc, one table per object) are thin
// layers over these functions; they differ only in the table's ListTableConfig.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/sync.h"
#include "lists/list_hooks.h"
#include "lists/zlplist.h"

namespace vx {

// Room for data blocks in every header; a table's config may allow fewer.
constexpr int kMaxListDataBlocks = 100;

// One node per capacity slot, all nodes of a list in one array (StartOfElements).
struct ListElement {
    ListElement* pNext;
    ListElement* pPrev;
    int32_t InUse;
    int32_t Index;  // position in the list while in use, dense and ascending along the chain
    void* pData;    // the node's fixed slot of ElementSize bytes in one of the data blocks
};

struct ListHeader {
    ListElement* pFirstFree;
    ListElement* pFirst;
    ListElement* pLast;
    ListElement* pCurrent;  // cursor of GetNextElement: successor of the last element looked up
    int32_t MaxElements;
    int32_t FreeElements;
    int32_t UsedElements;
    uint64_t ElementSize;
    int32_t ListId;
    int32_t CountMemory;
    uint32_t DataSize;  // bytes of block 0; block k > 0 holds DataSize << (k - 1)
    int32_t NumberOfDataBlocks;
    ListElement* StartOfElements;
    void* StartOfData[kMaxListDataBlocks];
    const ListHooks* hooks;  // the hooks the list was allocated with; it is released through them
    // The list's re-entrant lock, constructed in place after the header is filled.
    alignas(RecursiveLock) unsigned char lockStorage[sizeof(RecursiveLock)];
};

// Texts for lookups that fail; written only by tables that report them.
struct ListLookupTexts {
    const char* wrongHeaderHandle;
    const char* wrongElementHandle;
    const char* wrongIndex;
    const char* getByIndexNoData;
    const char* getNextNoData;
    const char* deleteNoData;
    const char* insertWrongIndex;
};

struct ListTableConfig {
    int32_t slotCount;
    int32_t maxDataBlocks;      // at most kMaxListDataBlocks; a list grows maxDataBlocks - 1 times
    size_t defaultElementSize;  // used for element size 0
    const char* sourceName;     // passed to the allocator as the source file
    const char* headerLabel;
    const char* elementsLabel;
    const char* dataLabel;           // the first data block
    const char* growthDataLabel;     // the blocks added when a list grows
    const char* tooManyListsFormat;  // "%i" takes slotCount
    const char* noMoreAppendsText;
    bool reportLookupFailures;
    ListLookupTexts lookupTexts;
    std::atomic<uint32_t>* memoryCounter;  // where lists with the count flag add their bytes
};

struct ListSlot {
    std::atomic<int32_t> used;
    std::atomic<ListHeader*> header;
};

struct ListTable {
    ListTableConfig config;
    std::atomic<const ListHooks*> hooks;  // for new lists and error lines; null: plain hooks
    RecursiveLock slotLock;               // guards taking and freeing slots
    ListSlot* slots;                      // config.slotCount entries
};

// The one byte counter of all lists created with the count flag.
extern std::atomic<uint32_t> gListMemoryBytes;

// The settings of the job side's store and of ClistMan (for tests that build a table of the
// same kind, for example with fewer data blocks).
ListTableConfig ZlpListTableConfig();
ListTableConfig ClistManTableConfig();

// Null when memory is short. DestroyListTable ends every list still in the table.
ListTable* CreateListTable(const ListTableConfig& config, const ListHooks* hooks);
void DestroyListTable(ListTable* table);
void SetListTableHooks(ListTable* table, const ListHooks* hooks);

// The list operations; a null table fails like an invalid handle.
int TableInitList(ListTable* table, int32_t initialCount, size_t elementSize, ListId* out,
                  int countMemory);
int TableExitList(ListTable* table, ListId id);
int TableLockList(ListTable* table, ListId id);
int TableUnlockList(ListTable* table, ListId id);
int TableGetElementByIndex(ListTable* table, ListId id, int32_t index, void** data, int lock);
int TableGetFirstElement(ListTable* table, ListId id, void** data, int lock);
int TableGetNextElement(ListTable* table, ListId id, void** data, int lock);
int TableInsertElementAtIndex(ListTable* table, ListId id, int32_t index, const void* data,
                              int lock);
int TableAppendElement(ListTable* table, ListId id, const void* data, int lock);
int TableDeleteElementAtIndex(ListTable* table, ListId id, int32_t index, int lock);
int TableDeleteFirstElement(ListTable* table, ListId id, int lock);
int TableDeleteElement(ListTable* table, ListId id, ListCompareFunction compare, const void* key,
                       int lock);
int TableReplaceElementAtIndex(ListTable* table, ListId id, int32_t index, const void* data,
                               int lock);
int TableReplaceElement(ListTable* table, ListId id, ListCompareFunction compare, const void* key,
                        const void* data, int lock);
int TableFindElement(ListTable* table, ListId id, ListCompareFunction compare, int32_t* index,
                     const void* key, void* copy, int lock);
int TableCountElements(ListTable* table, ListId id, ListCompareFunction compare, int32_t* count,
                       int32_t start, const void* key, int lock);
int TableGetNumberOfElements(ListTable* table, ListId id, int32_t* count, int lock);
int TableGetNumberOfFreeElements(ListTable* table, ListId id, int32_t* count, int lock);
int TableClearList(ListTable* table, ListId id, int lock);
int TableSortList(ListTable* table, ListId id, int mode, ListCompareFunction compare, int lock);

}  // namespace vx
