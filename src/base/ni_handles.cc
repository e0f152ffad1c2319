// The handle table. Handles are given out round-robin, so that a handle that was just closed is
// not at once reused for another connection while a late caller may still hold it.
#include "base/ni_handles.h"

#include <mutex>

#include "base/clock.h"

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

int NiTableLimit() {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    return table.limit;
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
        slot.entry.quietSinceMs = TickCountMs();
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

void NiTableNoteWait(NiHandle handle, bool begins) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot == nullptr) return;
    slot->entry.waits += begins ? 1 : -1;
}

void NiTableNoteBytes(NiHandle handle) {
    uint64_t now = TickCountMs();
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    Slot* slot = UsedSlot(table, handle);
    if (slot != nullptr) slot->entry.quietSinceMs = now;
}

// The socket is shut down under the table's mutex: its owner closes it only after removing the
// handle, so the socket cannot have been closed (and its number reused) in between.
NiHandle NiTableShutDownOldestIdle(uint64_t nowMs, uint64_t minQuietMs) {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    NiHandle oldest = kNiNoHandle;
    uint64_t oldestSince = 0;
    for (int index = 0; index < table.limit; ++index) {
        const Slot& slot = table.slots[index];
        const NiHandleEntry& e = slot.entry;
        if (!slot.inUse || e.listener || e.shutDown || e.waits <= 0) continue;
        if (e.quietSinceMs > nowMs || nowMs - e.quietSinceMs < minQuietMs) continue;
        if (oldest == kNiNoHandle || e.quietSinceMs < oldestSince) {
            oldest = index;
            oldestSince = e.quietSinceMs;
        }
    }
    if (oldest != kNiNoHandle) {
        table.slots[oldest].entry.shutDown = true;
        NiOsShutdown(table.slots[oldest].entry.socket);
    }
    return oldest;
}

int NiTableShutDownConnections() {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> hold(table.mutex);
    int count = 0;
    for (int index = 0; index < table.limit; ++index) {
        Slot& slot = table.slots[index];
        if (!slot.inUse || slot.entry.listener || slot.entry.shutDown) continue;
        slot.entry.shutDown = true;
        NiOsShutdown(slot.entry.socket);
        ++count;
    }
    return count;
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
