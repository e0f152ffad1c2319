// A TLS client for the security library's tests: OpenSSL over the client end of a MemoryLink,
// meant to run on a thread of its own against the library's session.
#pragma once

#include <openssl/ssl.h>

#include <string>

#include "memory_link.h"
#include "test_pki.h"

namespace vxtest {

class TlsTestClient {
  public:
    // certificate: the sender's credentials, or null for a sender without a certificate. The
    // server's certificate is checked against caFile.
    TlsTestClient(MemoryLink& link, const std::string& caFile, const PemPair* certificate);
    ~TlsTestClient();
    TlsTestClient(const TlsTestClient&) = delete;
    TlsTestClient& operator=(const TlsTestClient&) = delete;

    bool Connect();
    bool Write(const std::string& data);
    // Reads exactly length bytes; false when the stream ends or fails first.
    bool Read(size_t length, std::string* data);
    // Sends close_notify and ends the client's direction.
    void Close();

  private:
    MemoryLink& link_;
    SSL_CTX* context_ = nullptr;
    SSL* ssl_ = nullptr;
};

// The first bytes a TLS client sends (its ClientHello records), made without any server.
std::string MakeClientHello();

}  // namespace vxtest
