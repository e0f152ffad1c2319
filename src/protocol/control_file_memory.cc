#include "protocol/control_file_memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "control_file_memory";
constexpr const char* kControlTag = "control file buffer";

std::atomic<int64_t> g_held{0};

// Each tracked block begins with what it holds against the ceiling, so that the text alone is
// enough to give the bytes back. Its size keeps the text aligned as the allocator's blocks are.
struct alignas(16) BlockHead {
    int64_t held;
};

BlockHead* HeadOf(char* text) {
    return reinterpret_cast<BlockHead*>(text - sizeof(BlockHead));
}

}  // namespace

bool TakeControlFileBytes(int64_t bytes) {
    int64_t held = g_held.load();
    do {
        if (bytes > kControlFileCeiling - held) return false;
    } while (!g_held.compare_exchange_weak(held, held + bytes));
    return true;
}

void ReturnControlFileBytes(int64_t bytes) {
    g_held.fetch_sub(bytes);
}

int64_t ControlFileBytesHeld() {
    return g_held.load();
}

ControlGrowth GrowControlBuffer(ControlBuffer* buffer, int64_t newRoom) {
    int64_t held = static_cast<int64_t>(sizeof(BlockHead)) + newRoom;
    // The new block is counted before the old one is given back: for a moment both exist.
    if (!TakeControlFileBytes(held)) return kControlPastCeiling;
    void* block = g_prsrv != nullptr ? g_prsrv->TrackedAlloc(static_cast<size_t>(held), kSourceFile,
                                                             __LINE__, kControlTag, 0)
                                     : nullptr;
    if (block == nullptr) {
        ReturnControlFileBytes(held);
        return kControlOutOfMemory;
    }
    auto* head = static_cast<BlockHead*>(block);
    head->held = held;
    char* text = reinterpret_cast<char*>(head + 1);
    if (buffer->text != nullptr) {
        memcpy(text, buffer->text, static_cast<size_t>(buffer->room));
        ReleaseControlText(buffer->text);
    }
    buffer->text = text;
    buffer->room = newRoom;
    return kControlGrown;
}

void ReleaseControlText(char* text) {
    if (text == nullptr) return;
    BlockHead* head = HeadOf(text);
    int64_t held = head->held;
    if (g_prsrv != nullptr)
        g_prsrv->TrackedFree(head, kSourceFile, __LINE__, kControlTag, 0);
    else
        free(head);  // the tracked allocator is malloc
    ReturnControlFileBytes(held);
}

}  // namespace vx
