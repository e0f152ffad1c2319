#include "net/snc_transport.h"

#include <cstdint>

namespace vx {

namespace {

NiHandle HandleOf(void* context) {
    return static_cast<NiHandle>(reinterpret_cast<intptr_t>(context));
}

// Returns as soon as some bytes are there: a record of the secured stream may be shorter than
// the buffer, and the peer waits for the answer to it.
int Receive(void* context, void* buffer, int length, int timeoutMs, int* count) {
    NiHandle handle = HandleOf(context);
    int32_t got = 0;
    NiSetSingleRead(handle, true);
    int rc = NiRawRead(handle, buffer, length, timeoutMs, &got);
    NiSetSingleRead(handle, false);
    if (rc == kNiTimeout && got > 0) rc = kNiOk;
    *count = got;
    return rc;
}

int Send(void* context, const void* data, int length, int timeoutMs, int* count) {
    int32_t sent = 0;
    int rc = NiRawWrite(HandleOf(context), data, length, timeoutMs, &sent);
    *count = sent;
    return rc;
}

}  // namespace

SncTransport NiTransport(NiHandle handle) {
    SncTransport transport{};
    transport.context = reinterpret_cast<void*>(static_cast<intptr_t>(handle));
    transport.recv = Receive;
    transport.send = Send;
    return transport;
}

}  // namespace vx
