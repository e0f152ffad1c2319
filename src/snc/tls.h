// What the platform's TLS layer (posix/: OpenSSL; win32/: Schannel) does for the exports: one
// server credential set for the process, and per session the hand-shake, the record stream and
// the peer's identity, all moved through the session's transport. Codes are the SNC_* ones.
#pragma once

#include <cstddef>

#include "snc/profile.h"
#include "snc/session.h"

namespace vx::snc {

// Loads the server certificate, its key and the CA of the senders' certificates. 0, or -1 with
// the reason traced (naming the file); the credentials of an earlier start are dropped first.
int TlsServerStart(const Profile& profile);
void TlsServerStop();
bool TlsServerReady();
// The product's name for SncGetAdapterName.
void TlsProductName(char* out, size_t cap);

// Gives a new session its TLS state, bound to the server's credentials.
int TlsSessionCreate(SncSession* session);
void TlsSessionFree(SncSession* session);

// The server side of the hand-shake: the peer must present a certificate the CA signed.
int TlsAccept(SncSession* session, int timeoutMs);
// singleRead: return after the bytes of the first record decrypted; else wait for length bytes.
// *count holds the bytes delivered also when the call fails.
int TlsRead(SncSession* session, void* buffer, int length, int timeoutMs, int* count,
            bool singleRead);
int TlsWrite(SncSession* session, const void* data, int length, int timeoutMs, int* count);
// The peer certificate's subject in RFC 4514 form; SNC_ERR_ARGUMENT when it does not fit.
int TlsPeerName(SncSession* session, char* name, int size);

}  // namespace vx::snc
