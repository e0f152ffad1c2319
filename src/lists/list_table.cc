#include "lists/list_table.h"

#include <cstring>
#include <new>
#include <utility>

#include "base/text.h"

namespace vx {

std::atomic<uint32_t> gListMemoryBytes{0};

namespace {

// Fresh and freed memory of a list reads as '0' characters, so that nobody relies on zero bytes.
constexpr int kFillByte = 0x30;

const ListHooks* CurrentHooks(ListTable* table) {
    const ListHooks* hooks = table->hooks.load();
    return hooks != nullptr ? hooks : PlainListHooks();
}

void ReportError(ListTable* table, const char* text) {
    if (text == nullptr) return;
    const ListHooks* hooks = CurrentHooks(table);
    if (hooks->error != nullptr) hooks->error(hooks->context, text);
}

void ReportLookup(ListTable* table, const char* text) {
    if (table->config.reportLookupFailures) ReportError(table, text);
}

const ListLookupTexts& Texts(ListTable* table) {
    return table->config.lookupTexts;
}

void* TakeBlock(ListTable* table, const ListHooks* hooks, size_t size, const char* label,
                int line) {
    void* block = hooks->alloc(hooks->context, size, table->config.sourceName, line, label);
    if (block != nullptr) memset(block, kFillByte, size);
    return block;
}

void ReleaseBlock(ListTable* table, const ListHooks* hooks, void* block, const char* label,
                  int line) {
    hooks->release(hooks->context, block, table->config.sourceName, line, label);
}

// Adds (or with a negative delta subtracts) bytes of a list that counts its memory.
void CountBytes(ListTable* table, int countMemory, int64_t delta) {
    if (countMemory == 0 || table->config.memoryCounter == nullptr) return;
    table->config.memoryCounter->fetch_add(static_cast<uint32_t>(delta));
}

RecursiveLock& LockOf(ListHeader* header) {
    return *std::launder(reinterpret_cast<RecursiveLock*>(header->lockStorage));
}

// Holds a list's lock when the caller's lock flag asks for it.
class FlagHold {
  public:
    FlagHold(ListHeader* header, int lock) : lock_(lock != 0 ? &LockOf(header) : nullptr) {
        if (lock_ != nullptr) lock_->Enter();
    }
    ~FlagHold() {
        if (lock_ != nullptr) lock_->Leave();
    }
    FlagHold(const FlagHold&) = delete;
    FlagHold& operator=(const FlagHold&) = delete;

