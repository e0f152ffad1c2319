// The OpenSSL pieces the posix TLS layer's files share.
#pragma once

#include <openssl/ssl.h>

#include "snc/session.h"

namespace vx::snc {

// A session's OpenSSL state: the connection and the two memory BIOs its records pass through
// (in: what the transport received, out: what is to be sent). The SSL owns both BIOs.
struct TlsSession {
    SSL* ssl;
    BIO* in;
    BIO* out;
    unsigned char chunk[16 * 1024 + 512];  // one transport read or write
};

// A new server-side SSL over the loaded credentials; null when there are none (or no memory).
SSL* NewServerSsl();

// The certificate's subject in RFC 4514 form ("CN=app1,O=Example"). SNC_OK, SNC_ERR_ARGUMENT
// when it does not fit whole in size bytes, or SNC_ERR_MEMORY.
int SubjectText(X509* certificate, char* out, int size);

// Moves this thread's OpenSSL error queue into the lines (the queue is empty afterwards).
void TakeErrorQueue(ErrorLines* errors);
// Traces this thread's OpenSSL error queue, one line each after the prefix, and empties it.
void TraceErrorQueue(const char* prefix);

}  // namespace vx::snc
