// The handle table of the network interface layer: integers 0..kNiMaxHandles-1 that stand for
// the layer's sockets, with the per-handle modes. Only the layer's own files use it.
#pragma once

#include "base/ni.h"
#include "base/ni_os.h"

namespace vx {

struct NiHandleEntry {
    NiOsSocket socket = kNiOsNoSocket;
    bool listener = false;
    bool blocking = true;
    bool singleRead = false;
    // Tick of the last byte received (or of the accept): how long the connection has been quiet.
    uint64_t quietSinceMs = 0;
    // Reads and peeks waiting on the handle right now.
    int waits = 0;
    // Shut down to make room or to end the service; its owner has yet to close it.
    bool shutDown = false;
};

// Sets the number of usable handles once (later calls keep the first); 0 or an Ni result.
int NiTableInit(int maxHandles);
bool NiTableReady();
// The number of usable handles (0 before NiTableInit).
int NiTableLimit();
// Enters a socket; the new handle, or kNiNoFreeHandle (the socket is then not taken over).
NiHandle NiTableAdd(NiOsSocket socket, bool listener);
// A copy of the handle's entry; false for a handle that is not in use.
bool NiTableGet(NiHandle handle, NiHandleEntry* entry);
bool NiTableSetBlocking(NiHandle handle, bool blocking);
bool NiTableSetSingleRead(NiHandle handle, bool on);
// A read or peek begins (true) or ends (false) waiting on the handle.
void NiTableNoteWait(NiHandle handle, bool begins);
// Bytes arrived on the handle: its quiet time starts again.
void NiTableNoteBytes(NiHandle handle);
// Shuts down the connection that has waited the longest in a read without receiving a byte,
// quiet for at least minQuietMs; its handle, or kNiNoHandle when none qualifies.
NiHandle NiTableShutDownOldestIdle(uint64_t nowMs, uint64_t minQuietMs);
// Shuts down every connection (not the listening handles); how many.
int NiTableShutDownConnections();
// Frees the handle and hands its socket back (kNiOsNoSocket for a handle not in use).
NiOsSocket NiTableRemove(NiHandle handle);

}  // namespace vx