  private:
    RecursiveLock* lock_;
};

ListHeader* SlotHeader(ListTable* table, ListId id) {
    if (table == nullptr || id < 0 || id >= table->config.slotCount) return nullptr;
    ListSlot& slot = table->slots[id];
    if (slot.used.load() == 0) return nullptr;
    return slot.header.load();
}

// The header behind a handle, or null (reported) for a handle out of range or a free slot.
ListHeader* HeaderOf(ListTable* table, ListId id) {
    ListHeader* header = SlotHeader(table, id);
    if (header == nullptr && table != nullptr) ReportLookup(table, Texts(table).wrongHeaderHandle);
    return header;
}

uint64_t BlockBytes(const ListHeader* header, int block) {
    return block == 0 ? header->DataSize : static_cast<uint64_t>(header->DataSize) << (block - 1);
}

const char* BlockLabel(ListTable* table, int block) {
    return block == 0 ? table->config.dataLabel : table->config.growthDataLabel;
}

// Chains count nodes from nodes[first] on as free nodes over consecutive slots of block.
ListElement* ChainFreeNodes(ListElement* nodes, int32_t first, int32_t count, void* block,
                            uint64_t elementSize) {
    ListElement* chain = nodes + first;
    for (int32_t i = 0; i < count; ++i) {
        ListElement& node = chain[i];
        node.pPrev = i > 0 ? &chain[i - 1] : nullptr;
        node.pNext = i + 1 < count ? &chain[i + 1] : nullptr;
        node.InUse = 0;
        node.Index = first + i;
        node.pData = static_cast<char*>(block) + static_cast<uint64_t>(i) * elementSize;
    }
    return chain;
}

// The node at index, or with fetchNext the node at the cursor; null when there is none. Every
// lookup moves the cursor to the successor of what it found.
ListElement* FindNode(ListTable* table, ListId id, int32_t index, bool fetchNext) {
    ListHeader* header = SlotHeader(table, id);
    if (header == nullptr) {
        if (table != nullptr) ReportLookup(table, Texts(table).wrongElementHandle);
        return nullptr;
    }
    if (fetchNext) {
        ListElement* node = header->pCurrent;
        header->pCurrent = node != nullptr ? node->pNext : nullptr;
        return node;
    }
    if (index < 0 || index > header->UsedElements) {
        ReportLookup(table, Texts(table).wrongIndex);
        return nullptr;
    }
    ListElement* node = nullptr;
    if (index == header->UsedElements - 1) {
        node = header->pLast;
    } else if (index < header->UsedElements) {
        // The node at the array position of the index is right until nodes were reordered, and
        // close to the right one after a few inserts or deletes.
        ListElement* guess = &header->StartOfElements[index];
        if (guess->InUse != 0) {
            node = guess;
            while (node != nullptr && node->Index < index) node = node->pNext;
            while (node != nullptr && node->Index > index) node = node->pPrev;
        }
        if (node == nullptr || node->Index != index) {
            node = header->pFirst;
            while (node != nullptr && node->Index != index) node = node->pNext;
        }
    }
    header->pCurrent = node != nullptr ? node->pNext : nullptr;
    return node;
}

// Doubles a full list: a new node array of twice the capacity and one more data block for the
// new half. Element data stay where they are; on any failure the list is left as it was.
int GrowList(ListTable* table, ListHeader* header) {
    if (header->NumberOfDataBlocks >= table->config.maxDataBlocks) {
        ReportError(table, table->config.noMoreAppendsText);
        return -1;
    }
    const int32_t oldMax = header->MaxElements;
    if (oldMax > INT32_MAX / 2) return -1;
    const uint64_t blockBytes = static_cast<uint64_t>(oldMax) * header->ElementSize;
    const uint64_t oldNodeBytes = static_cast<uint64_t>(oldMax) * sizeof(ListElement);
    const uint64_t newNodeBytes = 2 * oldNodeBytes;
    if (blockBytes > static_cast<uint64_t>(PTRDIFF_MAX)) return -1;

    const ListHooks* hooks = header->hooks;
    auto* nodes = static_cast<ListElement*>(
        TakeBlock(table, hooks, newNodeBytes, table->config.elementsLabel, __LINE__));
    if (nodes == nullptr) return -1;
    CountBytes(table, header->CountMemory, static_cast<int64_t>(newNodeBytes));
    void* block = TakeBlock(table, hooks, blockBytes, BlockLabel(table, header->NumberOfDataBlocks),
                            __LINE__);
    if (block == nullptr) {
        ReleaseBlock(table, hooks, nodes, table->config.elementsLabel, __LINE__);
        CountBytes(table, header->CountMemory, -static_cast<int64_t>(newNodeBytes));
        return -1;
    }
    CountBytes(table, header->CountMemory,
               static_cast<int64_t>(blockBytes) - static_cast<int64_t>(oldNodeBytes));

    // The list is full, so the in-use chain holds every node: copy it in order.
    ListElement* cursor = nullptr;
    int32_t k = 0;
    for (ListElement* old = header->pFirst; old != nullptr; old = old->pNext, ++k) {
        ListElement& node = nodes[k];
        node.InUse = old->InUse;
        node.Index = old->Index;
        node.pData = old->pData;
        node.pPrev = k > 0 ? &nodes[k - 1] : nullptr;
        node.pNext = nullptr;
        if (k > 0) nodes[k - 1].pNext = &node;
        if (header->pCurrent == old) cursor = &node;
    }
    ReleaseBlock(table, hooks, header->StartOfElements, table->config.elementsLabel, __LINE__);
    header->StartOfElements = nodes;
    header->pFirst = k > 0 ? nodes : nullptr;
    header->pLast = k > 0 ? &nodes[k - 1] : nullptr;
    header->pCurrent = cursor;
    header->pFirstFree = ChainFreeNodes(nodes, oldMax, oldMax, block, header->ElementSize);
    header->StartOfData[header->NumberOfDataBlocks++] = block;
    header->FreeElements = oldMax;
    header->MaxElements = 2 * oldMax;
    return 0;
}

// The first element from node on (along the chain) that matches key, or null.
ListElement* NextMatch(ListHeader* header, ListElement* node, ListCompareFunction compare,
                       const void* key) {
    for (; node != nullptr; node = node->pNext) {
        header->pCurrent = node->pNext;
        if (compare(key, node->pData, 0, nullptr) == 0) return node;
    }
    return nullptr;
}

int Compare(ListCompareFunction compare, const ListElement* a, const ListElement* b) {
    return compare(a->pData, b->pData, 0, nullptr);
}

// Quicksort with the last element of the range as pivot. Both scans stop at elements equal to
// the pivot, so runs of equal elements split evenly; the smaller part is sorted by recursion
// and the larger one by the loop, which keeps the stack depth logarithmic.
void QuickSort(ListElement** nodes, int32_t lo, int32_t hi, ListCompareFunction compare) {
    while (lo < hi) {
        const ListElement* pivot = nodes[hi];
        int32_t i = lo - 1;
        int32_t j = hi;
        for (;;) {
            do ++i;
            while (i < hi && Compare(compare, nodes[i], pivot) < 0);
            do --j;
            while (j > lo && Compare(compare, pivot, nodes[j]) < 0);
            if (i >= j) break;
            std::swap(nodes[i], nodes[j]);
        }
        std::swap(nodes[i], nodes[hi]);
        if (i - lo < hi - i) {
            QuickSort(nodes, lo, i - 1, compare);
            lo = i + 1;
        } else {
            QuickSort(nodes, i + 1, hi, compare);
            hi = i - 1;
        }
    }
}

// Makes the list empty over count fresh nodes, all free over the slots of its first data block.
void StartEmpty(ListHeader* header, ListElement* nodes, int32_t count) {
    header->pFirst = nullptr;
    header->pLast = nullptr;
    header->pCurrent = nullptr;
    header->MaxElements = count;
    header->FreeElements = count;
    header->UsedElements = 0;
    header->StartOfElements = nodes;
    header->pFirstFree =
        ChainFreeNodes(nodes, 0, count, header->StartOfData[0], header->ElementSize);
}

// Releases the data blocks from block `from` on.
void ReleaseDataBlocks(ListTable* table, ListHeader* header, int from) {
    for (int block = from; block < header->NumberOfDataBlocks; ++block) {
        CountBytes(table, header->CountMemory, -static_cast<int64_t>(BlockBytes(header, block)));
        ReleaseBlock(table, header->hooks, header->StartOfData[block], BlockLabel(table, block),
                     __LINE__);
        header->StartOfData[block] = nullptr;
    }
    header->NumberOfDataBlocks = from;
}

// A list that grew and has just become empty goes back to its first data block and first
// capacity: the blocks a backlog made it take are given back instead of staying filled for the
// life of the process. No element lives, so no element pointer is left dangling. When the
// smaller node array cannot be had, the list simply stays as large as it is.
void ShrinkEmptyList(ListTable* table, ListHeader* header) {
    if (header->UsedElements != 0 || header->NumberOfDataBlocks <= 1) return;
    const int32_t count = static_cast<int32_t>(header->DataSize / header->ElementSize);
    const uint64_t nodeBytes = static_cast<uint64_t>(count) * sizeof(ListElement);
    auto* nodes = static_cast<ListElement*>(
        TakeBlock(table, header->hooks, nodeBytes, table->config.elementsLabel, __LINE__));
    if (nodes == nullptr) return;
    CountBytes(table, header->CountMemory,
               static_cast<int64_t>(nodeBytes) -
                   static_cast<int64_t>(header->MaxElements * sizeof(ListElement)));
    ReleaseBlock(table, header->hooks, header->StartOfElements, table->config.elementsLabel,
                 __LINE__);
    ReleaseDataBlocks(table, header, 1);
    StartEmpty(header, nodes, count);
}

void ExitSlot(ListTable* table, ListId id, ListHeader* header) {
    const ListHooks* hooks = header->hooks;
    ListSlot& slot = table->slots[id];
    slot.header.store(nullptr);
    slot.used.store(0);
    CountBytes(table, header->CountMemory,
               -static_cast<int64_t>(header->MaxElements * sizeof(ListElement)));
    ReleaseBlock(table, hooks, header->StartOfElements, table->config.elementsLabel, __LINE__);
    ReleaseDataBlocks(table, header, 0);
    LockOf(header).~RecursiveLock();
    ReleaseBlock(table, hooks, header, table->config.headerLabel, __LINE__);
}

}  // namespace

ListTable* CreateListTable(const ListTableConfig& config, const ListHooks* hooks) {
    if (config.slotCount <= 0 || config.maxDataBlocks < 1 ||
        config.maxDataBlocks > kMaxListDataBlocks) {
        return nullptr;
    }
    auto* table = new (std::nothrow) ListTable{config, {hooks}, {}, nullptr};
    if (table == nullptr) return nullptr;
    table->slots = new (std::nothrow) ListSlot[config.slotCount]{};
    if (table->slots == nullptr) {
        delete table;
        return nullptr;
    }
    return table;
}

void DestroyListTable(ListTable* table) {
    if (table == nullptr) return;
    for (ListId id = 0; id < table->config.slotCount; ++id) {
        ListHeader* header = SlotHeader(table, id);
        if (header != nullptr) ExitSlot(table, id, header);
    }
    delete[] table->slots;
    delete table;
}

void SetListTableHooks(ListTable* table, const ListHooks* hooks) {
    if (table != nullptr) table->hooks.store(hooks);
}

int TableInitList(ListTable* table, int32_t initialCount, size_t elementSize, ListId* out,
                  int countMemory) {
    if (table == nullptr || out == nullptr) return -1;
    if (elementSize == 0) elementSize = table->config.defaultElementSize;
    if (initialCount <= 0 || elementSize == 0) return -1;
    // DataSize is a 32-bit field.
    const uint64_t dataBytes = static_cast<uint64_t>(elementSize) * initialCount;
    if (dataBytes > UINT32_MAX) return -1;

    LockHold slotHold(table->slotLock);
    ListId id = 0;
    while (id < table->config.slotCount && table->slots[id].used.load() != 0) ++id;
    if (id == table->config.slotCount) {
        char text[128];
        FormatText(text, sizeof text, table->config.tooManyListsFormat, table->config.slotCount);
        ReportError(table, text);
        return -1;
    }

    const ListHooks* hooks = CurrentHooks(table);
    auto* header = static_cast<ListHeader*>(
        TakeBlock(table, hooks, sizeof(ListHeader), table->config.headerLabel, __LINE__));
    if (header == nullptr) return -1;
    const uint64_t nodeBytes = static_cast<uint64_t>(initialCount) * sizeof(ListElement);
    auto* nodes = static_cast<ListElement*>(
        TakeBlock(table, hooks, nodeBytes, table->config.elementsLabel, __LINE__));
    if (nodes == nullptr) {
        ReleaseBlock(table, hooks, header, table->config.headerLabel, __LINE__);
        return -1;
    }
    CountBytes(table, countMemory, static_cast<int64_t>(nodeBytes));
    void* block = TakeBlock(table, hooks, dataBytes, table->config.dataLabel, __LINE__);
    if (block == nullptr) {
        ReleaseBlock(table, hooks, nodes, table->config.elementsLabel, __LINE__);
        ReleaseBlock(table, hooks, header, table->config.headerLabel, __LINE__);
        CountBytes(table, countMemory, -static_cast<int64_t>(nodeBytes));
        return -1;
    }
    CountBytes(table, countMemory, static_cast<int64_t>(dataBytes));

    header->ElementSize = elementSize;
    header->ListId = id;
    header->CountMemory = countMemory;
    header->DataSize = static_cast<uint32_t>(dataBytes);
    header->NumberOfDataBlocks = 1;
    for (void*& data : header->StartOfData) data = nullptr;
    header->StartOfData[0] = block;
    header->hooks = hooks;
    StartEmpty(header, nodes, initialCount);
    new (header->lockStorage) RecursiveLock();

    table->slots[id].header.store(header);
    table->slots[id].used.store(1);
    *out = id;
    return 0;
}

int TableExitList(ListTable* table, ListId id) {
    if (table == nullptr) return -1;
    LockHold slotHold(table->slotLock);
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    ExitSlot(table, id, header);
    return 0;
}

int TableLockList(ListTable* table, ListId id) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    LockOf(header).Enter();
    return 0;
}

