// Memory of the control files of all connections together. A control file's buffer grows with
// the bytes that arrived, never with the size a sender announced, and all buffers together stay
// under one ceiling: a control file that would pass it is refused, and the service stays up.
#pragma once

#include <cstdint>

namespace vx {

// The most the control files of all connections hold at once.
constexpr int64_t kControlFileCeiling = 64 * 1024 * 1024;

enum ControlGrowth {
    kControlGrown = 0,
    kControlPastCeiling = -1,  // the bytes would pass the ceiling: nothing changed
    kControlOutOfMemory = -2,  // the allocator refused: nothing changed
};

// A control file's buffer while it arrives: text (NUL-terminated by its user) with room for
// room bytes, counted against the ceiling.
struct ControlBuffer {
    char* text = nullptr;
    int64_t room = 0;
};

// Gives the buffer room for newRoom bytes (more than it has), keeping its text. The tag of the
// tracked allocation is "control file buffer".
ControlGrowth GrowControlBuffer(ControlBuffer* buffer, int64_t newRoom);

// Releases a buffer's text (null is nothing) and returns its bytes to the ceiling.
void ReleaseControlText(char* text);

// Bytes the control files of all connections hold now, headers included.
int64_t ControlFileBytesHeld();

// Takes bytes from the ceiling for something that holds them (true), or refuses (false) when
// they would pass it; ReturnControlFileBytes gives them back.
bool TakeControlFileBytes(int64_t bytes);
void ReturnControlFileBytes(int64_t bytes);

}  // namespace vx
