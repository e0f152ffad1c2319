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
};

// Sets the number of usable handles once (later calls keep the first); 0 or an Ni result.
int NiTableInit(int maxHandles);
bool NiTableReady();
// Enters a socket; the new handle, or kNiNoFreeHandle (the socket is then not taken over).
NiHandle NiTableAdd(NiOsSocket socket, bool listener);
// A copy of the handle's entry; false for a handle that is not in use.
bool NiTableGet(NiHandle handle, NiHandleEntry* entry);
bool NiTableSetBlocking(NiHandle handle, bool blocking);
bool NiTableSetSingleRead(NiHandle handle, bool on);
// Frees the handle and hands its socket back (kNiOsNoSocket for a handle not in use).
NiOsSocket NiTableRemove(NiHandle handle);

}  // namespace vx