int TableUnlockList(ListTable* table, ListId id) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    LockOf(header).Leave();
    return 0;
}

int TableGetElementByIndex(ListTable* table, ListId id, int32_t index, void** data, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || data == nullptr) return -1;
    FlagHold hold(header, lock);
    ListElement* node = FindNode(table, id, index, false);
    if (node == nullptr) {
        ReportLookup(table, Texts(table).getByIndexNoData);
        return -1;
    }
    *data = node->pData;
    return 0;
}

int TableGetFirstElement(ListTable* table, ListId id, void** data, int lock) {
    return TableGetElementByIndex(table, id, 0, data, lock);
}

int TableGetNextElement(ListTable* table, ListId id, void** data, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || data == nullptr) return -1;
    FlagHold hold(header, lock);
    ListElement* node = FindNode(table, id, 0, true);
    if (node == nullptr) {
        *data = nullptr;  // past the end
        return 0;
    }
    if (node->InUse == 0) {
        ReportLookup(table, Texts(table).getNextNoData);
        return -1;
    }
    *data = node->pData;
    return 0;
}

int TableInsertElementAtIndex(ListTable* table, ListId id, int32_t index, const void* data,
                              int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || data == nullptr) return -1;
    FlagHold hold(header, lock);
    if (index < 0 || index > header->UsedElements) {
        ReportLookup(table, Texts(table).insertWrongIndex);
        return -1;
    }
    if (header->UsedElements == header->MaxElements && GrowList(table, header) != 0) return -1;

    ListElement* prev = nullptr;
    if (index > 0) {
        prev = FindNode(table, id, index - 1, false);
        if (prev == nullptr) return -1;
    }
    ListElement* node = header->pFirstFree;
    header->pFirstFree = node->pNext;
    if (header->pFirstFree != nullptr) header->pFirstFree->pPrev = nullptr;

    node->pPrev = prev;
    node->pNext = prev != nullptr ? prev->pNext : header->pFirst;
    if (node->pNext != nullptr) {
        node->pNext->pPrev = node;
    } else {
        header->pLast = node;
    }
    if (prev != nullptr) {
        prev->pNext = node;
    } else {
        header->pFirst = node;
    }
    memcpy(node->pData, data, header->ElementSize);
    header->FreeElements--;
    header->UsedElements++;
    node->InUse = 1;
    node->Index = index;
    for (ListElement* next = node->pNext; next != nullptr; next = next->pNext) {
        next->Index = next->pPrev->Index + 1;
    }
    return 0;
}

