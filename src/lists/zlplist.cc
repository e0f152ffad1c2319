// The job side's list store: one process-wide table of 2048 list slots.
#include "lists/zlplist.h"

#include "lists/list_table.h"

namespace vx {

ListTableConfig ZlpListTableConfig() {
    return ListTableConfig{
        .slotCount = kZlpListSlots,
        .maxDataBlocks = kZlpMaxDataBlocks,
        .defaultElementSize = kZlpDefaultElementSize,
        .sourceName = "zlplist",
        .headerLabel = "ListArray.pHeader",
        .elementsLabel = "ListHeader.StartOfElements",
        .dataLabel = "ListHeader.StartOfData",
        .growthDataLabel = "ListHeader.StartOfData",
        .tooManyListsFormat = "InitList: Maximum number of lists %i reached\n",
        .noMoreAppendsText = "iAppendList: No more appends possible\n",
        .reportLookupFailures = false,
        .lookupTexts = {},
        .memoryCounter = &gListMemoryBytes,
    };
}

namespace {
// Made on first use; it lives as long as the process.
ListTable* Store() {
    static ListTable* const table = CreateListTable(ZlpListTableConfig(), nullptr);
    return table;
}
}  // namespace

void SetListStoreHooks(const ListHooks* hooks) {
    SetListTableHooks(Store(), hooks);
}

int InitList(int32_t initialCount, size_t elementSize, ListId* out, int countMemory) {
    return TableInitList(Store(), initialCount, elementSize, out, countMemory);
}
int ExitList(ListId id) {
    return TableExitList(Store(), id);
}
int LockList(ListId id) {
    return TableLockList(Store(), id);
}
int UnlockList(ListId id) {
    return TableUnlockList(Store(), id);
}
int GetElementByIndex(ListId id, int32_t index, void** data, int lock) {
    return TableGetElementByIndex(Store(), id, index, data, lock);
}
int GetFirstElement(ListId id, void** data, int lock) {
    return TableGetFirstElement(Store(), id, data, lock);
}
int GetNextElement(ListId id, void** data, int lock) {
    return TableGetNextElement(Store(), id, data, lock);
}
int InsertElementAtIndex(ListId id, int32_t index, const void* data, int lock) {
    return TableInsertElementAtIndex(Store(), id, index, data, lock);
}
int AppendElement(ListId id, const void* data, int lock) {
    return TableAppendElement(Store(), id, data, lock);
}
int DeleteElementAtIndex(ListId id, int32_t index, int lock) {
    return TableDeleteElementAtIndex(Store(), id, index, lock);
}
int DeleteFirstElement(ListId id, int lock) {
    return TableDeleteFirstElement(Store(), id, lock);
}
int DeleteElement(ListId id, ListCompareFunction compare, const void* key, int lock) {
    return TableDeleteElement(Store(), id, compare, key, lock);
}
int ReplaceElementAtIndex(ListId id, int32_t index, const void* data, int lock) {
    return TableReplaceElementAtIndex(Store(), id, index, data, lock);
}
int ReplaceElement(ListId id, ListCompareFunction compare, const void* key, const void* data,
                   int lock) {
    return TableReplaceElement(Store(), id, compare, key, data, lock);
}
int FindElement(ListId id, ListCompareFunction compare, int32_t* index, const void* key, void* copy,
                int lock) {
    return TableFindElement(Store(), id, compare, index, key, copy, lock);
}
int CountElements(ListId id, ListCompareFunction compare, int32_t* count, int32_t start,
                  const void* key, int lock) {
    return TableCountElements(Store(), id, compare, count, start, key, lock);
}
int GetNumberOfElements(ListId id, int32_t* count, int lock) {
    return TableGetNumberOfElements(Store(), id, count, lock);
}
int GetNumberOfFreeElements(ListId id, int32_t* count, int lock) {
    return TableGetNumberOfFreeElements(Store(), id, count, lock);
}
int ClearList(ListId id, int lock) {
    return TableClearList(Store(), id, lock);
}
int SortList(ListId id, int mode, ListCompareFunction compare, int lock) {
    return TableSortList(Store(), id, mode, compare, lock);
}

uint32_t ListMemoryInUse() {
    return gListMemoryBytes.load();
}

}  // namespace vx
