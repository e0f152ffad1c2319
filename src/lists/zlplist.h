// The list store of the job-processing side: every queue and table is an indexed, doubly linked
// list of fixed-size elements in pre-allocated blocks, addressed by a ListId handle (0..2047).
// Each list has its own re-entrant lock; the trailing `lock` argument of every operation says
// whether the operation takes that lock itself (nonzero) or the caller already holds it (0).
//
// Element data never move while an element lives: the pointer that GetElementByIndex returns
// stays valid until the element is deleted, the list cleared or destroyed, also across growth.
// Fresh and freed element slots read as '0' characters (0x30), never as zero bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lists/list_hooks.h"

namespace vx {

using ListId = int32_t;
constexpr ListId kInvalidListId = -1;

// For lookups: (key, element data, reserved 0, scratch) -> 0 for a match.
// For SortList: (element a, element b, reserved 0, scratch) -> negative, zero or positive.
using ListCompareFunction = int (*)(const void* key, const void* element, int reserved,
                                    void* scratch);

constexpr int kZlpListSlots = 2048;
constexpr int kZlpMaxDataBlocks = 100;
constexpr size_t kZlpDefaultElementSize = 1024;

// Installs the memory and trace hooks of the print-server object (null: plain memory, no trace).
void SetListStoreHooks(const ListHooks* hooks);

int InitList(int32_t initialCount, size_t elementSize, ListId* out, int countMemory);
int ExitList(ListId id);
int LockList(ListId id);
int UnlockList(ListId id);
int GetElementByIndex(ListId id, int32_t index, void** data, int lock);
int GetFirstElement(ListId id, void** data, int lock);
int GetNextElement(ListId id, void** data, int lock);
int InsertElementAtIndex(ListId id, int32_t index, const void* data, int lock);
int AppendElement(ListId id, const void* data, int lock);
int DeleteElementAtIndex(ListId id, int32_t index, int lock);
int DeleteFirstElement(ListId id, int lock);
int DeleteElement(ListId id, ListCompareFunction compare, const void* key, int lock);
int ReplaceElementAtIndex(ListId id, int32_t index, const void* data, int lock);
int ReplaceElement(ListId id, ListCompareFunction compare, const void* key, const void* data,
                   int lock);
int FindElement(ListId id, ListCompareFunction compare, int32_t* index, const void* key, void* copy,
                int lock);
int CountElements(ListId id, ListCompareFunction compare, int32_t* count, int32_t start,
                  const void* key, int lock);
int GetNumberOfElements(ListId id, int32_t* count, int lock);
int GetNumberOfFreeElements(ListId id, int32_t* count, int lock);
int ClearList(ListId id, int lock);
int SortList(ListId id, int mode, ListCompareFunction compare, int lock);

// Bytes held by lists created with the count flag (the memory report's "list memory").
uint32_t ListMemoryInUse();

}  // namespace vx