int TableAppendElement(ListTable* table, ListId id, const void* data, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    FlagHold hold(header, lock);
    return TableInsertElementAtIndex(table, id, header->UsedElements, data, !lock);
}

int TableDeleteElementAtIndex(ListTable* table, ListId id, int32_t index, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    FlagHold hold(header, lock);
    ListElement* node = FindNode(table, id, index, false);
    if (node == nullptr) {
        ReportLookup(table, Texts(table).deleteNoData);
        return -1;
    }
    ListElement* next = node->pNext;
    if (node->pPrev != nullptr) {
        node->pPrev->pNext = next;
    } else {
        header->pFirst = next;
    }
    if (next != nullptr) {
        next->pPrev = node->pPrev;
    } else {
        header->pLast = node->pPrev;
    }
    node->pPrev = nullptr;
    node->pNext = header->pFirstFree;
    if (header->pFirstFree != nullptr) header->pFirstFree->pPrev = node;
    header->pFirstFree = node;
    node->InUse = 0;
    memset(node->pData, kFillByte, header->ElementSize);
    header->FreeElements++;
    header->UsedElements--;
    for (; next != nullptr; next = next->pNext) next->Index--;
    ShrinkEmptyList(table, header);
    return 0;
}

int TableDeleteFirstElement(ListTable* table, ListId id, int lock) {
    return TableDeleteElementAtIndex(table, id, 0, lock);
}

