// The handle table. Handles are given out round-robin, so that a handle that was just closed is
// not at once reused for another connection while a late caller may still hold it.
#include "base/ni_handles.h"

#include <mutex>

namespace vx {

namespace {

struct Slot {
    bool inUse = false;
    NiHandleEntry entry;
};

struct HandleTable {
    std::mutex mutex;
    int limit = 0;  // 0 until NiTableInit
    int next = 0;
    Slot slots[kNiMaxHandles];
};

HandleTable& Table() {
    static HandleTable table;
    return table;
}

// The slot of a handle in use, or null; the caller holds the table's mutex.
Slot* UsedSlot(HandleTable& table, NiHandle handle) {
    if (handle < 0 || handle >= table.limit) return nullptr;
    Slot& slot = table.slots[handle];
    return slot.inUse ? &slot : nullptr;
}

}  // namespace

int NiTableInit(int maxHandles) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    if (table.limit > 0) return kNiOk;
    if (maxHandles <= 0) return kNiInvalidHandle;
    table.limit = maxHandles < kNiMaxHandles ? maxHandles : kNiMaxHandles;
    return kNiOk;
}

bool NiTableReady() {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    return table.limit > 0;
}

NiHandle NiTableAdd(NiOsSocket socket, bool listener) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    for (int tried = 0; tried < table.limit; ++tried) {
        int index = (table.next + tried) % table.limit;
        Slot& slot = table.slots[index];
        if (slot.inUse) continue;
        slot.inUse = true;
        slot.entry = NiHandleEntry{};
        slot.entry.socket = socket;
        slot.entry.listener = listener;
        table.next = (index + 1) % table.limit;
        return index;
    }
    return kNiNoFreeHandle;
}

bool NiTableGet(NiHandle handle, NiHandleEntry* entry) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot == nullptr) return false;
    if (entry != nullptr) *entry = slot->entry;
    return true;
}

bool NiTableSetBlocking(NiHandle handle, bool blocking) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot == nullptr) return false;
    slot->entry.blocking = blocking;
    return true;
}

bool NiTableSetSingleRead(NiHandle handle, bool on) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot == nullptr) return false;
    slot->entry.singleRead = on;
    return true;
}

NiOsSocket NiTableRemove(NiHandle handle) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot == nullptr) return kNiOsNoSocket;
    NiOsSocket socket = slot->entry.socket;
    *slot = Slot{};
    return socket;
}

}  // namespace vx
