// ClistMan: the list store as an object with a table of its own (1024 slots, lists of 50 nodes
// growing through at most 20 data blocks, failed lookups reported).
#include "lists/swlistman.h"

#include "lists/list_table.h"

namespace vx {

ListTableConfig ClistManTableConfig() {
    return ListTableConfig{
        .slotCount = kClistManSlots,
        .maxDataBlocks = kClistManMaxDataBlocks,
        .defaultElementSize = kZlpDefaultElementSize,
        .sourceName = "swlistman",
        .headerLabel = "PLISTHEADER",
        .elementsLabel = "PLISTHEADER (Start of Elements)",
        .dataLabel = "PLISTHEADER (Start of Data)",
        .growthDataLabel = "PVOID",
        .tooManyListsFormat = "swlalInitList: Maximum number of lists %i reached\n",
        .noMoreAppendsText = "swlaliAppendList: No more appends possible\n",
        .reportLookupFailures = true,
        .lookupTexts =
            {
                .wrongHeaderHandle = "ClistMan::swlaliGetHeader: Wrong list handle\n",
                .wrongElementHandle = "ClistMan::swlaliGetElement: Wrong list handle\n",
                .wrongIndex = "ClistMan::swlaliGetElement: Wrong index\n",
                .getByIndexNoData = "ClistMan::swlalGetElementByIndex: No data available\n",
                .getNextNoData = "ClistMan::swlalGetNextElement: No data available\n",
                .deleteNoData = "ClistMan::swlalDeleteElementAtIndex: No data available\n",
                .insertWrongIndex = "ClistMan::swlalInsertElementAtIndex: Wrong index\n",
            },
        .memoryCounter = &gListMemoryBytes,
    };
}

ClistMan::ClistMan(size_t defaultElementSize, const ListHooks* hooks)
    : table_(CreateListTable(ClistManTableConfig(), hooks)),
      defaultElementSize_(defaultElementSize) {}

ClistMan::~ClistMan() {
    DestroyListTable(table_);
}

// The object's lists never count into the list-memory figure.
int ClistMan::swlalInitList(size_t elementSize, ListId* out) {
    if (elementSize == 0) elementSize = defaultElementSize_;
    return TableInitList(table_, kClistManInitialCount, elementSize, out, 0);
}
int ClistMan::swlalExitList(ListId id) {
    return TableExitList(table_, id);
}
int ClistMan::swlalLockList(ListId id) {
    return TableLockList(table_, id);
}
int ClistMan::swlalUnlockList(ListId id) {
    return TableUnlockList(table_, id);
}
int ClistMan::swlalGetElementByIndex(ListId id, int32_t index, void** data, int lock) {
    return TableGetElementByIndex(table_, id, index, data, lock);
}
int ClistMan::swlalGetFirstElement(ListId id, void** data, int lock) {
    return TableGetFirstElement(table_, id, data, lock);
}
int ClistMan::swlalGetNextElement(ListId id, void** data, int lock) {
    return TableGetNextElement(table_, id, data, lock);
}
int ClistMan::swlalInsertElementAtIndex(ListId id, int32_t index, const void* data, int lock) {
    return TableInsertElementAtIndex(table_, id, index, data, lock);
}
int ClistMan::swlalAppendElement(ListId id, const void* data, int lock) {
    return TableAppendElement(table_, id, data, lock);
}
int ClistMan::swlalDeleteElementAtIndex(ListId id, int32_t index, int lock) {
    return TableDeleteElementAtIndex(table_, id, index, lock);
}
int ClistMan::swlalDeleteFirstElement(ListId id, int lock) {
    return TableDeleteFirstElement(table_, id, lock);
}
int ClistMan::swlalDeleteElement(ListId id, ListCompareFunction compare, const void* key,
                                 int lock) {
    return TableDeleteElement(table_, id, compare, key, lock);
}
int ClistMan::swlalReplaceElementAtIndex(ListId id, int32_t index, const void* data, int lock) {
    return TableReplaceElementAtIndex(table_, id, index, data, lock);
}
int ClistMan::swlalReplaceElement(ListId id, ListCompareFunction compare, const void* key,
                                  const void* data, int lock) {
    return TableReplaceElement(table_, id, compare, key, data, lock);
}
int ClistMan::swlalFindElement(ListId id, ListCompareFunction compare, int32_t* index,
                               const void* key, void* copy, int lock) {
    return TableFindElement(table_, id, compare, index, key, copy, lock);
}
int ClistMan::swlalCountElements(ListId id, ListCompareFunction compare, int32_t* count,
                                 int32_t start, const void* key, int lock) {
    return TableCountElements(table_, id, compare, count, start, key, lock);
}
int ClistMan::swlalGetNumberOfElements(ListId id, int32_t* count, int lock) {
    return TableGetNumberOfElements(table_, id, count, lock);
}
int ClistMan::swlalGetNumberOfFreeElements(ListId id, int32_t* count, int lock) {
    return TableGetNumberOfFreeElements(table_, id, count, lock);
}
int ClistMan::swlalClearList(ListId id, int lock) {
    return TableClearList(table_, id, lock);
}
int ClistMan::swlalSortList(ListId id, int mode, ListCompareFunction compare, int lock) {
    return TableSortList(table_, id, mode, compare, lock);
}

}  // namespace vx