int TableDeleteElement(ListTable* table, ListId id, ListCompareFunction compare, const void* key,
                       int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || compare == nullptr) return -1;
    FlagHold hold(header, lock);
    int32_t index = 0;
    if (TableFindElement(table, id, compare, &index, key, nullptr, !lock) != 0) return 0;
    return TableDeleteElementAtIndex(table, id, index, !lock);
}

int TableReplaceElementAtIndex(ListTable* table, ListId id, int32_t index, const void* data,
                               int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || data == nullptr) return -1;
    FlagHold hold(header, lock);
    ListElement* node = FindNode(table, id, index, false);
    if (node == nullptr) return -1;
    memcpy(node->pData, data, header->ElementSize);
    return 0;
}

int TableReplaceElement(ListTable* table, ListId id, ListCompareFunction compare, const void* key,
                        const void* data, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || compare == nullptr) return -1;
    FlagHold hold(header, lock);
    int32_t index = 0;
    if (TableFindElement(table, id, compare, &index, key, nullptr, !lock) != 0) return 0;
    return TableReplaceElementAtIndex(table, id, index, data, !lock);
}

int TableFindElement(ListTable* table, ListId id, ListCompareFunction compare, int32_t* index,
                     const void* key, void* copy, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || compare == nullptr || index == nullptr) return -1;
    FlagHold hold(header, lock);
    ListElement* start = FindNode(table, id, *index, false);
    ListElement* node = NextMatch(header, start, compare, key);
    if (node == nullptr) return -1;
    if (copy != nullptr) memcpy(copy, node->pData, header->ElementSize);
    *index = node->Index;
    return 0;
}

