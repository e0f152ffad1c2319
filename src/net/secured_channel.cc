#include "net/secured_channel.h"

#include "base/sync.h"
#include "net/security_lock.h"
#include "net/snc_errors.h"
#include "net/snc_library.h"
#include "printserver/trace.h"

namespace vx {

namespace {

// Reads and writes wait for the peer without the security lock: each session is the library's
// own, and a sender that stalls must not hold up the other connections.

// One read of what the peer sent: the bytes of at least one record of the secured stream, not
// necessarily length bytes (as a plain read).
int32_t SecuredRead(NetSocket& socket, void* buffer, int32_t length) {
    const SncFunctions* snc = Snc();
    if (snc == nullptr) return -1;
    int count = 0;
    int rc = snc->SncNiRawRead(socket.sncSession, buffer, length, kNiWaitForever, &count, 1);
    if (rc == SNC_OK) return count;
    if (rc != SNC_ERR_NI) {
        TraceSncCallFailed("SncNiRawRead", rc);
        ReportSncError(socket.sncSession, rc);
        LastNetError = 0;
        return -1;
    }
    int netError = NetworkErrorOf(socket.sncSession);
    LastNetError = netError;
    if (netError == kNiClosed) {
        Trace(kTraceDetail, "SocketRead: EOF on socket(snc) received\n");
        return 0;
    }
    TraceSncCallFailed("SNC NILIB", netError);
    return -1;
}

int32_t SecuredWrite(NetSocket& socket, const void* data, int32_t length) {
    const SncFunctions* snc = Snc();
    if (snc == nullptr) return -1;
    const char* from = static_cast<const char*>(data);
    int32_t done = 0;
    while (done < length) {
        int count = 0;
        int rc = snc->SncNiRawWrite(socket.sncSession, from + done, length - done, kNiWaitForever,
                                    &count);
        if (rc == SNC_ERR_NI) {
            int netError = NetworkErrorOf(socket.sncSession);
            LastNetError = netError;
            TraceError("SocketWrite: Network Error! SNC NILIB returncode %ld\n",
                       static_cast<long>(netError));
            return -1;
        }
        if (rc != SNC_OK || count <= 0) {
            TraceError("SocketWrite: SncNiRawWrite() failed, rc = %ld\n", static_cast<long>(rc));
            ReportSncError(socket.sncSession, rc);
            LastNetError = 0;
            return -1;
        }
        Trace(kTraceDetail, "SocketWrite send to host buffer %*.*s with len %i\n", count, count,
              from + done, count);
        done += count;
    }
    return length;
}

void SecuredSessionDone(NetSocket& socket) {
    const SncFunctions* snc = Snc();
    if (snc == nullptr || socket.sncSession == nullptr) return;
    LockHold hold(SecurityLock());
    snc->SncSessionDone(socket.sncSession);
}

constexpr SecuredChannel kChannel{SecuredRead, SecuredWrite, SecuredSessionDone};

}  // namespace

const SecuredChannel& SncSecuredChannel() {
    return kChannel;
}

}  // namespace vx