int TableCountElements(ListTable* table, ListId id, ListCompareFunction compare, int32_t* count,
                       int32_t start, const void* key, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || compare == nullptr || count == nullptr) return -1;
    FlagHold hold(header, lock);
    *count = 0;
    ListElement* node = FindNode(table, id, start, false);
    for (node = NextMatch(header, node, compare, key); node != nullptr;
         node = NextMatch(header, node->pNext, compare, key)) {
        ++*count;
    }
    return 0;
}

int TableGetNumberOfElements(ListTable* table, ListId id, int32_t* count, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || count == nullptr) return -1;
    FlagHold hold(header, lock);
    *count = header->UsedElements;
    return 0;
}

int TableGetNumberOfFreeElements(ListTable* table, ListId id, int32_t* count, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr || count == nullptr) return -1;
    FlagHold hold(header, lock);
    *count = header->FreeElements;
    return 0;
}

int TableClearList(ListTable* table, ListId id, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    FlagHold hold(header, lock);
    header->UsedElements = 0;
    header->FreeElements = header->MaxElements;
    for (int block = 0; block < header->NumberOfDataBlocks; ++block) {
        memset(header->StartOfData[block], kFillByte, BlockBytes(header, block));
    }
    for (ListElement* node = header->pFirst; node != nullptr; node = node->pNext) node->InUse = 0;
    if (header->pFirst != nullptr) {
        header->pLast->pNext = header->pFirstFree;
        if (header->pFirstFree != nullptr) header->pFirstFree->pPrev = header->pLast;
        header->pFirstFree = header->pFirst;
    }
    header->pFirst = nullptr;
    header->pLast = nullptr;
    int32_t index = 0;
    for (ListElement* node = header->pFirstFree; node != nullptr; node = node->pNext) {
        node->Index = index++;
    }
    return 0;
}

int TableSortList(ListTable* table, ListId id, int mode, ListCompareFunction compare, int lock) {
    ListHeader* header = HeaderOf(table, id);
    if (header == nullptr) return -1;
    if (mode != 1) return 0;
    if (compare == nullptr) return -1;
    // Like every compound operation: the caller's lock, or (flag 0) the sorting step's own.
    FlagHold hold(header, lock);
    FlagHold stepHold(header, !lock);
    const int32_t used = header->UsedElements;
    if (used < 2) return 0;

    // Sort the nodes through an array of pointers, then relink the chain in that order; data
    // slots travel with their nodes, so element pointers stay valid.
    const size_t orderBytes = static_cast<size_t>(used) * sizeof(ListElement*);
    auto* order = static_cast<ListElement**>(
        TakeBlock(table, header->hooks, orderBytes, table->config.elementsLabel, __LINE__));
    if (order == nullptr) return -1;
    int32_t k = 0;
    for (ListElement* node = header->pFirst; node != nullptr; node = node->pNext) order[k++] = node;
    QuickSort(order, 0, used - 1, compare);
    for (k = 0; k < used; ++k) {
        order[k]->pPrev = k > 0 ? order[k - 1] : nullptr;
        order[k]->pNext = k + 1 < used ? order[k + 1] : nullptr;
        order[k]->Index = k;
    }
    header->pFirst = order[0];
    header->pLast = order[used - 1];
    ReleaseBlock(table, header->hooks, order, table->config.elementsLabel, __LINE__);
    return 0;
}

}  // namespace vx
